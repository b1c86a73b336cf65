// The band of baseline values around a time that moves forward.
#pragma once

#include <array>
#include <deque>
#include <limits>
#include <map>
#include <optional>

#include "comparison/tolerance.h"
#include "comparison/track.h"

namespace comparison {

/// The values a track takes in [t - d', t + d'], for t that never decreases: the highest and
/// lowest reach of the finite ones, kept in monotone deques, so that a sweep costs O(n), and
/// which others there are.
template <class Value>
class Window {
 public:
  /// \param halfWidth  seconds, above 0
  Window(Track<Value>& track, Interpolation interpolation, const Tolerance& tolerance,
         double halfWidth)
      : track_(track),
        interpolation_(interpolation),
        tolerance_(tolerance),
        halfWidth_(halfWidth) {
    track_.keepBehind(halfWidth);
  }

  void moveTo(double time) {
    const double width = halfWidth_ + 4 * ulp(std::fabs(time) + halfWidth_);
    begin_ = time - width;
    end_ = time + width;
    next_ = std::max(next_, track_.begin());
    trailing_ = std::max(trailing_, track_.begin());
    admitEvents();
    dropEvents();
    high_ = highest_.empty() ? std::nullopt : std::optional(highest_.front());
    low_ = lowest_.empty() ? std::nullopt : std::optional(lowest_.front());
    for (std::size_t kind = 0; kind < kNotFinite; ++kind)
      hasNotFinite_[kind] = newestNotFinite_[kind] >= begin_;
    admitEnds();
  }

  /// Whether the value lies within the band.
  bool admits(const Reading<Value>& reading) const {
    const Value& value = reading.value;
    const double number = toDouble(value);
    if (!std::isfinite(number)) return hasNotFinite_[kindOf(number)];
    if (!high_) return false;
    if (tolerance_.equalityOnly) return isTaken(value);
    return difference(value, high_->value) <= allowance(*high_, reading) &&
           difference(low_->value, value) <= allowance(*low_, reading);
  }

  /// How far from the row's baseline value the band reaches on the side of `d`; at least
  /// `tolerance`.
  double reach(const Value& baseline, double d, double tolerance) const {
    if (!high_ || !isFinite(baseline)) return tolerance;
    const Candidate& end = d < 0 ? *low_ : *high_;
    const double way =
        d < 0 ? difference(baseline, end.value) : difference(end.value, baseline);
    return std::max(tolerance, way + end.tolerance);
  }

 private:
  struct Candidate {
    Value value;
    double precision;
    double tolerance;
    double time;
  };
  struct Less {
    bool operator()(const Value& a, const Value& b) const { return difference(a, b) < 0; }
  };

  static constexpr std::size_t kNotFinite = 3;
  /// Which of NaN, minus and plus infinity it is.
  static std::size_t kindOf(double notFinite) {
    return std::isnan(notFinite) ? 0 : notFinite < 0 ? 1 : 2;
  }
  static bool isFinite(const Value& value) { return std::isfinite(toDouble(value)); }

  /// Values first: a sum with its tolerance may hide integers that a double cannot tell apart.
  static bool reachesHigher(const Candidate& a, const Candidate& b) {
    return reachesFurther(difference(a.value, b.value), a, b);
  }
  static bool reachesLower(const Candidate& a, const Candidate& b) {
    return reachesFurther(difference(b.value, a.value), a, b);
  }
  static bool reachesFurther(double lead, const Candidate& a, const Candidate& b) {
    // Equal tolerances may be infinite.
    return (a.tolerance == b.tolerance ? lead : lead + (a.tolerance - b.tolerance)) > 0;
  }
  double allowance(const Candidate& candidate, const Reading<Value>& reading) const {
    if (candidate.tolerance == 0) return 0;
    return tolerance_.withRounding(candidate.tolerance, candidate.precision, reading.precision);
  }

  Candidate candidateOf(const Reading<Value>& reading, double time) const {
    return {reading.value, reading.precision, tolerance_.of(toDouble(reading.value)), time};
  }

  void admitEvents() {
    for (; track_.reaches(next_) && track_.at(next_).time <= end_; ++next_) {
      const Event<Value>& event = track_.at(next_);
      admit(track_.read(event.left), event.time);
      if (event.count > 1) admit(track_.read(event.right), event.time);
    }
  }

  void admit(const Reading<Value>& reading, double time) {
    if (!isFinite(reading.value)) {
      newestNotFinite_[kindOf(toDouble(reading.value))] = time;
      return;
    }
    if (tolerance_.equalityOnly) newestTime_[reading.value] = time;
    const Candidate candidate = candidateOf(reading, time);
    while (!highest_.empty() && !reachesHigher(highest_.back(), candidate)) highest_.pop_back();
    highest_.push_back(candidate);
    while (!lowest_.empty() && !reachesLower(lowest_.back(), candidate)) lowest_.pop_back();
    lowest_.push_back(candidate);
  }

  void dropEvents() {
    while (!highest_.empty() && highest_.front().time < begin_) highest_.pop_front();
    while (!lowest_.empty() && lowest_.front().time < begin_) lowest_.pop_front();
  }

  void admitEnds() {
    while (track_.reaches(trailing_ + 1) && track_.at(trailing_ + 1).time <= begin_)
      ++trailing_;
    held_.reset();
    if (track_.at(trailing_).time <= begin_) {
      const Reading<Value> held = valueBehind(trailing_, begin_);
      held_ = held.value;
      admitEnd(held);
    }
    if (next_ > 0 && track_.reaches(next_)) admitEnd(valueBehind(next_ - 1, end_));
  }

  Reading<Value> valueBehind(std::uint64_t number, double time) {
    const Event<Value>& event = track_.at(number);
    if (interpolation_ == Interpolation::linear &&
        (event.time == time || !track_.reaches(number + 1)))
      return track_.read(event.right);
    return track_.behind(number, time);
  }

  void admitEnd(const Reading<Value>& reading) {
    if (!isFinite(reading.value)) {
      hasNotFinite_[kindOf(toDouble(reading.value))] = true;
      return;
    }
    const Candidate candidate = candidateOf(reading, 0);
    if (!high_ || reachesHigher(candidate, *high_)) high_ = candidate;
    if (!low_ || reachesLower(candidate, *low_)) low_ = candidate;
  }

  bool isTaken(const Value& value) const {
    if (held_ && difference(value, *held_) == 0) return true;
    const auto newest = newestTime_.find(value);
    return newest != newestTime_.end() && newest->second >= begin_;
  }

  Track<Value>& track_;
  Interpolation interpolation_;
  Tolerance tolerance_;
  double halfWidth_;
  double begin_ = 0;
  double end_ = 0;
  std::uint64_t next_ = 0;      ///< the first event behind the window
  std::uint64_t trailing_ = 0;  ///< the last event not inside it, where there is one
  std::deque<Candidate> highest_;
  std::deque<Candidate> lowest_;
  static constexpr double kNever = -std::numeric_limits<double>::infinity();
  std::array<double, kNotFinite> newestNotFinite_ = {kNever, kNever, kNever};
  std::map<Value, double, Less> newestTime_;  ///< of each value of an enumeration
  std::optional<Candidate> high_;
  std::optional<Candidate> low_;
  std::optional<Value> held_;  ///< the value at the window's begin
  std::array<bool, kNotFinite> hasNotFinite_ = {};
};

}  // namespace comparison
