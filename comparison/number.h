// Arithmetic on samples: doubles, and 64-bit integers that a double cannot hold.
#pragma once

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

/// A double, or an integer carried exactly.
class WideNumber {
 public:
  WideNumber() = default;
  explicit WideNumber(double value) : real_(value) {}
  explicit WideNumber(std::int64_t value) : whole_(value), isWhole_(true) {}
  explicit WideNumber(std::uint64_t value) : whole_(value), isWhole_(true) {}

  bool isWhole() const { return isWhole_; }
  Int128 whole() const { return whole_; }
  double real() const { return isWhole_ ? static_cast<double>(whole_) : real_; }

 private:
  Int128 whole_ = 0;
  double real_ = 0;
  bool isWhole_ = false;
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

/// Half the sum of these is the rounding that decimal inputs bring along.
inline double inputUlp(double value) {
  return ulp(value);
}
inline double inputUlp(const WideNumber& value) {
  return value.isWhole() ? 0 : ulp(value.real());
}

/// The point at `fraction` of the way from `from` to `to`.
template <class Value>
Value interpolate(const Value& from, const Value& to, double fraction) {
  if (difference(from, to) == 0) return from;
  return Value(std::lerp(toDouble(from), toDouble(to), fraction));
}

}  // namespace comparison
