// What the samples of a signal are as elements of an array.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "host/arrays.h"
#include "objects/datatypes.h"
#include "objects/signal.h"

namespace vela::scripting {

/// Samples are stored as numbers of class `numbers`; of an enumeration or a fixed-point type,
/// which then is told here, as int32 members or as real-world doubles.
struct SampleClass {
  /// False for a signal that has not taken on a type, or that keeps records.
  bool isKnown = true;
  host::ArrayClass numbers = host::ArrayClass::uint8;
  std::optional<host::EnumerationType> enumeration;
  std::optional<host::FixedPointType> fixedPoint;

  /// An array of such samples from what is stored of them.
  host::HostArray arrayOf(host::HostArray stored) const;
  /// For messages: "int8", "the enumeration Gear".
  std::string describe() const;
};

/// Looks classes up, each data type once; for use within one unit of work.
class SampleClasses {
 public:
  const SampleClass& of(const Signal& signal);

 private:
  std::map<int, SampleClass> byDataType_;
};

/// \throws "nexstore:nex:InvalidData" for arrays of other elements than numbers, logical
///         values, members of an enumeration and fixed-point values
void requireSamples(const host::HostArray& values, const std::string& operation);
/// The array itself, or the numbers behind members and fixed-point values.
const host::HostArray& numbersIn(const host::HostArray& values);
builtInDTypeId builtInTypeOf(host::ArrayClass cls);
/// The "DataType" of samples like those of the array, which is stored if it is not yet.
std::unique_ptr<ObjectRef> dataTypeFor(ObjectManager& manager, const host::HostArray& values);

}  // namespace vela::scripting
