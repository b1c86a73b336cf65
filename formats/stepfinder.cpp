#include "formats/stepfinder.h"

#include <cmath>

namespace formats {

StepFinder::Verdict StepFinder::add(double value) {
  if (!std::isfinite(value)) return Verdict::kNotFinite;
  if (steps_.empty()) {
    startStep(value);
  } else if (const double previous = steps_.back().last; value != previous && !isMixed_) {
    const bool falls = value < previous;
    if (!isDirectionKnown_) {
      isDirectionKnown_ = true;
      isFalling_ = falls && !mustRise();
    }
    if (falls != isFalling_ && !turn(value)) return Verdict::kTurned;
  }
  steps_.back().last = value;
  ++steps_.back().rows;
  ++rows_;
  return Verdict::kGood;
}

bool StepFinder::turn(double value) {
  if (value == steps_.back().first || isDeclaredStepped_) {
    startStep(value);
    return true;
  }
  if (mustRise()) return false;
  isMixed_ = true;
  steps_ = {{0, rows_, steps_.front().first, value}};
  return true;
}

void StepFinder::startStep(double value) {
  steps_.push_back({rows_, 0, value, value});
}

}  // namespace formats
