#include "comparison/compare.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "comparison/judge.h"
#include "comparison/tally.h"
#include "comparison/track.h"
#include "comparison/walk.h"
#include "kodiag/message.h"
#include "text/numbers.h"

namespace comparison {
namespace {

/// The two tracks of one pass, the rows at their times.
template <class Value>
struct Pass {
  Pass(const Series& baselineSeries, const Series& compareToSeries)
      : baseline(baselineSeries, "baseline"), compareTo(compareToSeries, "compared signal") {}

  Track<Value> baseline;
  Track<Value> compareTo;
};

template <class Value>
Reading<Value> arriving(const Track<Value>& track, Place place, double time) {
  return place.isEvent ? track.leftOf(place.number) : track.behind(place.number, time);
}

template <class Value>
Reading<Value> leaving(const Track<Value>& track, Place place, double time) {
  return place.isEvent ? track.rightOf(place.number) : track.behind(place.number, time);
}

template <class Value>
void judgeAt(double time, const Track<Value>& b, Place placeB, const Track<Value>& c,
             Place placeC, Judge<Value>& judge) {
  judge.moveTo(time);
  const std::size_t countB = placeB.isEvent ? b.at(placeB.number).count : 1;
  const std::size_t countC = placeC.isEvent ? c.at(placeC.number).count : 1;
  if (countB == countC && countB > 1) {
    for (std::size_t i = 0; i < countB; ++i)
      judge.judge(b.valueOf(placeB.number, i), c.valueOf(placeC.number, i));
    return;
  }
  if (countB != countC) judge.judge(arriving(b, placeB, time), arriving(c, placeC, time));
  judge.judge(leaving(b, placeB, time), leaving(c, placeC, time));
}

/// The grid through the common time; none when there is no such time. Reads both tracks up to
/// its end.
template <class Value>
std::optional<Grid> layGrid(Pass<Value>& pass, const Options& options) {
  Grid grid;
  std::uint64_t events = 0, eventsB = 0, eventsC = 0;
  walkTogether(pass.baseline, pass.compareTo, options.timeMatch,
               [&](double time, Place b, Place c) {
                 if (events++ == 0) grid.first = time;
                 grid.last = time;
                 eventsB += b.isEvent;
                 eventsC += c.isEvent;
               });
  if (events == 0) return std::nullopt;
  if (options.step) {
    const double steps = std::floor((grid.last - grid.first) / *options.step + 1e-9);
    if (!(steps < static_cast<double>(kMaxUniformRows)))
      kodiag::raise({"nexstore:nex", "InvalidData"},
                    {{"Operation", "compare"},
                     {"Reason", "the step " + text::shortest(*options.step) +
                                    " makes more than 10^9 rows of the common time"}});
    grid.steps = static_cast<std::uint64_t>(steps);
    grid.step = *options.step;
    grid.stepIsGiven = true;
  } else {
    grid.steps = options.count.value_or(std::max(eventsB, eventsC)) - 1;
    if (grid.first == grid.last) grid.steps = 0;
    if (grid.steps > 0)
      grid.step = grid.last / static_cast<double>(grid.steps) -
                  grid.first / static_cast<double>(grid.steps);
  }
  return grid;
}

double share(double overlapFirst, double overlapLast, const Span& span) {
  if (overlapLast < overlapFirst) return 0;
  if (span.first == span.last) return 1;
  // Halved, since the length of a span of finite times may overflow.
  return (overlapLast / 2 - overlapFirst / 2) / (span.last / 2 - span.first / 2);
}

template <class Value>
class Comparison {
 public:
  Comparison(const Series& baseline, const Series& compareTo, const Options& options,
             const Sink& sink)
      : baseline_(baseline), compareTo_(compareTo), options_(options), tally_(sink) {}

  Report run() {
    Report report;
    report.typesDiffer = baseline_.type != compareTo_.type ||
                         baseline_.isEnumeration != compareTo_.isEnumeration;
    Pass<Value> pass(baseline_, compareTo_);
    const bool haveSamples = pass.baseline.hasHead() && pass.compareTo.hasHead();
    const double gapAtBegin =
        haveSamples ? std::min(pass.baseline.gapAround(0), pass.compareTo.gapAround(0)) : 0;
    if (haveSamples) compareRows(pass);
    pass.baseline.drain();
    pass.compareTo.drain();
    tally_.finish(report);
    fillSpans(report, pass);
    report.status = haveSamples ? statusOf(report, pass, gapAtBegin) : Status::noSamples;
    report.within = report.status == Status::compared && report.failedRows == 0;
    return report;
  }

