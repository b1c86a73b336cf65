// Finds the steps of a plot: the runs of points between two starts of its scale.
#pragma once

#include <cstdint>
#include <vector>

#include "formats/reader.h"

namespace formats {

/// Points [firstRow, firstRow + rows) of a plot.
struct Step {
  std::uint64_t firstRow = 0;
  std::uint64_t rows = 0;
  double first = 0;
  double last = 0;
};

/// Takes the scale of a plot point by point.
///
/// A new step starts where the scale, having moved, jumps back to the value it started with; in
/// a plot declared as stepped, where it turns round at all. Equal neighbours stay in one step.
/// A swept quantity may also fall, or wander: then it is no axis, and when it wanders there are
/// no steps.
class StepFinder {
 public:
  /// kTurned: a scale that must rise fell without starting again.
  enum class Verdict { kGood, kNotFinite, kTurned };

  StepFinder(AxisKind kind, bool isDeclaredStepped)
      : kind_(kind), isDeclaredStepped_(isDeclaredStepped) {}

  Verdict add(double value);

  const std::vector<Step>& steps() const { return steps_; }
  /// Whether the scale never falls within a step, known when all points were added.
  bool ordersPoints() const { return !isFalling_ && !isMixed_; }

 private:
  bool mustRise() const { return kind_ == AxisKind::kTime || kind_ == AxisKind::kFrequency; }
  /// Takes a value that goes against the direction of the scale; false if that must not be.
  bool turn(double value);
  void startStep(double value);

  AxisKind kind_;
  bool isDeclaredStepped_;
  bool isDirectionKnown_ = false;
  bool isFalling_ = false;
  bool isMixed_ = false;  ///< the scale goes up and down
  std::uint64_t rows_ = 0;
  std::vector<Step> steps_;
};

}  // namespace formats
