#include "objects/sampletypes.h"

#include <memory>

#include "objectmanager/objectmanager.h"
#include "objects/classdef.h"
#include "objects/raising.h"
#include "objects/strings.h"

namespace vela {
namespace {

std::unique_ptr<ObjectRef> findDataType(ObjectManager& manager, int dataType) {
  bool found = false;
  return dataType == 0 ? nullptr : manager.findObject(dataType, strings::DataType, found);
}

/// Asked for with every append.
class DataTypeRows : public PreparedSet {
 public:
  explicit DataTypeRows(ObjectManager& manager) : query_(manager.repository()) {
    const kodd::ClassRef cls = manager.getClass(strings::DataType);
    query_.addIDConstraint(cls, &id_);
    query_.addResultProperty(cls.findProperty(strings::Classification), &classification_);
    query_.addResultProperty(cls.findProperty(strings::Name), &name_);
    query_.addResultProperty(cls.findProperty(strings::FK_DataTypeDefinitionID), &definition_);
  }

  /// As DataTypeUtil::getEffectiveType; empty when there is no such type.
  std::string labelOf(int dataType) {
    if (!read(dataType)) return {};
    if (!classification_.empty()) return classification_;
    return definition_ == 0 || read(definition_) ? name_ : std::string();
  }

 private:
  bool read(int dataType) {
    id_ = dataType;
    return raising([&](auto& diag) { return query_.executeForOne(diag); });
  }

  int id_ = 0;
  std::string classification_;
  std::string name_;
  int definition_ = 0;
  kodd::ObjectQuery query_;
};

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
  return dataType == 0 ? std::string() : manager.prepared<DataTypeRows>().labelOf(dataType);
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
