#include "comparison/compare.h"

#include <gmock/gmock.h>

#include <cmath>
#include <limits>
#include <numeric>

#include "samples.h"
#include "tests/support/throwsid.h"

namespace comparison::test {
namespace {

using ::testing::DoubleEq;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using vela::test::ThrowsId;

constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

Samples curve(std::vector<double> times, std::vector<double> values,
              Interpolation interpolation = Interpolation::linear) {
  Samples samples;
  samples.interpolation = interpolation;
  samples.times = std::move(times);
  samples.values.assign(values.begin(), values.end());
  return samples;
}

Report compared(const Samples& baseline, const Samples& compareTo, const Options& options = {},
                AllRows* rows = nullptr) {
  const Sink sink = rows ? Sink(rows->sink()) : Sink();
  return compare(baseline.series(), compareTo.series(), options, sink);
}

Options with(double absTol, double relTol = 0, double timeTol = 0) {
  Options options;
  options.absTol = absTol;
  options.relTol = relTol;
  options.timeTol = timeTol;
  return options;
}

Options aligned(Alignment alignment) {
  Options options;
  options.alignment = alignment;
  return options;
}

TEST(Compare, FindsOneUnitInTheLastPlaceAtZeroTolerance) {
  std::vector<double> times(10'000);
  std::iota(times.begin(), times.end(), 0.);
  std::vector<double> values(times.size());
  for (std::size_t i = 0; i < values.size(); ++i) values[i] = std::sin(double(i)) * 1e3;
  for (std::size_t planted : {0, 1, 4999, 9999}) {
    for (double towards : {kInf, -kInf}) {
      std::vector<double> changed = values;
      changed[planted] = std::nextafter(changed[planted], towards);
      const Report report = compared(curve(times, values), curve(times, changed));
      EXPECT_FALSE(report.within);
      EXPECT_EQ(report.failedRows, 1);
      EXPECT_EQ(report.firstFailingTime, times[planted]);
      EXPECT_EQ(report.timeOfMaxDifference, times[planted]);
      EXPECT_EQ(report.maxDifference, std::fabs(changed[planted] - values[planted]));
    }
  }
  EXPECT_TRUE(compared(curve(times, values), curve(times, values)).within);
}

TEST(Compare, TellsNeighbouringIntegersApartThatADoubleCannot) {
  struct Case {
    ScalarType baselineType, compareToType;
    Element baseline, compareTo;
    double difference;
  };
  constexpr std::int64_t kBig = (std::int64_t{1} << 60) + 1;
  constexpr auto kMin = std::numeric_limits<std::int64_t>::min();
  constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
  const Case cases[] = {
      {ScalarType::int64, ScalarType::int64, kBig, kBig + 1, 1},
      {ScalarType::uint64, ScalarType::int64, std::uint64_t(kBig), kBig - 1, -1},
      {ScalarType::int64, ScalarType::uint64, kMin, kMax, 0x1p63 + 0x1p64},
      {ScalarType::real, ScalarType::int64, 0x1p60, kBig, 1},
      {ScalarType::int64, ScalarType::real, (std::int64_t{1} << 53) + 1, 0x1p53, -1},
      {ScalarType::int64, ScalarType::real, std::int64_t{1} << 53, 0.75, -0x1p53 + 1},
      {ScalarType::int64, ScalarType::real, std::int64_t{3}, 2.5, -0.5},
      {ScalarType::int64, ScalarType::real, -(std::int64_t{1} << 53) - 1, 0.25, 0x1p53 + 2},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.difference);
    Samples b, d;
    b.type = c.baselineType;
    d.type = c.compareToType;
    b.times = d.times = {0.};
    b.values = {c.baseline};
    d.values = {c.compareTo};
    AllRows rows;
    EXPECT_FALSE(compared(b, d, with(0), &rows).within);
    EXPECT_THAT(rows.difference, ElementsAre(c.difference));
    EXPECT_TRUE(compared(b, d, with(std::fabs(c.difference))).within);
    const bool exact =
        c.baselineType != ScalarType::real && c.compareToType != ScalarType::real;
    EXPECT_TRUE(!exact || !compared(b, d, with(std::fabs(c.difference) / 2)).within);
  }
}

TEST(Compare, TellsThemApartInsideATimeToleranceToo) {
  constexpr std::int64_t kBig = std::int64_t{1} << 60;
  Samples b, early;
  b.type = early.type = ScalarType::int64;
  b.times = early.times = {0, 1, 2};
  b.values = {kBig, kBig + 1, kBig};
  early.values = {kBig + 1, kBig + 1, kBig};
  EXPECT_FALSE(compared(b, early).within);
  EXPECT_TRUE(compared(b, early, with(0, 0, 1)).within);
  EXPECT_TRUE(compared(b, early, with(0, 0, 2)).within);
  early.values[0] = kBig + 2;
  EXPECT_FALSE(compared(b, early, with(0, 0, 1)).within);
}

TEST(Compare, TellsValuesBetweenThemApartToo) {
  constexpr std::int64_t kBig = std::int64_t{1} << 60;
  Samples line = curve({0, 2}, {});
  line.type = ScalarType::int64;
  line.values = {kBig, kBig + 201};
  Samples bent = line;
  bent.times = {0, 1, 2};
  bent.values = {kBig, kBig + 102, kBig + 201};
  AllRows rows;
  EXPECT_TRUE(compared(line, bent, with(1.5), &rows).within);
  EXPECT_THAT(rows.difference, ElementsAre(0, 1.5, 0));
  EXPECT_FALSE(compared(line, bent, with(1.25)).within);
  // What lies within a second of the row in the middle reaches from kBig to kBig + 201.
  rows = {};
  bent.values[1] = kBig + 203;
  EXPECT_FALSE(compared(line, bent, with(1, 0, 1), &rows).within);
  EXPECT_EQ(rows.tolerance[1], 100.5 + 1);
}

TEST(Compare, ForgivesTheRoundingOfSinglesAsThatOfDoubles) {
  Samples b = curve({0}, {1.f}), c = curve({0}, {1.1f});
  EXPECT_FALSE(compared(b, c, with(0.1)).within) << "doubles of these values differ by more";
  b.type = c.type = ScalarType::single;
  EXPECT_TRUE(compared(b, c, with(0.1)).within);
  c.values[0] = std::nextafter(1.1f, 2.f);
  EXPECT_FALSE(compared(b, c, with(0.1)).within);
  EXPECT_FALSE(compared(b, c, with(0)).within);
}

TEST(Compare, ForgivesTheRoundingOfDecimalsButNoMore) {
  const auto passes = [](double b, double c, const Options& options) {
    return compared(curve({0}, {b}), curve({0}, {c}), options).within;
  };
  EXPECT_TRUE(passes(1.0, 1.1, with(0.1)));
  EXPECT_TRUE(passes(0.3, 0.2, with(0.1)));
  EXPECT_TRUE(passes(3.0, 3.3, with(0, 0.1)));
  EXPECT_TRUE(passes(39.8, 41.7, with(1.9)));
  EXPECT_FALSE(passes(1.0, 1.1000000000001, with(0.1)));
  EXPECT_FALSE(passes(0.3, 0.1 + 0.2, with(0)));
}

TEST(Compare, TreatsNanAndInfinitiesAsValues) {
  AllRows rows;
  const Report report =
      compared(curve({0, 1, 2, 3, 4}, {kNan, kNan, kInf, kInf, -kInf}),
               curve({0, 1, 2, 3, 4}, {kNan, 1, kInf, 1, kInf}), with(1e300, 1e10), &rows);
  EXPECT_THAT(rows.passed, ElementsAre(true, false, true, false, false));
  EXPECT_EQ(rows.difference[0], 0);
  EXPECT_TRUE(std::isnan(rows.difference[1]));
  EXPECT_EQ(rows.difference[2], 0);
  EXPECT_EQ(rows.difference[3], -kInf);
  EXPECT_EQ(report.maxDifference, kInf);
  EXPECT_EQ(report.timeOfMaxDifference, 3);
  EXPECT_EQ(report.failedRows, 3);
}

TEST(Compare, NeverTakesANumberForAValueMissingBetweenSamples) {
  // One series has nothing but its ends where the other has a sample of `middle` in between.
  struct Case {
    double from, to, middle;
    bool within;
  };
  const Case cases[] = {
      {kNan, 5, 5, false},    {5, kNan, 5, false},     {kNan, 5, kNan, true},
      {kInf, 5, 5, false},    {5, -kInf, 5, false},    {-kInf, 5, -kInf, true},
      {kInf, 5, kNan, false}, {kInf, -kInf, 0, false}, {kInf, kInf, kInf, true},
      {kInf, kInf, 5, false}, {kNan, kNan, 5, false},  {kNan, kInf, kInf, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.from << " to " << c.to << ": " << c.middle);
    const Samples ends = curve({1, 2}, {c.from, c.to});
    // So near to an end that the fraction of the way rounds to it.
    for (double time : {1.5, 1 + 0x1p-52, 2 - 0x1p-52}) {
      const Samples all = curve({1, time, 2}, {c.from, c.middle, c.to});
      for (double tolerance : {0., 1e300}) {
        EXPECT_EQ(compared(ends, all, with(tolerance)).within, c.within);
        EXPECT_EQ(compared(all, ends, with(tolerance)).within, c.within);
      }
    }
  }
  // Nor does an infinity nearby admit every number below it.
  EXPECT_FALSE(
      compared(curve({0, 1, 2}, {5, kInf, 5}), curve({0, 1, 2}, {5, 1e300, 5}), with(1, 0, 1))
          .within);
}

TEST(Compare, PairsTimesThatDifferByRoundingOrDrift) {
  std::vector<double> exact, summed, values;
  double sum = 0;
  for (int i = 0; i < 100'000; ++i, sum += 0.1) {
    exact.push_back(i / 10.);
    summed.push_back(sum);
    values.push_back(i % 7);
  }
  const Samples b = curve(exact, values, Interpolation::zeroOrderHold);
  const Samples c = curve(summed, values, Interpolation::zeroOrderHold);
  AllRows rows;
  EXPECT_TRUE(compared(b, c, {}, &rows).within);
  EXPECT_EQ(rows.times, exact);

  Options exactTimesOnly;
  exactTimesOnly.timeMatch = 0;
  EXPECT_FALSE(compared(b, c, exactTimesOnly).within);
}

TEST(Compare, KeepsBothSidesOfAJump) {
  const Samples jump = curve({0, 1, 1, 2}, {0, 0, 5, 5});
  AllRows rows;
  EXPECT_FALSE(compared(jump, curve({0, 2}, {0, 5}), {}, &rows).within);
  EXPECT_THAT(rows.times, ElementsAre(0, 1, 1, 2));
  EXPECT_THAT(rows.difference, ElementsAre(0, 2.5, -2.5, 0));

  // A held value that changes at the jump without a sample of what was before.
  EXPECT_TRUE(compared(curve({0, 1, 1, 2}, {0, 0, 5, 5}, Interpolation::zeroOrderHold),
                       curve({0, 1, 2}, {0, 5, 5}, Interpolation::zeroOrderHold))
                  .within);

  rows = {};
  EXPECT_FALSE(
      compared(curve({0, 0, 0}, {1, 2, 3}), curve({0, 0, 0}, {1, 9, 3}), {}, &rows).within);
  EXPECT_THAT(rows.difference, ElementsAre(0, 7, 0));
}

TEST(Compare, LooksOnlyAtTheTimesTheAlignmentNames) {
  const Samples b = curve({0, 1, 3, 4}, {0, 1, 3, 4});
  const Samples c = curve({0, 2, 3, 4}, {0, 2, 3, 4});
  const auto timesOf = [&](const Options& options) {
    AllRows rows;
    EXPECT_TRUE(compared(b, c, options, &rows).within);
    return rows.times;
  };
  EXPECT_THAT(timesOf(aligned(Alignment::unite)), ElementsAre(0, 1, 2, 3, 4));
  EXPECT_THAT(timesOf(aligned(Alignment::intersect)), ElementsAre(0, 3, 4));
  Options options = aligned(Alignment::uniform);
  EXPECT_THAT(timesOf(options), ElementsAre(0, DoubleEq(4 / 3.), DoubleEq(8 / 3.), 4));
  options.count = 3;
  EXPECT_THAT(timesOf(options), ElementsAre(0, 2, 4));
  options.count.reset();
  options.step = 1.5;
  EXPECT_THAT(timesOf(options), ElementsAre(0, 1.5, 3));
}

TEST(Compare, NeverPassesASeriesForBeingShort) {
  const Samples whole = curve({0, 1, 2, 3}, {0, 0, 0, 0});
  const Samples early = curve({0, 1, 2}, {0, 0, 0});
  const Samples late = curve({1, 2, 3}, {0, 0, 0});
  for (const Samples& part : {early, late}) {
    for (const auto& [b, c] : {std::pair(whole, part), std::pair(part, whole)}) {
      const Report report = compared(b, c);
      EXPECT_EQ(report.status, Status::spansDiffer);
      EXPECT_FALSE(report.within);
      EXPECT_EQ(report.failedRows, 0);
      EXPECT_TRUE(compared(b, c, with(0, 0, 1)).within) << "the time tolerance covers it";
      EXPECT_TRUE(compared(b, c, aligned(Alignment::intersect)).within);
    }
  }
  Options relaxed;
  relaxed.strictSpan = false;
  const Report report = compared(whole, early, relaxed);
  EXPECT_TRUE(report.within);
  EXPECT_DOUBLE_EQ(report.baseline.coverage, 2 / 3.);
  EXPECT_DOUBLE_EQ(report.compareTo.coverage, 1);
}

TEST(Compare, NeverPassesWhatItCouldNotCompare) {
  const Samples some = curve({0, 1}, {0, 0});
  Samples volts = some;
  volts.unit = "V";
  struct Case {
    Status status;
    Samples b, c;
    Options options;
  };
  const Case cases[] = {
      {Status::noCommonTime, some, curve({2, 3}, {0, 0}), {}},
      {Status::noCommonTime, some, curve({0.5}, {0}), aligned(Alignment::intersect)},
      {Status::noCommonTime, some, curve({2, 3}, {0, 0}), aligned(Alignment::uniform)},
      {Status::noSamples, some, curve({}, {}), {}},
      {Status::noSamples, curve({}, {}), some, {}},
      {Status::noSamples, curve({}, {}), curve({}, {}), {}},
      {Status::unitsDiffer, some, volts, {}},
  };
  for (const Case& c : cases) {
    AllRows rows;
    const Report report = compared(c.b, c.c, c.options, &rows);
    EXPECT_EQ(textOf(report.status), textOf(c.status));
    EXPECT_FALSE(report.within);
    EXPECT_THAT(rows.times, IsEmpty());
  }
}

TEST(Compare, TimeToleranceForgivesADelayButNotALargerOne) {
  for (Interpolation interpolation : {Interpolation::linear, Interpolation::zeroOrderHold}) {
    std::vector<double> times, shifted, values;
    for (int i = 0; i < 1000; ++i) {
      times.push_back(i / 10.);
      shifted.push_back(i / 10. + 0.3);
      values.push_back(std::sin(i / 5.));
    }
    const Samples b = curve(times, values, interpolation);
    const Samples late = curve(shifted, values, interpolation);
    EXPECT_FALSE(compared(b, late).within);
    EXPECT_TRUE(compared(b, late, with(0, 0, 0.3)).within);
    EXPECT_TRUE(compared(late, b, with(0, 0, 0.3)).within);
    EXPECT_FALSE(compared(b, late, with(0, 0, 0.29)).within);
  }
}

TEST(Compare, TakesEnumerationsAsEqualOrNot) {
  Samples b = curve({0, 1, 2}, {1, 3, 3});
  Samples c = curve({0, 1, 2}, {1, 2, 3});
  b.type = c.type = ScalarType::int32;
  b.isEnumeration = c.isEnumeration = true;
  EXPECT_FALSE(compared(b, c, with(5, 5)).within);
  EXPECT_FALSE(compared(b, c, with(5, 5, 1)).within) << "2 is none of the values around";
  c.values[1] = 1.;
  EXPECT_FALSE(compared(b, c, with(5, 5)).within);
  EXPECT_TRUE(compared(b, c, with(0, 0, 1)).within);
}

TEST(Compare, SurvivesTheEndsOfTheNumberRange) {
  constexpr double kMax = std::numeric_limits<double>::max();
  AllRows rows;
  const Report report = compared(curve({-kMax, kMax}, {-kMax, kMax}),
                                 curve({-kMax, 0, kMax}, {-kMax, 0, -kMax}), {}, &rows);
  EXPECT_THAT(rows.difference, ElementsAre(0, 0, -kInf));
  EXPECT_DOUBLE_EQ(report.baseline.coverage, 1);
  EXPECT_TRUE(compared(curve({0}, {kMax}), curve({0}, {-kMax}), with(0, 10)).within);
  EXPECT_DOUBLE_EQ(compared(curve({0, 1}, {kMax, 0}), curve({0, 1}, {0, 0})).rms,
                   kMax / std::sqrt(2));
}

TEST(Compare, ReportsFiguresOverTheRows) {
  const Report report = compared(curve({0, 1, 2, 3}, {1, 2, 3, kNan}),
                                 curve({0, 1, 2, 3}, {1, 2.5, 0, 7}), with(1));
  EXPECT_EQ(report.rows, 4);
  EXPECT_EQ(report.failedRows, 2);
  EXPECT_EQ(report.firstFailingTime, 2.);
  EXPECT_EQ(report.maxDifference, 3);
  EXPECT_EQ(report.maxRatio, 3);
  EXPECT_DOUBLE_EQ(report.rms, std::sqrt((0.25 + 9) / 3));
  EXPECT_EQ(report.baseline.samples, 4);
}

TEST(Compare, HandsRowsOnInBlocksOfBoundedSize) {
  std::vector<double> times(2 * kRowsPerBlock + 5);
  std::iota(times.begin(), times.end(), 0.);
  const Samples b = curve(times, times);
  AllRows rows;
  EXPECT_TRUE(compared(b, b, {}, &rows).within);
  EXPECT_THAT(rows.blockSizes, ElementsAre(kRowsPerBlock, kRowsPerBlock, 5));
  EXPECT_EQ(rows.times, times);
  EXPECT_THAT(rows.difference, Each(0));
}

TEST(Compare, RefusesOptionsItCannotHonour) {
  const auto refuses = [](auto change) {
    Options options;
    change(options);
    const Samples some = curve({0}, {0});
    EXPECT_THAT([&] { compared(some, some, options); },
                ThrowsId("nexstore:nex:InvalidSetting"));
  };
  for (double bad : {kNan, -1., kInf}) {
    refuses([&](Options& o) { o.absTol = bad; });
    refuses([&](Options& o) { o.relTol = bad; });
    refuses([&](Options& o) { o.timeTol = bad; });
    refuses([&](Options& o) { o.timeMatch = bad; });
    refuses([&](Options& o) { o = aligned(Alignment::uniform), o.step = bad; });
  }
  refuses([](Options& o) { o.timeMatch = 0.5; });
  refuses([](Options& o) { o = aligned(Alignment::uniform), o.count = 1; });
  refuses([](Options& o) { o = aligned(Alignment::uniform), o.count = 2, o.step = 1; });
  refuses([](Options& o) { o.step = 1; });
  for (const char* text : {"", "Union", "nearest"}) {
    EXPECT_THAT([&] { alignmentFromText(text); }, ThrowsId("nexstore:nex:InvalidSetting"));
    EXPECT_THAT([&] { interpolationFromText(text); }, ThrowsId("nexstore:nex:InvalidSetting"));
  }
}

TEST(Compare, RefusesSeriesThatAreNone) {
  const Samples good = curve({0, 1, 2}, {0, 0, 0});
  Samples missing = good, over = good;
  missing.values.pop_back();
  over.values.push_back(0.);
  const Samples bad[] = {curve({0, 2, 1}, {0, 0, 0}), curve({0, kNan, 2}, {0, 0, 0}),
                         curve({0, 1, kInf}, {0, 0, 0}), missing, over};
  for (const Samples& series : bad) {
    for (std::size_t block : {1, 2, 10}) {
      Samples inBlocks = series;
      inBlocks.blockSamples = block;
      const std::string id = "nexstore:nex:InvalidData";
      EXPECT_THAT([&] { compared(good, inBlocks); }, ThrowsId(id));
      EXPECT_THAT([&] { compared(inBlocks, good, with(0, 0, 1)); }, ThrowsId(id));
    }
  }
  Options tooFine = aligned(Alignment::uniform);
  tooFine.step = 1e-12;
  EXPECT_THAT([&] { compared(good, good, tooFine); }, ThrowsId("nexstore:nex:InvalidData"));
}

}  // namespace
}  // namespace comparison::test
