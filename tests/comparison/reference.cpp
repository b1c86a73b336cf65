#include "reference.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <optional>

namespace comparison::test {
namespace {

using Kind = Exact::Kind;
using Verdict = ReferenceRow::Verdict;

Rational magnitude(const Rational& value) {
  return value < 0 ? Rational(-value) : value;
}

double ulpOf(double x) {
  x = std::fabs(x);
  return std::isfinite(x) ? std::max(std::nextafter(x, HUGE_VAL) - x,
                                     std::numeric_limits<double>::denorm_min())
                          : 0;
}

/// To the nearest double: that of a generous number of candidates which is the nearest, the
/// even one of two.
double rounded(const Rational& value) {
  const double guess = value.convert_to<double>();
  double best = guess;
  for (double candidate : {std::nextafter(guess, -HUGE_VAL), std::nextafter(guess, HUGE_VAL)}) {
    const Rational gain =
        magnitude(Rational(best) - value) - magnitude(Rational(candidate) - value);
    const bool isEven = (std::bit_cast<std::uint64_t>(candidate) & 1) == 0;
    if (gain > 0 || (gain == 0 && isEven)) best = candidate;
  }
  return best;
}

Exact nan() {
  return {Kind::nan, 0, 0, 0, false};
}

Exact exactOf(double value, double precision = 0) {
  if (std::isnan(value)) return nan();
  if (std::isinf(value))
    return {value > 0 ? Kind::plusInfinity : Kind::minusInfinity, 0, 0, 0, false};
  return {Kind::finite, Rational(value), 0, precision, false};
}

Exact exactOf(const Samples& samples, std::size_t index) {
  const Element& element = samples.values[index];
  if (samples.type == ScalarType::int64)
    return {Kind::finite, Rational(as<std::int64_t>(element)), 0, 0, true};
  if (samples.type == ScalarType::uint64)
    return {Kind::finite, Rational(as<std::uint64_t>(element)), 0, 0, true};
  if (samples.type == ScalarType::boolean)
    return exactOf(as<std::uint8_t>(element) != 0 ? 1 : 0);
  if (samples.type == ScalarType::single) {
    const float value = std::fabs(as<float>(element));
    return exactOf(as<float>(element), std::nextafter(value, HUGE_VALF) - value);
  }
  const double value = as<double>(element);
  return exactOf(value, samples.type == ScalarType::real ? ulpOf(value) : 0);
}

bool isSame(const Exact& a, const Exact& b) {
  return a.kind == b.kind && (!a.isFinite() || a.value == b.value);
}

double asDouble(const Exact& value) {
  switch (value.kind) {
    case Kind::nan:
      return NAN;
    case Kind::plusInfinity:
      return HUGE_VAL;
    case Kind::minusInfinity:
      return -HUGE_VAL;
    case Kind::finite:
      break;
  }
  return rounded(value.value);
}

/// Between different ends of which at least one is not finite.
Exact leadingToNowhere(const Exact& from, const Exact& to) {
  if (from.isFinite() && to.kind != Kind::nan) return to;
  if (to.isFinite() && from.kind != Kind::nan) return from;
  return nan();
}

struct PlainEvent {
  double time = 0;
  std::vector<Exact> values;
};

struct Curve {
  std::vector<PlainEvent> events;
  bool isLinear = false;

  explicit Curve(const Samples& samples)
      : isLinear(samples.interpolation == Interpolation::linear && !samples.isEnumeration &&
                 samples.type != ScalarType::boolean) {
    for (std::size_t i = 0; i < samples.times.size(); ++i) {
      if (events.empty() || events.back().time != samples.times[i])
        events.push_back({samples.times[i], {}});
      events.back().values.push_back(exactOf(samples, i));
    }
  }

