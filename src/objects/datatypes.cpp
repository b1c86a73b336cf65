#include "objects/datatypes.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <variant>
#include <vector>

#include "objectmanager/objectmanager.h"
#include "objects/checksum.h"
#include "objects/find.h"
#include "objects/strings.h"

namespace vela {
namespace {

/// What `find` answers, or, under the write lock and only if that is still nothing, what
/// `create` makes. Both give the ID of a "DataType" object.
long long findOrCreate(ObjectManager& manager, const std::function<int()>& find,
                       const std::function<int()>& create) {
  int type = find();
  if (type == 0) {
    manager.inTransaction([&] {
      type = find();
      if (type == 0) type = create();
    });
  }
  return type;
}

int createDataType(ObjectManager& manager, const std::string& name,
                   const std::string& classification, int definition) {
  std::vector<ObjectManager::InitialProperty> values = {
      {strings::Name, &name, ObjectConstructorPropType::stdString},
      {strings::Classification, &classification, ObjectConstructorPropType::stdString},
      {strings::FK_DataTypeDefinitionID, &definition, ObjectConstructorPropType::int32}};
  return manager.createObject(strings::DataType, values, true)->getObjectID();
}

/// A type that is told by its name: a built-in one (definition 0) or an alias of one.
long long namedType(ObjectManager& manager, const std::string& name, int definition) {
  const auto find = [&] {
    return findFirstID(
        manager, strings::DataType,
        {equals(strings::Name, name), equals(strings::FK_DataTypeDefinitionID, definition),
         equals(strings::Classification, strings::EMPTY_STRING)});
  };
  return findOrCreate(manager, find, [&] {
    return createDataType(manager, name, strings::EMPTY_STRING, definition);
  });
}

int dataTypeOf(ObjectManager& manager, int definition) {
  return findFirstID(manager, strings::DataType,
                     {equals(strings::FK_DataTypeDefinitionID, definition)});
}

struct Argument {
  const std::string& property;
  std::variant<int, double> value;
};

void refuseNonFinite(const Argument& argument) {
  const double* real = std::get_if<double>(&argument.value);
  if (real && !std::isfinite(*real)) {
    kodiag::raise({"nexstore:nex", "InvalidData"},
                  {{"Operation", "create fixed-point data type"},
                   {"Reason", "\"" + argument.property + "\" is not a finite number"}});
  }
}

int createDefinition(ObjectManager& manager, const std::string& className, int checkSum,
                     const std::vector<Argument>& arguments) {
  std::vector<ObjectManager::InitialProperty> values = {
      {strings::CheckSum, &checkSum, ObjectConstructorPropType::int32}};
  for (const Argument& argument : arguments) {
    if (const int* integer = std::get_if<int>(&argument.value)) {
      values.emplace_back(argument.property, integer, ObjectConstructorPropType::int32);
    } else {
      values.emplace_back(argument.property, &std::get<double>(argument.value),
                          ObjectConstructorPropType::real64);
    }
  }
  return manager.createObject(className, values, true)->getObjectID();
}

long long fixedPointType(ObjectManager& manager, const std::string& className,
                         const std::string& classification,
                         const std::vector<Argument>& arguments) {
  CheckSum sum;
  std::vector<ObjectManager::Constraint> same;
  for (const Argument& argument : arguments) {
    refuseNonFinite(argument);
    std::visit(
        [&](auto value) {
          sum.add(value);
          same.push_back(equals(argument.property, value));
        },
        argument.value);
  }
  same.push_back(equals(strings::CheckSum, sum.value()));

  const auto find = [&] {
    const int definition = findFirstID(manager, className, same);
    return definition == 0 ? 0 : dataTypeOf(manager, definition);
  };
  return findOrCreate(manager, find, [&] {
    const int definition = createDefinition(manager, className, sum.value(), arguments);
    return createDataType(manager, strings::EMPTY_STRING, classification, definition);
  });
}

bool isEnumStorage(const std::string& name) {
  static const std::string* const names[] = {
      &strings::KorvoIntEnumType, &strings::Int8,  &strings::UInt8, &strings::Int16,
      &strings::UInt16,           &strings::Int32, &strings::UInt32};
  return std::ranges::any_of(names, [&](const std::string* known) { return *known == name; });
}

}  // namespace

const std::string& DataTypeUtil::getBuiltInName(builtInDTypeId type) {
  switch (type) {
    case dtypeDouble:
      break;
    case dtypeSingle:
      return strings::Single;
    case dtypeInt8:
      return strings::Int8;
    case dtypeUInt8:
      return strings::UInt8;
    case dtypeInt16:
      return strings::Int16;
    case dtypeUInt16:
      return strings::UInt16;
    case dtypeInt32:
      return strings::Int32;
    case dtypeUInt32:
      return strings::UInt32;
    case dtypeBoolean:
      return strings::Boolean;
    case dtypeInt64:
      return strings::Int64;
    case dtypeUInt64:
      return strings::UInt64;
    case dtypeNull:
      return strings::Null;
  }
  return strings::Double;
}

void DataTypeUtil::getBuiltInDataTypeHandle(builtInDTypeId type, ObjectManager& manager,
                                            long long& handle) {
  handle = namedType(manager, getBuiltInName(type), 0);
}

void DataTypeUtil::createFixedPointDataType_BinaryPointScaling(int numericDataType,
                                                               int signedness, int wordLength,
                                                               int fractionLength,
                                                               ObjectManager& manager,
                                                               long long& handle) {
  handle = fixedPointType(manager, strings::FixedPointBinaryPointScaling,
                          strings::FxpBinaryPointScaling,
                          {{strings::NumericDataType, numericDataType},
                           {strings::Signedness, signedness},
                           {strings::WordLength, wordLength},
                           {strings::FractionLength, fractionLength}});
}

void DataTypeUtil::createFixedPointDataType_SlopeBiasScaling(
    int numericDataType, int signedness, int wordLength, double slopeAdjustment,
    int fixedExponent, double bias, ObjectManager& manager, long long& handle) {
  handle =
      fixedPointType(manager, strings::FixedPointSlopeBiasScaling, strings::FxpSlopeBiasScaling,
                     {{strings::NumericDataType, numericDataType},
                      {strings::Signedness, signedness},
                      {strings::WordLength, wordLength},
                      {strings::SlopeAdjustmentFactor, slopeAdjustment},
                      {strings::FixedExponent, fixedExponent},
                      {strings::Bias, bias}});
}

void DataTypeUtil::createFixedPointDataType_UnspecifiedScaling(int numericDataType,
                                                               int signedness, int wordLength,
                                                               ObjectManager& manager,
                                                               long long& handle) {
  handle = fixedPointType(manager, strings::FixedPointUnspecifiedScaling,
                          strings::FxpUnspecifiedScaling,
                          {{strings::NumericDataType, numericDataType},
                           {strings::Signedness, signedness},
                           {strings::WordLength, wordLength}});
}

void DataTypeUtil::createEnumDataType(const std::string& name,
                                      const EnumerationDefinition& definition,
                                      const std::string& storageType, ObjectManager& manager,
                                      long long& handle) {
  if (!isEnumStorage(storageType)) return;
  int type = 0;
  manager.inTransaction([&] {
    const ClassDef cls(name, definition, storageType, manager);
    ObjectRef& object = cls.getObjectReference();
    if (object.getPropertyStdString(strings::Classification) != strings::Enumeration) {
      object.setPropertyStdString(strings::Classification, strings::Enumeration);
    }
    type = dataTypeOf(manager, cls.getID());
    if (type == 0) {
      type = createDataType(manager, strings::EMPTY_STRING, strings::Enumeration, cls.getID());
    }
  });
  handle = type;
}

void DataTypeUtil::createAliasedDataType(const std::string& name, builtInDTypeId type,
                                         ObjectManager& manager, long long& handle) {
  long long alias = 0;
  manager.inTransaction([&] {
    // The ID of a stored object is a positive 32-bit number.
    const auto builtIn = static_cast<int>(namedType(manager, getBuiltInName(type), 0));
    alias = namedType(manager, name, builtIn);
  });
  handle = alias;
}

std::string DataTypeUtil::getEffectiveType(const ObjectRef& dataType) {
  std::string classification = dataType.getPropertyStdString(strings::Classification);
  if (!classification.empty()) return classification;
  const int builtIn = dataType.getPropertyInt32(strings::FK_DataTypeDefinitionID);
  if (builtIn == 0) return dataType.getPropertyStdString(strings::Name);
  bool found = false;
  const auto base = dataType.getObjectManager().findObject(builtIn, strings::DataType, found);
  return found ? base->getPropertyStdString(strings::Name) : std::string();
}

unsigned int DataTypeUtil::getDataSize(const std::string& typeName) {
  static const std::pair<const std::string&, unsigned int> sizes[] = {
      {strings::Double, 8},
      {strings::FxpBinaryPointScaling, 8},
      {strings::FxpSlopeBiasScaling, 8},
      {strings::FxpUnspecifiedScaling, 8},
      {strings::Single, 4},
      {strings::Int8, 1},
      {strings::UInt8, 1},
      {strings::Int16, 2},
      {strings::UInt16, 2},
      {strings::Int32, 4},
      {strings::Enumeration, 4},
      {strings::UInt32, 4},
      {strings::Int64, 8},
      {strings::UInt64, 8},
      {strings::Boolean, 1},
  };
  for (const auto& [name, bytes] : sizes) {
    if (name == typeName) return bytes;
  }
  return 0;
}

}  // namespace vela
