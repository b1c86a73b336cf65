#include "scripting/sampleclass.h"

#include <array>
#include <cmath>
#include <utility>

#include "objects/classdef.h"
#include "objects/sampletypes.h"
#include "objects/strings.h"
#include "scripting/errors.h"

namespace vela::scripting {
namespace {

using host::ArrayClass;
using host::HostArray;

struct BuiltIn {
  ArrayClass cls;
  builtInDTypeId type;
};

constexpr std::array<BuiltIn, 11> kBuiltIns = {{{ArrayClass::real64, dtypeDouble},
                                                {ArrayClass::real32, dtypeSingle},
                                                {ArrayClass::int8, dtypeInt8},
                                                {ArrayClass::uint8, dtypeUInt8},
                                                {ArrayClass::int16, dtypeInt16},
                                                {ArrayClass::uint16, dtypeUInt16},
                                                {ArrayClass::int32, dtypeInt32},
                                                {ArrayClass::uint32, dtypeUInt32},
                                                {ArrayClass::int64, dtypeInt64},
                                                {ArrayClass::uint64, dtypeUInt64},
                                                {ArrayClass::logical, dtypeBoolean}}};

std::optional<ArrayClass> classNamed(const std::string& builtIn) {
  for (const BuiltIn& each : kBuiltIns) {
    if (DataTypeUtil::getBuiltInName(each.type) == builtIn) return each.cls;
  }
  return std::nullopt;
}

host::EnumerationType enumerationFrom(const ClassDef& definition) {
  host::EnumerationType type{definition.getName(), {}};
  for (auto& [value, label] : definition.getOrderedEnumerationDefinition()) {
    type.members.emplace_back(std::move(label), value);
  }
  return type;
}

/// Nothing for a type without scaling, whose values are plain numbers.
std::optional<host::FixedPointType> fixedPointFrom(const fxpDataTypeProp& stored) {
  using fixedpoint::Scaling;
  if (stored.scaling == Scaling::unspecified) return std::nullopt;
  host::FixedPointType type{stored.isSigned, stored.wordLength, std::nullopt, 1, 0};
  if (stored.scaling == Scaling::binaryPoint) {
    type.fractionLength = stored.fractionLength;
    type.slope = std::ldexp(1.0, -stored.fractionLength);
  } else {
    type.slope = std::ldexp(stored.slopeAdjustment, stored.fixedExponent);
    type.bias = stored.bias;
  }
  return type;
}

SampleClass classOf(ObjectManager& manager, int dataType) {
  const std::string label = typeLabelOf(manager, dataType);
  SampleClass cls;
  if (const auto builtIn = classNamed(label)) {
    cls.numbers = *builtIn;
  } else if (const auto definition = enumerationOf(manager, dataType)) {
    cls.numbers = ArrayClass::int32;
    cls.enumeration = enumerationFrom(*definition);
  } else if (const auto stored = fixedPointTypeOf(manager, dataType)) {
    cls.numbers = ArrayClass::real64;
    cls.fixedPoint = fixedPointFrom(*stored);
  } else {
    cls.isKnown = false;
  }
  return cls;
}

long long enumerationTypeFor(ObjectManager& manager, const host::EnumerationType& type) {
  EnumerationDefinition definition;
  for (const auto& [label, value] : type.members) definition.emplace_back(value, label);
  long long handle = 0;
  DataTypeUtil::createEnumDataType(type.className, definition, strings::Int32, manager, handle);
  return handle;
}

long long fixedPointTypeFor(ObjectManager& manager, const host::FixedPointType& type) {
  long long handle = 0;
  if (type.fractionLength) {
    DataTypeUtil::createFixedPointDataType_BinaryPointScaling(
        dtypeDouble, type.isSigned, type.wordLength, *type.fractionLength, manager, handle);
    return handle;
  }
  int exponent = 0;
  const double fraction = std::frexp(type.slope, &exponent);
  DataTypeUtil::createFixedPointDataType_SlopeBiasScaling(
      dtypeDouble, type.isSigned, type.wordLength, 2 * fraction, exponent - 1, type.bias,
      manager, handle);
  return handle;
}

}  // namespace

HostArray SampleClass::arrayOf(HostArray stored) const {
  if (enumeration) return HostArray::enumeration(*enumeration, std::move(stored));
  // Fixed-point values have no imaginary part of their own.
  if (fixedPoint && !stored.isComplex()) {
    return HostArray::fixedPoint(*fixedPoint, std::move(stored));
  }
  return stored;
}

std::string SampleClass::describe() const {
  if (!isKnown) return "no type";
  if (enumeration) return "the enumeration " + enumeration->className;
  if (fixedPoint) return "a fixed-point type";
  return std::string(host::arrayClassName(numbers));
}

const SampleClass& SampleClasses::of(const Signal& signal) {
  const ObjectRef& object = signal.getObjectReference();
  const int dataType = object.getPropertyInt32(strings::DataTypeID);
  const auto known = byDataType_.find(dataType);
  if (known != byDataType_.end()) return known->second;
  return byDataType_.emplace(dataType, classOf(object.getObjectManager(), dataType))
      .first->second;
}

void requireSamples(const HostArray& values, const std::string& operation) {
  if (values.isNumeric() || values.isLogical() || values.isEnumeration() ||
      values.isFixedPoint()) {
    return;
  }
  throwScriptingError({"nexstore:nex", "InvalidData"},
                      {{"Operation", operation},
                       {"Reason",
                        "samples are numbers, logical values, members of an "
                        "enumeration or fixed-point values, not " +
                            values.describe()}});
}

const HostArray& numbersIn(const HostArray& values) {
  return values.isEnumeration() || values.isFixedPoint() ? values.underlying() : values;
}

builtInDTypeId builtInTypeOf(ArrayClass cls) {
  for (const BuiltIn& each : kBuiltIns) {
    if (each.cls == cls) return each.type;
  }
  return dtypeNull;
}

std::unique_ptr<ObjectRef> dataTypeFor(ObjectManager& manager, const HostArray& values) {
  long long handle = 0;
  if (values.isEnumeration()) {
    handle = enumerationTypeFor(manager, values.enumerationType());
  } else if (values.isFixedPoint()) {
    handle = fixedPointTypeFor(manager, values.fixedPointType());
  } else {
    DataTypeUtil::getBuiltInDataTypeHandle(builtInTypeOf(values.arrayClass()), manager, handle);
  }
  bool found = false;
  // IDs of stored objects are 32-bit numbers.
  return manager.findObject(static_cast<int>(handle), strings::DataType, found);
}

}  // namespace vela::scripting