  /// Between event i and the next.
  Exact behind(std::size_t i, const Rational& time) const {
    const Exact& from = events[i].values.back();
    if (!isLinear) return from;
    const Exact& to = events[i + 1].values.front();
    if (isSame(from, to)) return from;
    const Rational fraction = (time - Rational(events[i].time)) /
                              (Rational(events[i + 1].time) - Rational(events[i].time));
    if (!from.isFinite() || !to.isFinite()) return leadingToNowhere(from, to);
    const Rational value = from.value + fraction * (to.value - from.value);
    const double valueUlp = ulpOf(rounded(value)),
                 lengthUlp = ulpOf(rounded(to.value - from.value));
    const bool isWhole = from.isWide && magnitude(value) >= Rational(0x1p53);
    const double precision =
        std::max({from.precision, to.precision, lengthUlp, isWhole ? 0. : valueUlp});
    const Rational largest = std::max(magnitude(from.value), magnitude(to.value));
    const double slack =
        from.isWide ? 8 * lengthUlp + (isWhole ? 0. : valueUlp) : 8 * ulpOf(rounded(largest));
    return {Kind::finite, value, slack, precision, from.isWide};
  }

  /// Inside the span, at no event's time or at one's.
  Exact at(const Rational& time) const {
    std::size_t i = 0;
    while (i + 1 < events.size() && Rational(events[i + 1].time) <= time) ++i;
    if (Rational(events[i].time) == time) return events[i].values.back();
    return behind(i, time);
  }

  Exact arriving(std::size_t i) const {
    if (!isLinear && events[i].values.size() == 1 && i > 0) return events[i - 1].values.back();
    return events[i].values.front();
  }

