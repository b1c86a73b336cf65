#include "objects/elementnumbers.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "objects/datatypes.h"
#include "objects/strings.h"

namespace vela {
namespace {

template <class T>
T elementAt(const char* bytes, std::size_t index) {
  T element;
  std::memcpy(&element, bytes + index * sizeof element, sizeof element);
  return element;
}

template <class T>
void widenInto(const void* elements, std::vector<int>& out) {
  const auto* bytes = static_cast<const char*>(elements);
  for (std::size_t i = 0; i < out.size(); ++i) out[i] = elementAt<T>(bytes, i);
}

}  // namespace

NumberKind numberKindOf(const std::string& typeLabel) {
  struct Entry {
    const std::string& label;
    NumberKind kind;
  };
  static const Entry entries[] = {
      {strings::Double, NumberKind::real64}, {strings::Single, NumberKind::real32},
      {strings::Int8, NumberKind::int8},     {strings::Int16, NumberKind::int16},
      {strings::Int32, NumberKind::int32},   {strings::Int64, NumberKind::int64},
      {strings::UInt8, NumberKind::uint8},   {strings::UInt16, NumberKind::uint16},
      {strings::UInt32, NumberKind::uint32}, {strings::UInt64, NumberKind::uint64},
      {strings::Boolean, NumberKind::uint8}, {strings::Enumeration, NumberKind::int32},
  };
  for (const Entry& entry : entries) {
    if (entry.label == typeLabel) return entry.kind;
  }
  // What is left with a size is fixed point, kept as doubles.
  return DataTypeUtil::getDataSize(typeLabel) == 0 ? NumberKind::none : NumberKind::real64;
}

std::size_t bytesOf(NumberKind kind) {
  switch (kind) {
    case NumberKind::none:
      return 0;
    case NumberKind::int8:
    case NumberKind::uint8:
      return 1;
    case NumberKind::int16:
    case NumberKind::uint16:
      return 2;
    case NumberKind::real32:
    case NumberKind::int32:
    case NumberKind::uint32:
      return 4;
    case NumberKind::real64:
    case NumberKind::int64:
    case NumberKind::uint64:
      return 8;
  }
  return 0;
}

std::size_t builtInElementBytes(int dataTypeCode) {
  switch (dataTypeCode) {
    case dtypeDouble:
    case dtypeInt64:
    case dtypeUInt64:
      return 8;
    case dtypeSingle:
    case dtypeInt32:
    case dtypeUInt32:
      return 4;
    case dtypeInt16:
    case dtypeUInt16:
      return 2;
    case dtypeInt8:
    case dtypeUInt8:
    case dtypeBoolean:
      return 1;
    default:
      return 0;
  }
}

bool isSmallInteger(int dataTypeCode) {
  return dataTypeCode == dtypeInt8 || dataTypeCode == dtypeUInt8 ||
         dataTypeCode == dtypeInt16 || dataTypeCode == dtypeUInt16;
}

std::vector<int> widened(int dataTypeCode, const void* elements, std::size_t count) {
  std::vector<int> out(count);
  switch (dataTypeCode) {
    case dtypeInt8:
      widenInto<std::int8_t>(elements, out);
      break;
    case dtypeUInt8:
      widenInto<std::uint8_t>(elements, out);
      break;
    case dtypeInt16:
      widenInto<std::int16_t>(elements, out);
      break;
    case dtypeUInt16:
      widenInto<std::uint16_t>(elements, out);
      break;
  }
  return out;
}

template <class T>
void NumberBounds::addTyped(const char* bytes, std::size_t count) {
  // Several lanes, so that no comparison waits for the one before it.
  constexpr std::size_t kLanes = 8;
  using Limits = std::numeric_limits<T>;
  constexpr T kGreatest = Limits::has_infinity ? Limits::infinity() : Limits::max();
  constexpr T kLeast = Limits::has_infinity ? -Limits::infinity() : Limits::lowest();
  std::array<T, kLanes> mins;
  std::array<T, kLanes> maxs;
  mins.fill(kGreatest);
  maxs.fill(kLeast);
  const auto take = [&](std::size_t lane, T element) {
    // False for NaN both times, wherever it stands.
    mins[lane] = element < mins[lane] ? element : mins[lane];
    maxs[lane] = element > maxs[lane] ? element : maxs[lane];
  };
  std::size_t i = 0;
  for (; i + kLanes <= count; i += kLanes) {
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
      take(lane, elementAt<T>(bytes, i + lane));
    }
  }
  for (; i < count; ++i) take(0, elementAt<T>(bytes, i));

  const T min = *std::min_element(mins.begin(), mins.end());
  const T max = *std::max_element(maxs.begin(), maxs.end());
  if (min > max) return;
  min_ = std::min(min_, static_cast<double>(min));
  max_ = std::max(max_, static_cast<double>(max));
}

void NumberBounds::add(const char* bytes, std::size_t byteCount) {
  const std::size_t size = bytesOf(kind_);
  const std::size_t count = size == 0 ? 0 : byteCount / size;
  if (count == 0) return;
  any_ = true;
  switch (kind_) {
    case NumberKind::none:
      return;
    case NumberKind::real64:
      return addTyped<double>(bytes, count);
    case NumberKind::real32:
      return addTyped<float>(bytes, count);
    case NumberKind::int8:
      return addTyped<std::int8_t>(bytes, count);
    case NumberKind::int16:
      return addTyped<std::int16_t>(bytes, count);
    case NumberKind::int32:
      return addTyped<std::int32_t>(bytes, count);
    case NumberKind::int64:
      return addTyped<std::int64_t>(bytes, count);
    case NumberKind::uint8:
      return addTyped<std::uint8_t>(bytes, count);
    case NumberKind::uint16:
      return addTyped<std::uint16_t>(bytes, count);
    case NumberKind::uint32:
      return addTyped<std::uint32_t>(bytes, count);
    case NumberKind::uint64:
      return addTyped<std::uint64_t>(bytes, count);
  }
}

}  // namespace vela
