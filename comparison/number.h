// Arithmetic on samples: doubles, and 64-bit integers that a double cannot hold.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace comparison {

__extension__ using Int128 = __int128;

/// The distance from |x| to the next double away from 0; 0 when x is not finite.
inline double ulp(double x) {
  constexpr std::uint64_t kMantissaBits = 52;
  const std::uint64_t exponent = std::bit_cast<std::uint64_t>(std::fabs(x)) >> kMantissaBits;
  if (exponent == 0x7FF) return 0;
  if (exponent > kMantissaBits)
    return std::bit_cast<double>((exponent - kMantissaBits) << kMantissaBits);
  return std::bit_cast<double>(std::uint64_t{1} << (exponent == 0 ? 0 : exponent - 1));
}

/// A double; or an integer carried exactly, with a fraction where it lies between two samples.
class WideNumber {
 public:
  WideNumber() = default;
  explicit WideNumber(double value) : real_(value) {}
  explicit WideNumber(std::int64_t value) : whole_(value), isWhole_(true) {}
  explicit WideNumber(std::uint64_t value) : whole_(value), isWhole_(true) {}
  /// \param fraction  of either sign, its magnitude below 1
  WideNumber(Int128 whole, double fraction) : whole_(whole), real_(fraction), isWhole_(true) {}

  bool isWhole() const { return isWhole_; }
  Int128 whole() const { return whole_; }
  /// Of a whole number.
  double fraction() const { return real_; }
  double real() const { return isWhole_ ? static_cast<double>(whole_) + real_ : real_; }

 private:
  Int128 whole_ = 0;
  double real_ = 0;
  bool isWhole_ = false;
};

/// A value and its precision: the step to the next one its data can tell from it. Half of that
/// may be rounding.
template <class Value>
struct Reading {
  Value value{};
  double precision = 0;
};

inline double toDouble(double value) {
  return value;
}
inline double toDouble(const WideNumber& value) {
  return value.real();
}

/// minuend - subtrahend, rounded once; 0 for two NaN and for equal infinities.
inline double difference(double minuend, double subtrahend) {
  if (minuend == subtrahend || (std::isnan(minuend) && std::isnan(subtrahend))) return 0;
  return minuend - subtrahend;
}
double difference(const WideNumber& minuend, const WideNumber& subtrahend);

/// The rounding in a number that was calculated.
inline double calculatedUlp(double value) {
  return ulp(value);
}
inline double calculatedUlp(const WideNumber& value) {
  return value.isWhole() ? 0 : ulp(value.real());
}

/// The point at `fraction`, 0 to 1, of the way from one finite number to another; never beyond
/// either.
inline double pointBetween(double from, double to, double fraction) {
  const double length = to - from;
  // Ends so far apart that the length overflows have opposite signs.
  const double point =
      std::isfinite(length) ? from + fraction * length : (1 - fraction) * from + fraction * to;
  return std::clamp(point, std::min(from, to), std::max(from, to));
}
/// Beyond 2^53, where a double has no room for it, the fraction is kept beside a whole number.
WideNumber pointBetween(const WideNumber& from, const WideNumber& to, double fraction);

/// The value between two samples, by the rule in compare.h.
template <class Value>
Reading<Value> interpolate(const Reading<Value>& from, const Reading<Value>& to,
                           double fraction) {
  const double length = difference(to.value, from.value);
  if (length == 0) return from;
  const double first = toDouble(from.value), last = toDouble(to.value);
  // The sum is the infinite one of the ends, NaN beside NaN and for two infinities.
  if (!std::isfinite(first) || !std::isfinite(last)) return {Value(first + last)};
  const Value value = pointBetween(from.value, to.value, fraction);
  return {value, std::max({from.precision, to.precision, ulp(length), calculatedUlp(value)})};
}

}  // namespace comparison