  double gapAround(std::size_t i) const {
    double gap = HUGE_VAL;
    if (i > 0) gap = events[i].time - events[i - 1].time;
    if (i + 1 < events.size()) gap = std::min(gap, events[i + 1].time - events[i].time);
    return gap;
  }
};

bool isMatch(double a, double b, double gap, double timeMatch) {
  const double limit = std::max(4 * ulpOf(std::max(std::fabs(a), std::fabs(b))),
                                std::isinf(gap) ? 0 : timeMatch * gap);
  return magnitude(Rational(a) - Rational(b)) <= Rational(limit);
}

/// A time both series cover, with the event each has there, where it has one.
struct Meeting {
  double time = 0;
  std::optional<std::size_t> b, c;
};

/// The partner of every baseline event, going through both lists in order.
std::vector<std::optional<std::size_t>> pairUp(const Curve& b, const Curve& c,
                                               double timeMatch) {
  std::vector<std::optional<std::size_t>> partners(b.events.size());
  const auto distance = [&](std::size_t i, std::size_t j) {
    return magnitude(Rational(b.events[i].time) - Rational(c.events[j].time));
  };
  std::size_t i = 0, j = 0;
  while (i < b.events.size() && j < c.events.size()) {
    const double tb = b.events[i].time, tc = c.events[j].time;
    const bool match = isMatch(tb, tc, std::min(b.gapAround(i), c.gapAround(j)), timeMatch);
    const bool nextOfB =
        tb < tc && i + 1 < b.events.size() && distance(i + 1, j) < distance(i, j);
    const bool nextOfC =
        tc < tb && j + 1 < c.events.size() && distance(i, j + 1) < distance(i, j);
    if (match && !nextOfB && !nextOfC)
      partners[i++] = j++;
    else if (tb < tc)
      ++i;
    else
      ++j;
  }
  return partners;
}

std::vector<Meeting> unionOf(const Curve& b, const Curve& c, double timeMatch) {
  std::vector<Meeting> meetings;
  const auto partners = pairUp(b, c, timeMatch);
  std::vector<bool> taken(c.events.size());
  const auto inside = [](double time, const Curve& other) {
    return other.events.front().time < time && time < other.events.back().time;
  };
  for (std::size_t i = 0; i < b.events.size(); ++i) {
    if (partners[i]) taken[*partners[i]] = true;
    if (partners[i] || inside(b.events[i].time, c))
      meetings.push_back({b.events[i].time, i, partners[i]});
  }
  for (std::size_t j = 0; j < c.events.size(); ++j)
    if (!taken[j] && inside(c.events[j].time, b))
      meetings.push_back({c.events[j].time, std::nullopt, j});
  std::sort(meetings.begin(), meetings.end(),
            [](const Meeting& x, const Meeting& y) { return x.time < y.time; });
  return meetings;
}

std::vector<double> gridOver(const std::vector<Meeting>& meetings, const Options& options,
                             double& step) {
  std::vector<double> times;
  if (meetings.empty()) return times;
  const double a = meetings.front().time, z = meetings.back().time;
  if (options.step) {
    step = *options.step;
    const double n = std::floor((z - a) / step + 1e-9);
    for (double k = 0; k <= n; ++k) times.push_back(std::min(a + k * step, z));
    return times;
  }
  const auto having = [&](auto Meeting::*side) {
    return static_cast<std::size_t>(
        std::count_if(meetings.begin(), meetings.end(),
                      [&](const Meeting& meeting) { return (meeting.*side).has_value(); }));
  };
  const std::size_t points =
      options.count.value_or(std::max(having(&Meeting::b), having(&Meeting::c)));
  if (a == z || points == 1) return {a};
  const double n = static_cast<double>(points - 1);
  step = (z - a) / n;
  for (double k = 0; k < n; ++k) times.push_back(a + (z - a) * (k / n));
  times.push_back(z);
  return times;
}

std::optional<std::size_t> eventAt(const Curve& curve, double time, double step,
                                   double timeMatch) {
  const auto distance = [&](const PlainEvent& event) {
    return magnitude(Rational(event.time) - Rational(time));
  };
  std::size_t nearest = 0;
  for (std::size_t i = 1; i < curve.events.size(); ++i)
    if (distance(curve.events[i]) < distance(curve.events[nearest])) nearest = i;
  const double eventTime = curve.events[nearest].time;
  const bool isOutside = time < curve.events.front().time || time > curve.events.back().time;
  if (isOutside ||
      isMatch(eventTime, time, std::min(step, curve.gapAround(nearest)), timeMatch))
    return nearest;
  return std::nullopt;
}

std::vector<Meeting> meetingsOf(const Curve& b, const Curve& c, const Options& options) {
  std::vector<Meeting> meetings = unionOf(b, c, options.timeMatch);
  if (options.alignment == Alignment::intersect)
    std::erase_if(meetings, [](const Meeting& meeting) { return !meeting.b || !meeting.c; });
  if (options.alignment != Alignment::uniform) return meetings;
  double step = HUGE_VAL;
  std::vector<Meeting> onGrid;
  for (double time : gridOver(meetings, options, step))
    onGrid.push_back({time, eventAt(b, time, step, options.timeMatch),
                      eventAt(c, time, step, options.timeMatch)});
  return onGrid;
}

Exact difference(const Exact& c, const Exact& b) {
  if (isSame(c, b)) return {};
  if (c.isFinite() && b.isFinite())
    return {Kind::finite, c.value - b.value, c.slack + b.slack, 0, false};
  return exactOf(asDouble(c) - asDouble(b));
}

Verdict limit(const Rational& value, const Rational& bound, const Rational& slack) {
  if (value <= bound - slack) return Verdict::passes;
  return value > bound + slack ? Verdict::fails : Verdict::either;
}

Verdict anyOf(Verdict a, Verdict b) {
  if (a == Verdict::passes || b == Verdict::passes) return Verdict::passes;
  return a == Verdict::either || b == Verdict::either ? Verdict::either : Verdict::fails;
}

Verdict allOf(Verdict a, Verdict b) {
  if (a == Verdict::fails || b == Verdict::fails) return Verdict::fails;
  return a == Verdict::either || b == Verdict::either ? Verdict::either : Verdict::passes;
}

class Rules {
 public:
  Rules(const Curve& b, const Options& options, bool equalityOnly)
      : b_(b), options_(options), equalityOnly_(equalityOnly) {}

