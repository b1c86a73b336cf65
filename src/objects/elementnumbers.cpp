#include "objects/elementnumbers.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

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

/// Calls `use` with a value of the kind's type.
template <class Use>
void visit(NumberKind kind, Use&& use) {
  switch (kind) {
    case NumberKind::none:
      return;
    case NumberKind::real64:
      return use(double());
    case NumberKind::real32:
      return use(float());
    case NumberKind::int8:
      return use(std::int8_t());
    case NumberKind::int16:
      return use(std::int16_t());
    case NumberKind::int32:
      return use(std::int32_t());
    case NumberKind::int64:
      return use(std::int64_t());
    case NumberKind::uint8:
      return use(std::uint8_t());
    case NumberKind::uint16:
      return use(std::uint16_t());
    case NumberKind::uint32:
      return use(std::uint32_t());
    case NumberKind::uint64:
      return use(std::uint64_t());
  }
}

/// 2 to the number of value bits: the first number beyond the greatest, and as a double exact.
template <class Integer>
double beyond() {
  return std::ldexp(1.0, std::numeric_limits<Integer>::digits);
}

/// Whether a floating-point number is one of the integers of the type.
template <class Integer, class Real>
bool isInteger(Real value) {
  const double number = value;
  // Written so that NaN is none.
  return number >= static_cast<double>(std::numeric_limits<Integer>::min()) &&
         number < beyond<Integer>() && std::trunc(number) == number;
}

/// \returns false for a value that To cannot hold exactly
template <class To, class From>
bool convert(From value, To& out) {
  constexpr bool fromReal = std::is_floating_point_v<From>;
  constexpr bool toReal = std::is_floating_point_v<To>;
  if constexpr (!fromReal && !toReal) {
    if (!std::in_range<To>(value)) return false;
  } else if constexpr (fromReal && !toReal) {
    if (!isInteger<To>(value)) return false;
  } else if constexpr (std::numeric_limits<To>::digits < std::numeric_limits<From>::digits) {
    // A number beyond the range of single precision has no conversion at all.
    if (fromReal && std::isfinite(static_cast<double>(value)) &&
        std::abs(static_cast<double>(value)) > std::numeric_limits<float>::max())
      return false;
    const To converted = static_cast<To>(value);
    bool same = true;
    if constexpr (fromReal) {
      same = std::isnan(value) || static_cast<From>(converted) == value;
    } else {
      same = isInteger<From>(converted) && static_cast<From>(converted) == value;
    }
    if (!same) return false;
  }
  out = static_cast<To>(value);
  return true;
}

template <class From, class To>
std::optional<std::size_t> convertAll(const char* elements, std::size_t count, char* out) {
  for (std::size_t i = 0; i < count; ++i) {
    To converted;
    if (!convert(elementAt<From>(elements, i), converted)) return i;
    std::memcpy(out + i * sizeof converted, &converted, sizeof converted);
  }
  return std::nullopt;
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
  std::size_t bytes = 0;
  visit(kind, [&](auto element) { bytes = sizeof element; });
  return bytes;
}

std::size_t builtInElementBytes(int dataTypeCode) {
  return bytesOf(numberKindOf(dataTypeCode));
}

NumberKind numberKindOf(int dataTypeCode) {
  switch (dataTypeCode) {
    case dtypeDouble:
      return NumberKind::real64;
    case dtypeSingle:
      return NumberKind::real32;
    case dtypeInt8:
      return NumberKind::int8;
    case dtypeInt16:
      return NumberKind::int16;
    case dtypeInt32:
      return NumberKind::int32;
    case dtypeInt64:
      return NumberKind::int64;
    case dtypeUInt8:
    case dtypeBoolean:
      return NumberKind::uint8;
    case dtypeUInt16:
      return NumberKind::uint16;
    case dtypeUInt32:
      return NumberKind::uint32;
    case dtypeUInt64:
      return NumberKind::uint64;
    default:
      return NumberKind::none;
  }
}

std::optional<std::size_t> convertExactly(NumberKind from, const char* elements,
                                          std::size_t count, NumberKind to, char* out) {
  std::optional<std::size_t> failed;
  visit(from, [&](auto source) {
    visit(to, [&](auto target) {
      failed = convertAll<decltype(source), decltype(target)>(elements, count, out);
    });
  });
  return failed;
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
  visit(kind_, [&](auto element) { addTyped<decltype(element)>(bytes, count); });
}

}  // namespace vela
