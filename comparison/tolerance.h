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

  /// A tolerance above 0, widened by the rounding in it and in values of these precisions.
  double withRounding(double tolerance, double baselinePrecision,
                      double compareToPrecision) const {
    const double rounding = (1 + rel) * baselinePrecision + compareToPrecision;
    return tolerance + (rounding / 2 + ulp(tolerance));
  }
};

}  // namespace comparison
