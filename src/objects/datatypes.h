// Data types of samples: finds or creates their stored objects, so that equal types share one.
#pragma once

#include <string>

#include "objects/classdef.h"

namespace vela {

class ObjectManager;

/// Codes of the built-in types. Any other value stands for "double".
enum builtInDTypeId {
  dtypeDouble = 0,
  dtypeSingle = 1,
  dtypeInt8 = 2,
  dtypeUInt8 = 3,
  dtypeInt16 = 4,
  dtypeUInt16 = 5,
  dtypeInt32 = 6,
  dtypeUInt32 = 7,
  dtypeBoolean = 8,
  dtypeInt64 = 10000,
  dtypeUInt64 = 10001,
  dtypeNull = 10002
};

/// A handle is the ID of a stored "DataType" object.
class DataTypeUtil {
 public:
  static void getBuiltInDataTypeHandle(builtInDTypeId type, ObjectManager& manager,
                                       long long& handle);
  static void createFixedPointDataType_BinaryPointScaling(int numericDataType, int signedness,
                                                          int wordLength, int fractionLength,
                                                          ObjectManager& manager,
                                                          long long& handle);
  static void createFixedPointDataType_SlopeBiasScaling(int numericDataType, int signedness,
                                                        int wordLength, double slopeAdjustment,
                                                        int fixedExponent, double bias,
                                                        ObjectManager& manager,
                                                        long long& handle);
  static void createFixedPointDataType_UnspecifiedScaling(int numericDataType, int signedness,
                                                          int wordLength,
                                                          ObjectManager& manager,
                                                          long long& handle);
  /// \param storageType  "Korvo.IntEnumType", "int8" .. "int32" or "uint8" .. "uint32"; for any
  ///                     other text nothing is stored and the handle is left alone
  static void createEnumDataType(const std::string& name,
                                 const EnumerationDefinition& definition,
                                 const std::string& storageType, ObjectManager& manager,
                                 long long& handle);
  /// A type of that name that stands for a built-in one.
  static void createAliasedDataType(const std::string& name, builtInDTypeId type,
                                    ObjectManager& manager, long long& handle);

  static const std::string& getBuiltInName(builtInDTypeId type);
  /// What decides how samples are read: the classification where there is one, else the name of
  /// the built-in type, which for an alias is the one it stands for.
  static std::string getEffectiveType(const ObjectRef& dataType);
  /// Bytes of one stored sample of the type of that name; 0 for names without a size.
  /// Fixed-point samples take 8 bytes and enumerations 4 whatever their word length.
  static unsigned int getDataSize(const std::string& typeName);
};

}  // namespace vela
