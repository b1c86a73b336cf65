#include "scripting/conversion.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <utility>
#include <vector>

#include "scripting/errors.h"
#include "text/numbers.h"

namespace vela::scripting {
namespace {

using host::ArrayClass;
using host::HostArray;

enum class Loss { none, fraction, range };

template <class To, class From>
Loss toWhole(From value, To& out) {
  if constexpr (std::is_floating_point_v<From>) {
    if (std::isnan(value) || (std::isfinite(value) && std::trunc(value) != value)) {
      return Loss::fraction;
    }
    // Powers of two, hence exact whatever the type.
    const From above = std::ldexp(From{1}, std::numeric_limits<To>::digits);
    const From lowest = std::is_signed_v<To> ? -above : From{0};
    if (!(value >= lowest && value < above)) return Loss::range;
  } else if (!std::in_range<To>(value)) {
    return Loss::range;
  }
  out = static_cast<To>(value);
  return Loss::none;
}

template <class To, class From>
Loss toReal(From value, To& out) {
  out = static_cast<To>(value);
  if constexpr (std::is_floating_point_v<From>) {
    const bool same = std::isnan(value) || static_cast<From>(out) == value;
    return same ? Loss::none : Loss::range;
  } else {
    // Exact as long as the bits between the highest and the lowest that is set fit.
    using Unsigned = std::make_unsigned_t<From>;
    auto bits = static_cast<Unsigned>(value);
    if constexpr (std::is_signed_v<From>) {
      if (value < 0) bits = static_cast<Unsigned>(Unsigned{0} - bits);
    }
    const int span =
        bits == 0 ? 0 : static_cast<int>(std::bit_width(bits)) - std::countr_zero(bits);
    return span <= std::numeric_limits<To>::digits ? Loss::none : Loss::range;
  }
}

/// \param out  of type To, or a byte for a logical value
template <class To, class From, class Out>
Loss convert(From value, Out& out) {
  if constexpr (std::is_same_v<From, bool>) {
    out = static_cast<Out>(value);
    return Loss::none;
  } else if constexpr (std::is_same_v<To, bool>) {
    const Loss loss = toWhole(value, out);
    return loss == Loss::none && out > 1 ? Loss::range : loss;
  } else if constexpr (std::is_floating_point_v<To>) {
    return toReal(value, out);
  } else {
    return toWhole(value, out);
  }
}

template <class From>
std::string numberText(From value) {
  if constexpr (std::is_floating_point_v<From>) {
    return text::shortest(static_cast<double>(value));
  } else {
    return std::to_string(value);
  }
}

template <class From>
[[noreturn]] void refuse(Loss loss, From value, std::size_t index, ArrayClass cls,
                         const std::string& operation) {
  const std::string what = "number " + std::to_string(index) + " (" + numberText(value) + ")";
  if (loss == Loss::fraction) {
    throwScriptingError(
        {"nexstore:nex", "IntegerExpected"},
        {{"Operation", operation}, {"Reason", what + " is not a whole number"}});
  }
  throwScriptingError(
      {"nexstore:nex", "InvalidData"},
      {{"Operation", operation},
       {"Reason", what + " cannot be kept as " + std::string(host::arrayClassName(cls)) +
                      " without a loss; numbers are counted from 0"}});
}

template <class To>
HostArray convertedTo(const HostArray& numbers, const std::string& operation) {
  using Out = std::conditional_t<std::is_same_v<To, bool>, std::uint8_t, To>;
  constexpr ArrayClass kClass = host::arrayClassOf<To>();
  std::vector<Out> out(numbers.size());
  numbers.visitNumbers([&](const auto& values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
      const Loss loss = convert<To>(values[i], out[i]);
      if (loss != Loss::none) refuse(loss, values[i], i, kClass, operation);
    }
  });
  const std::size_t count = out.size();
  return HostArray::owning(kClass, {count, 1}, std::move(out)).withRank(1);
}

}  // namespace

HostArray converted(const HostArray& numbers, ArrayClass cls, const std::string& operation) {
  if (numbers.arrayClass() == cls) return numbers;
  switch (cls) {
    case ArrayClass::real64:
      return convertedTo<double>(numbers, operation);
    case ArrayClass::real32:
      return convertedTo<float>(numbers, operation);
    case ArrayClass::int8:
      return convertedTo<std::int8_t>(numbers, operation);
    case ArrayClass::uint8:
      return convertedTo<std::uint8_t>(numbers, operation);
    case ArrayClass::int16:
      return convertedTo<std::int16_t>(numbers, operation);
    case ArrayClass::uint16:
      return convertedTo<std::uint16_t>(numbers, operation);
    case ArrayClass::int32:
      return convertedTo<std::int32_t>(numbers, operation);
    case ArrayClass::uint32:
      return convertedTo<std::uint32_t>(numbers, operation);
    case ArrayClass::int64:
      return convertedTo<std::int64_t>(numbers, operation);
    case ArrayClass::uint64:
      return convertedTo<std::uint64_t>(numbers, operation);
    default:
      return convertedTo<bool>(numbers, operation);
  }
}

HostArray wholeNumbers(const HostArray& array, const std::string& operation) {
  if (!array.isNumeric() || array.isComplex()) {
    throwScriptingError({"nexstore:nex", "IntegerExpected"},
                        {{"Operation", operation},
                         {"Reason", "whole numbers are needed, not " + array.describe()}});
  }
  return converted(array, ArrayClass::int64, operation);
}

}  // namespace vela::scripting
