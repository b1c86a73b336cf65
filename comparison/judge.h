// Decides about one pair of values: difference, tolerance, passed or not.
#pragma once

#include <cmath>
#include <optional>

#include "comparison/number.h"
#include "comparison/tally.h"
#include "comparison/window.h"

namespace comparison {

/// The rules are those in compare.h.
template <class Value>
class Judge {
 public:
  /// \param baseline  the track the rows come from; with a time tolerance it is read ahead
  Judge(const Tolerance& tolerance, double timeTol, Track<Value>& baseline,
        Interpolation interpolation, Tally& tally)
      : tolerance_(tolerance), tally_(tally) {
    if (timeTol > 0) window_.emplace(baseline, interpolation, tolerance, timeTol);
  }

  /// Goes to the time of the next rows; times never decrease.
  void moveTo(double time) {
    time_ = time;
    if (window_) window_->moveTo(time);
  }

  void judge(const Reading<Value>& baseline, const Reading<Value>& compareTo) {
    const double d = difference(compareTo.value, baseline.value);
    const double tolerance = tolerance_.of(toDouble(baseline.value));
    bool passed = isWithin(baseline, compareTo, d, tolerance);
    double allowed = tolerance;
    if (window_) {
      passed = passed || window_->admits(compareTo);
      const bool onlyEqualPasses = tolerance_.equalityOnly || std::isinf(d);
      allowed = onlyEqualPasses && passed ? std::fabs(d)
                : tolerance_.equalityOnly ? 0
                                          : window_->reach(baseline.value, d, tolerance);
    }
    tally_.add(time_, d, allowed, passed);
  }

 private:
  bool isWithin(const Reading<Value>& baseline, const Reading<Value>& compareTo, double d,
                double tolerance) const {
    if (d == 0) return true;
    return tolerance > 0 && std::isfinite(toDouble(compareTo.value)) &&
           std::fabs(d) <=
               tolerance_.withRounding(tolerance, baseline.precision, compareTo.precision);
  }

  Tolerance tolerance_;
  Tally& tally_;
  std::optional<Window<Value>> window_;
  double time_ = 0;
};

}  // namespace comparison