  ReferenceRow row(double time, const Exact& b, const Exact& c) const {
    ReferenceRow row;
    row.time = time;
    row.baseline = b;
    row.compareTo = c;
    row.difference = difference(c, b);
    row.verdict = plain(b, c);
    row.tolerance = toleranceOf(b);
    if (options_.timeTol > 0) widen(row);
    return row;
  }

 private:
  struct Reach {
    Exact value;
    Exact tolerance;
    Rational end;
  };

  Exact toleranceOf(const Exact& b) const {
    if (equalityOnly_ || !b.isFinite()) return {};
    const Rational relative = Rational(options_.relTol) * magnitude(b.value);
    const Rational value = std::max(Rational(options_.absTol), relative);
    const Rational slack =
        relative > Rational(options_.absTol) || b.slack > 0
            ? Rational(options_.relTol) * b.slack + Rational(2 * ulpOf(rounded(value)))
            : Rational(0);
    return {Kind::finite, value, slack, 0, false};
  }

  Rational bound(const Exact& b, const Exact& c, const Exact& tolerance) const {
    if (tolerance.value == 0) return 0;
    const Rational inBaseline = Rational(b.precision) * (1 + Rational(options_.relTol));
    return tolerance.value + (inBaseline + Rational(c.precision)) / 2 +
           Rational(ulpOf(rounded(tolerance.value)));
  }

  /// How far rounding may move a difference against its bound.
  static Rational looseness(const Exact& b, const Exact& c, const Exact& tolerance,
                            const Rational& bound) {
    if (b.slack == 0 && c.slack == 0 && tolerance.value == 0) return 0;
    return b.slack + c.slack + tolerance.slack + Rational(4 * ulpOf(rounded(bound)));
  }

  Verdict plain(const Exact& b, const Exact& c) const {
    if (isSame(b, c) && b.slack + c.slack == 0) return Verdict::passes;
    if (!b.isFinite() || !c.isFinite()) return Verdict::fails;
    const Exact tolerance = toleranceOf(b);
    const Rational most = bound(b, c, tolerance);
    return limit(magnitude(c.value - b.value), most, looseness(b, c, tolerance, most));
  }

  std::vector<Exact> taken(double time) const {
    const double width = options_.timeTol + 4 * ulpOf(std::fabs(time) + options_.timeTol);
    const Rational begin = Rational(time - width), end = Rational(time + width);
    std::vector<Exact> values;
    for (const PlainEvent& event : b_.events) {
      const Rational eventTime(event.time);
      if (eventTime < begin || eventTime > end) continue;
      values.push_back(event.values.front());
      values.push_back(event.values.back());
    }
    for (const Rational& side : {begin, end})
      if (side >= Rational(b_.events.front().time) && side <= Rational(b_.events.back().time))
        values.push_back(b_.at(side));
    return values;
  }

  void widen(ReferenceRow& row) const {
    const std::vector<Exact> values = taken(row.time);
    row.verdict = anyOf(row.verdict, inBand(row.compareTo, values));
    const bool isInfinitelyFar = !row.difference.isFinite() && row.difference.kind != Kind::nan;
    if (row.verdict == Verdict::passes && (equalityOnly_ || isInfinitelyFar)) {
      row.tolerance = isInfinitelyFar ? exactOf(HUGE_VAL) : row.difference;
      row.tolerance.value = magnitude(row.tolerance.value);
    } else if (!equalityOnly_ && row.baseline.isFinite()) {
      row.tolerance = reach(row, values);
    }
  }

