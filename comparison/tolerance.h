// How far a value may be from the baseline's.
#pragma once

#include <algorithm>
#include <cmath>

#include "comparison/number.h"

namespace comparison {

struct Tolerance {
  double abs = 0;
  double rel = 0;
  bool equalityOnly = false;  ///< enumerations: equal or not

  /// 0 where only the same value passes.
  double of(double baseline) const {
    if (equalityOnly || !std::isfinite(baseline)) return 0;
    return rel > 0 ? std::max(abs, rel * std::fabs(baseline)) : abs;
  }
};

/// A tolerance above 0, widened by the rounding its inputs bring along.
template <class Value>
double withRounding(double tolerance, const Value& baseline, const Value& compareTo) {
  return tolerance + (inputUlp(baseline) + inputUlp(compareTo) + ulp(tolerance)) / 2;
}

}  // namespace comparison
