#include "objects/sampletypes.h"

#include <memory>

#include "objectmanager/objectmanager.h"
#include "objects/classdef.h"
#include "objects/datatypes.h"
#include "objects/strings.h"

namespace vela {
namespace {

std::unique_ptr<ObjectRef> findDataType(ObjectManager& manager, int dataType) {
  bool found = false;
  return dataType == 0 ? nullptr : manager.findObject(dataType, strings::DataType, found);
}

bool isFixedPoint(const std::string& classification) {
  return classification == strings::FxpBinaryPointScaling ||
         classification == strings::FxpSlopeBiasScaling ||
         classification == strings::FxpUnspecifiedScaling;
}

void readScaling(const ObjectRef& definition, fxpDataTypeProp& type) {
  const std::string& kind = definition.getObjectType();
  if (kind == strings::FixedPointBinaryPointScaling) {
    type.scaling = fixedpoint::Scaling::binaryPoint;
    type.fractionLength = definition.getPropertyInt32(strings::FractionLength);
  } else if (kind == strings::FixedPointSlopeBiasScaling) {
    type.scaling = fixedpoint::Scaling::slopeBias;
    type.slopeAdjustment = definition.getPropertyReal64(strings::SlopeAdjustmentFactor);
    type.fixedExponent = definition.getPropertyInt32(strings::FixedExponent);
    type.bias = definition.getPropertyReal64(strings::Bias);
  } else {
    type.scaling = fixedpoint::Scaling::unspecified;
  }
}

}  // namespace

std::string typeLabelOf(ObjectManager& manager, int dataType) {
  const std::unique_ptr<ObjectRef> type = findDataType(manager, dataType);
  return type ? DataTypeUtil::getEffectiveType(*type) : std::string();
}

std::optional<fxpDataTypeProp> fixedPointTypeOf(ObjectManager& manager, int dataType) {
  const std::unique_ptr<ObjectRef> type = findDataType(manager, dataType);
  if (!type) return std::nullopt;
  if (!isFixedPoint(type->getPropertyStdString(strings::Classification))) return std::nullopt;
  bool found = false;
  const std::unique_ptr<ObjectRef> definition =
      manager.findObject(type->getPropertyInt32(strings::FK_DataTypeDefinitionID), found);
  if (!found) return std::nullopt;
  fxpDataTypeProp properties;
  properties.isSigned = definition->getPropertyInt32(strings::Signedness) != 0;
  properties.wordLength = definition->getPropertyInt32(strings::WordLength);
  properties.containerBytes = fixedpoint::containerBytesFor(properties.wordLength);
  readScaling(*definition, properties);
  return properties;
}

std::unique_ptr<ClassDef> enumerationOf(ObjectManager& manager, int dataType) {
  const std::unique_ptr<ObjectRef> type = findDataType(manager, dataType);
  if (!type || type->getPropertyStdString(strings::Classification) != strings::Enumeration) {
    return nullptr;
  }
  bool found = false;
  std::unique_ptr<ObjectRef> definition =
      manager.findObject(type->getPropertyInt32(strings::FK_DataTypeDefinitionID),
                         strings::ClassDefinition, found);
  return found ? std::make_unique<ClassDef>(std::move(definition)) : nullptr;
}

}  // namespace vela
