// A series as events, with a head that moves along them.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "comparison/samplereader.h"

namespace comparison {

/// The samples of one time.
template <class Value>
struct Event {
  double time = 0;
  Value left{};   ///< the first value
  Value right{};  ///< the last value
  std::size_t count = 0;
};

/// The events of a series around a head. Events are numbered from 0 and read as they are asked
/// for; kept are those from two in front of the head, and what keepBehind says. References to
/// events are void as soon as the track moves or loads.
template <class Value>
class Track {
 public:
  Track(const Series& series, const std::string& name)
      : samples_(series, name),
        type_(series.type),
        interpolation_(series.effectiveInterpolation()) {}

  /// Whether there is an event of that number; reads as far as that takes.
  bool reaches(std::uint64_t number) { return number < end_ || loadUpTo(number); }
  const Event<Value>& at(std::uint64_t number) const { return ring_[number & mask()]; }

  std::uint64_t head() const { return head_; }
  bool hasHead() { return reaches(head_); }
  const Event<Value>& headEvent() const { return at(head_); }
  /// Whether the head has passed an event.
  bool hasPassed() const { return head_ > 0; }
  void pass() {
    ++head_;
    forget(head_ < 2 ? 0 : head_ - 2);
  }
  /// Keeps, besides, the events of so many seconds in front of the newest one passed, and the
  /// one before those.
  void keepBehind(double seconds) { secondsKept_ = seconds; }
  /// The first event that is kept.
  std::uint64_t begin() const { return begin_; }

  /// The smaller of the gaps to the neighbours of an event at hand; infinite without any.
  double gapAround(std::uint64_t number) {
    double gap = std::numeric_limits<double>::infinity();
    if (number > 0) gap = at(number).time - at(number - 1).time;
    if (reaches(number + 1)) gap = std::min(gap, at(number + 1).time - at(number).time);
    return gap;
  }

  /// The value arriving at, and the one leaving, an event.
  Reading<Value> leftOf(std::uint64_t number) const {
    const Event<Value>& event = at(number);
    const bool holdsTheOneBefore =
        interpolation_ == Interpolation::zeroOrderHold && event.count == 1 && number > 0;
    return read(holdsTheOneBefore ? at(number - 1).right : event.left);
  }
  Reading<Value> rightOf(std::uint64_t number) const { return read(at(number).right); }

  /// The value at a time between the event and the one behind it, which is at hand.
  Reading<Value> behind(std::uint64_t number, double time) const {
    const Event<Value>& from = at(number);
    if (interpolation_ == Interpolation::zeroOrderHold) return read(from.right);
    const Event<Value>& to = at(number + 1);
    return interpolate(read(from.right), read(to.left), fractionOf(from.time, to.time, time));
  }

  /// Value `index` of those an event has.
  Reading<Value> valueOf(std::uint64_t number, std::size_t index) const {
    const Event<Value>& event = at(number);
    if (index == 0) return read(event.left);
    if (index + 1 == event.count) return read(event.right);
    return read(inner_.at(number)[index - 1]);
  }
  /// One of its samples, with the precision of their type.
  Reading<Value> read(const Value& sample) const {
    return {sample, precisionOf(type_, toDouble(sample))};
  }

  /// Reads the rest, without keeping it.
  void drain() {
    while (hasHead()) pass();
  }
  /// Of what has been read.
  std::size_t sampleCount() const { return sampleCount_; }
  double firstTime() const { return firstTime_; }
  double lastTime() const { return lastTime_; }
  /// Between the newest event and the one in front of it; infinite without.
  double lastGap() const { return lastGap_; }

 private:
  static double fractionOf(double from, double to, double time) {
    const double length = to - from;
    if (std::isinf(length)) return (time / 2 - from / 2) / (to / 2 - from / 2);
    return (time - from) / length;
  }

  std::uint64_t mask() const { return ring_.size() - 1; }

  void forget(std::uint64_t end) {
    if (secondsKept_ > 0) {
      const double newest = at(head_ - 1).time;
      const double begin = newest - secondsKept_ - 16 * ulp(std::fabs(newest) + secondsKept_);
      while (begin_ < end && at(begin_ + 1).time <= begin) ++begin_;
    } else {
      begin_ = end;
    }
    if (!inner_.empty()) inner_.erase(inner_.begin(), inner_.lower_bound(begin_));
  }

  bool loadUpTo(std::uint64_t number) {
    while (number >= end_)
      if (!load()) return false;
    return true;
  }

  bool load() {
    if (samples_.atEnd()) return false;
    if (end_ - begin_ == ring_.size()) grow();
    Event<Value>& event = ring_[end_ & mask()];
    event.time = samples_.time();
    event.left = samples_.value();
    event.count = 1;
    if (samples_.isAlone()) {
      event.right = event.left;
      samples_.move();
    } else {
      readJump(event);
    }
    note(event);
    ++end_;
    return true;
  }

  void readJump(Event<Value>& event) {
    std::vector<Value> values;
    do {
      values.push_back(samples_.value());
      samples_.move();
    } while (!samples_.atEnd() && samples_.time() == event.time);
    event.right = values.back();
    event.count = values.size();
    if (values.size() > 2) inner_[end_].assign(values.begin() + 1, values.end() - 1);
  }

  void note(const Event<Value>& event) {
    if (end_ == 0)
      firstTime_ = event.time;
    else
      lastGap_ = event.time - lastTime_;
    lastTime_ = event.time;
    sampleCount_ += event.count;
  }

  void grow() {
    std::vector<Event<Value>> larger(ring_.size() * 2);
    for (std::uint64_t number = begin_; number < end_; ++number)
      larger[number & (larger.size() - 1)] = at(number);
    ring_ = std::move(larger);
  }

  SampleReader<Value> samples_;
  ScalarType type_;
  Interpolation interpolation_;
  std::vector<Event<Value>> ring_ = std::vector<Event<Value>>(8);  ///< a power of two
  std::uint64_t begin_ = 0;
  std::uint64_t end_ = 0;
  std::uint64_t head_ = 0;
  double secondsKept_ = 0;
  std::map<std::uint64_t, std::vector<Value>> inner_;  ///< values between the first and last
  std::size_t sampleCount_ = 0;
  double firstTime_ = 0;
  double lastTime_ = 0;
  double lastGap_ = std::numeric_limits<double>::infinity();
};

/// How far apart two times may be and still be one, with gaps of at least `gap` around them.
inline double matchDistance(double a, double b, double gap, double timeMatch) {
  const double rounding = 4 * ulp(std::max(std::fabs(a), std::fabs(b)));
  return std::isinf(gap) ? rounding : std::max(rounding, timeMatch * gap);
}

}  // namespace comparison
