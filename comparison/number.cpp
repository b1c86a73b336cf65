#include "comparison/number.h"

namespace comparison {
namespace {

/// real - whole, rounded once.
double realLessWhole(double real, Int128 whole) {
  // Up here a whole number of 64 bits is less than half the distance between doubles.
  constexpr double kBeyondAllIntegers = 0x1p126;
  if (!(std::fabs(real) < kBeyondAllIntegers)) return real;  // NaN too
  const double integral = std::trunc(real);
  const double fraction = real - integral;
  const Int128 integralDifference = static_cast<Int128>(integral) - whole;
  if (fraction == 0) return static_cast<double>(integralDifference);
  constexpr Int128 kLastExact = Int128{1} << 53;
  if (integralDifference <= kLastExact && integralDifference >= -kLastExact)
    return static_cast<double>(integralDifference) + fraction;
  // Behind it doubles are at least two apart, so that any fraction rounds like a half.
  return static_cast<double>(2 * integralDifference + (fraction > 0 ? 1 : -1)) / 2;
}

}  // namespace

double difference(const WideNumber& minuend, const WideNumber& subtrahend) {
  if (minuend.isWhole() && subtrahend.isWhole())
    return static_cast<double>(minuend.whole() - subtrahend.whole()) +
           (minuend.fraction() - subtrahend.fraction());
  if (subtrahend.isWhole())
    return realLessWhole(minuend.real(), subtrahend.whole()) - subtrahend.fraction();
  if (minuend.isWhole())
    return minuend.fraction() - realLessWhole(subtrahend.real(), minuend.whole());
  return difference(minuend.real(), subtrahend.real());
}

WideNumber pointBetween(const WideNumber& from, const WideNumber& to, double fraction) {
  if (!from.isWhole() || !to.isWhole())
    return WideNumber(pointBetween(from.real(), to.real(), fraction));
  const Int128 length = to.whole() - from.whole();
  const double way = fraction * static_cast<double>(length);
  const auto wholeWay = static_cast<Int128>(way);
  // The length as a double may be a little longer.
  if (length < 0 ? wholeWay <= length : wholeWay >= length) return to;
  const Int128 whole = from.whole() + wholeWay;
  const double rest = way - static_cast<double>(wholeWay);
  constexpr Int128 kLastExact = Int128{1} << 53;
  if (whole < kLastExact && whole > -kLastExact)
    return WideNumber(static_cast<double>(whole) + rest);
  return {whole, rest};
}

}  // namespace comparison
