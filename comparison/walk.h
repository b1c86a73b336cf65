// Goes through the times of two tracks together.
#pragma once

#include <cmath>

#include "comparison/track.h"

namespace comparison {

/// Where a series stands at a time: at an event, or between it and the next.
struct Place {
  std::uint64_t number = 0;
  bool isEvent = false;
};

/// Whether the two events ahead are at one time, and neither leaves the other to a successor.
template <class Value>
bool headsMatch(Track<Value>& baseline, Track<Value>& compareTo, double timeMatch) {
  const double tb = baseline.headEvent().time;
  const double tc = compareTo.headEvent().time;
  if (tb == tc) return true;
  const double distance = std::fabs(tb - tc);
  // Most times are told apart by the gaps of one side.
  double gap = baseline.gapAround(baseline.head());
  if (distance > matchDistance(tb, tc, gap, timeMatch) && !std::isinf(gap)) return false;
  gap = std::min(gap, compareTo.gapAround(compareTo.head()));
  if (distance > matchDistance(tb, tc, gap, timeMatch)) return false;
  Track<Value>& earlier = tb < tc ? baseline : compareTo;
  const double later = std::max(tb, tc);
  if (!earlier.reaches(earlier.head() + 1)) return true;
  return std::fabs(earlier.at(earlier.head() + 1).time - later) >= distance;
}

/// Visits, in order, every time inside the span of both series at which one has an event:
/// `visit(time, placeOfBaseline, placeOfCompareTo)`.
template <class Value, class Visit>
void walkTogether(Track<Value>& baseline, Track<Value>& compareTo, double timeMatch,
                  const Visit& visit) {
  const auto skipOrVisit = [](Track<Value>& alone, Track<Value>& other,
                              const auto& visitAlone) {
    if (other.hasPassed())
      visitAlone(alone.headEvent().time, Place{alone.head(), true},
                 Place{other.head() - 1, false});
    alone.pass();
  };
  while (baseline.hasHead() && compareTo.hasHead()) {
    const double tb = baseline.headEvent().time;
    const double tc = compareTo.headEvent().time;
    if (headsMatch(baseline, compareTo, timeMatch)) {
      visit(tb, Place{baseline.head(), true}, Place{compareTo.head(), true});
      baseline.pass();
      compareTo.pass();
    } else if (tb < tc) {
      skipOrVisit(baseline, compareTo, visit);
    } else {
      skipOrVisit(compareTo, baseline,
                  [&](double time, Place c, Place b) { visit(time, b, c); });
    }
  }
}

/// Moves the track to a time inside its span, or matching its end, and says where that is.
/// \param step  the gap between the times asked for
template <class Value>
Place moveTo(Track<Value>& track, double time, double step, double timeMatch) {
  while (track.hasHead() && track.headEvent().time <= time) track.pass();
  const std::uint64_t head = track.head();
  if (!track.hasPassed()) return {head, true};
  if (!track.hasHead()) return {head - 1, true};
  const bool headIsNearer = track.headEvent().time - time < time - track.at(head - 1).time;
  const std::uint64_t nearest = headIsNearer ? head : head - 1;
  const double eventTime = track.at(nearest).time;
  const double gap = std::min(step, track.gapAround(nearest));
  if (std::fabs(eventTime - time) <= matchDistance(eventTime, time, gap, timeMatch))
    return {nearest, true};
  return {head - 1, false};
}

/// Of equal steps through the common time of two series.
struct Grid {
  double first = 0;
  double last = 0;
  std::uint64_t steps = 0;
  double step = std::numeric_limits<double>::infinity();
  bool stepIsGiven = false;

  double time(std::uint64_t index) const {
    if (stepIsGiven) return std::min(first + static_cast<double>(index) * step, last);
    if (steps == 0) return first;
    if (index == steps) return last;
    return pointBetween(first, last, static_cast<double>(index) / static_cast<double>(steps));
  }
};

}  // namespace comparison