 private:
  Judge<Value> judgeFor(Track<Value>& baseline) {
    return {
        {options_.absTol, options_.relTol, baseline_.isEnumeration || compareTo_.isEnumeration},
        options_.timeTol,
        baseline,
        baseline_.effectiveInterpolation(),
        tally_};
  }

  void compareRows(Pass<Value>& pass) {
    if (options_.alignment == Alignment::uniform) {
      if (const auto grid = layGrid(pass, options_)) compareOnGrid(*grid);
      return;
    }
    Judge<Value> judge = judgeFor(pass.baseline);
    const bool onlyPairs = options_.alignment == Alignment::intersect;
    walkTogether(pass.baseline, pass.compareTo, options_.timeMatch,
                 [&](double time, Place b, Place c) {
                   if (onlyPairs && !(b.isEvent && c.isEvent)) return;
                   judgeAt(time, pass.baseline, b, pass.compareTo, c, judge);
                 });
  }

  void compareOnGrid(const Grid& grid) {
    Pass<Value> pass(baseline_, compareTo_);
    Judge<Value> judge = judgeFor(pass.baseline);
    for (std::uint64_t k = 0; k <= grid.steps; ++k) {
      const double time = grid.time(k);
      const Place b = moveTo(pass.baseline, time, grid.step, options_.timeMatch);
      const Place c = moveTo(pass.compareTo, time, grid.step, options_.timeMatch);
      judgeAt(time, pass.baseline, b, pass.compareTo, c, judge);
    }
  }

  static void fillSpans(Report& report, const Pass<Value>& pass) {
    const auto spanOf = [](const Track<Value>& track) {
      return Span{track.sampleCount(), track.firstTime(), track.lastTime(), 0};
    };
    report.baseline = spanOf(pass.baseline);
    report.compareTo = spanOf(pass.compareTo);
    if (report.baseline.samples == 0 || report.compareTo.samples == 0) return;
    const double first = std::max(report.baseline.first, report.compareTo.first);
    const double last = std::min(report.baseline.last, report.compareTo.last);
    report.baseline.coverage = share(first, last, report.baseline);
    report.compareTo.coverage = share(first, last, report.compareTo);
  }

  Status statusOf(const Report& report, const Pass<Value>& pass, double gapAtBegin) const {
    if (report.rows == 0) return Status::noCommonTime;
    if (!options_.demandsEqualSpans()) return Status::compared;
    const double gapAtEnd = std::min(pass.baseline.lastGap(), pass.compareTo.lastGap());
    const bool equal = endsAgree(report.baseline.first, report.compareTo.first, gapAtBegin) &&
                       endsAgree(report.baseline.last, report.compareTo.last, gapAtEnd);
    return equal ? Status::compared : Status::spansDiffer;
  }

  bool endsAgree(double b, double c, double gap) const {
    const double match = matchDistance(b, c, gap, options_.timeMatch);
    const double rounding = 4 * ulp(std::max(std::fabs(b), std::fabs(c)));
    return std::fabs(b - c) <= std::max(match, options_.timeTol + rounding);
  }

  const Series& baseline_;
  const Series& compareTo_;
  const Options& options_;
  Tally tally_;
};

bool isWide(ScalarType type) {
  return type == ScalarType::int64 || type == ScalarType::uint64;
}

}  // namespace

Report compare(const Series& baseline, const Series& compareTo, const Options& options,
               const Sink& sink) {
  check(options);
  if (baseline.unit != compareTo.unit) {
    Report report;
    report.status = Status::unitsDiffer;
    return report;
  }
  if (isWide(baseline.type) || isWide(compareTo.type))
    return Comparison<WideNumber>(baseline, compareTo, options, sink).run();
  return Comparison<double>(baseline, compareTo, options, sink).run();
}

}  // namespace comparison