  Verdict inBand(const Exact& c, const std::vector<Exact>& values) const {
    if (equalityOnly_ || !c.isFinite())
      return std::any_of(values.begin(), values.end(),
                         [&](const Exact& value) { return isSame(value, c); })
                 ? Verdict::passes
                 : Verdict::fails;
    return allOf(below(c, values, 1), below(c, values, -1));
  }

  /// Whether c is not beyond the values on the side of `sign`.
  Verdict below(const Exact& c, const std::vector<Exact>& values, int sign) const {
    Verdict verdict = Verdict::fails;
    for (const Exact& value : values) {
      if (!value.isFinite()) continue;
      const Exact tolerance = toleranceOf(value);
      const Rational most = bound(value, c, tolerance);
      verdict = anyOf(verdict, limit(sign * (c.value - value.value), most,
                                     looseness(value, c, tolerance, most)));
    }
    return verdict;
  }

  Exact reach(const ReferenceRow& row, const std::vector<Exact>& values) const {
    const bool down = row.difference.kind == Kind::minusInfinity ||
                      (row.difference.isFinite() && row.difference.value < 0);
    Exact result = row.tolerance;
    for (const Exact& value : values)
      if (value.isFinite()) extend(result, row.baseline, value, down ? -1 : 1);
    return result;
  }

  void extend(Exact& reach, const Exact& from, const Exact& value, int sign) const {
    const Exact tolerance = toleranceOf(value);
    const Rational reached = sign * (value.value - from.value) + tolerance.value;
    if (reached > reach.value) reach.value = reached;
    const Rational slack = value.slack + from.slack + tolerance.slack +
                           Rational(4 * ulpOf(rounded(magnitude(reached)))) +
                           Rational(4 * ulpOf(asDouble(value)));
    reach.slack = std::max(reach.slack, slack);
  }

  const Curve& b_;
  const Options& options_;
  bool equalityOnly_;
};

}  // namespace

bool agrees(const Exact& exact, double computed) {
  switch (exact.kind) {
    case Kind::nan:
      return std::isnan(computed);
    case Kind::plusInfinity:
      return computed == HUGE_VAL;
    case Kind::minusInfinity:
      return computed == -HUGE_VAL;
    case Kind::finite:
      break;
  }
  if (!std::isfinite(computed)) return false;
  if (exact.slack == 0) return rounded(exact.value) == computed;
  const Rational slack = exact.slack + Rational(ulpOf(computed));
  return magnitude(Rational(computed) - exact.value) <= slack;
}

std::vector<ReferenceRow> referenceRows(const Samples& baseline, const Samples& compareTo,
                                        const Options& options) {
  const Curve b(baseline), c(compareTo);
  std::vector<ReferenceRow> rows;
  if (b.events.empty() || c.events.empty()) return rows;
  const Rules rules(b, options, baseline.isEnumeration || compareTo.isEnumeration);
  for (const Meeting& at : meetingsOf(b, c, options)) {
    const auto leaving = [&](const Curve& curve, std::optional<std::size_t> event) {
      return event ? curve.events[*event].values.back() : curve.at(Rational(at.time));
    };
    const auto arriving = [&](const Curve& curve, std::optional<std::size_t> event) {
      return event ? curve.arriving(*event) : curve.at(Rational(at.time));
    };
    const std::size_t countB = at.b ? b.events[*at.b].values.size() : 1;
    const std::size_t countC = at.c ? c.events[*at.c].values.size() : 1;
    if (countB > 1 && countB == countC) {
      for (std::size_t i = 0; i < countB; ++i)
        rows.push_back(
            rules.row(at.time, b.events[*at.b].values[i], c.events[*at.c].values[i]));
      continue;
    }
    if (countB > 1 || countC > 1)
      rows.push_back(rules.row(at.time, arriving(b, at.b), arriving(c, at.c)));
    rows.push_back(rules.row(at.time, leaving(b, at.b), leaving(c, at.c)));
  }
  return rows;
}

}  // namespace comparison::test
