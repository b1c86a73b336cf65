// The engine against exact rational arithmetic, on random pairs of series.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <random>

#include "comparison/compare.h"
#include "reference.h"

namespace comparison::test {
namespace {

class Random {
 public:
  explicit Random(unsigned seed) : engine_(seed) {}

  int below(int end) { return std::uniform_int_distribution(0, end - 1)(engine_); }
  bool chance(int percent) { return below(100) < percent; }
  template <class T>
  T oneOf(std::initializer_list<T> values) {
    return values.begin()[below(static_cast<int>(values.size()))];
  }

  /// Decimals with repeats, now and then equal but for rounding, or close to one another.
  std::vector<double> times() {
    std::vector<double> times;
    const int count = chance(5) ? below(3) : 1 + below(12);
    double time = below(4) / 10.;
    for (int i = 0; i < count; ++i) {
      if (!chance(20)) time = chance(50) ? time + 0.1 : (below(3) + 1 + int(time * 10)) / 10.;
      if (chance(5)) time += 1e-9;
      if (!times.empty()) time = std::max(time, times.back());
      times.push_back(time);
    }
    return times;
  }

  Element element(ScalarType type) {
    switch (type) {
      case ScalarType::int64:
        return chance(70) ? (std::int64_t{1} << oneOf({53, 60, 60, 60, 62})) + below(300)
                          : std::int64_t{below(9) - 4};
      case ScalarType::uint64:
        return chance(50) ? std::numeric_limits<std::uint64_t>::max() - std::uint64_t(below(4))
                          : std::uint64_t(below(5));
      case ScalarType::real:
      case ScalarType::single:
        return chance(10) ? oneOf({std::numeric_limits<double>::quiet_NaN(),
                                   std::numeric_limits<double>::infinity(),
                                   -std::numeric_limits<double>::infinity()})
                          : (below(41) - 20) / 10.;
      default:
        return double(below(3));
    }
  }

  ScalarType type() {
    if (chance(50)) return ScalarType::real;
    return static_cast<ScalarType>(below(11));
  }

  Samples samples() {
    Samples samples;
    samples.type = type();
    samples.isEnumeration =
        chance(10) && samples.type != ScalarType::real && samples.type != ScalarType::single;
    samples.interpolation = oneOf({Interpolation::linear, Interpolation::zeroOrderHold});
    samples.blockSamples = static_cast<std::size_t>(1 + below(7));
    samples.times = times();
    for (std::size_t i = 0; i < samples.times.size(); ++i)
      samples.values.push_back(element(samples.type));
    return samples;
  }

  /// Either something else, or the same with a few changes.
  Samples like(const Samples& original) {
    if (chance(40)) return samples();
    Samples changed = original;
    changed.blockSamples = static_cast<std::size_t>(1 + below(7));
    for (std::size_t i = 0; i < changed.times.size(); ++i) {
      if (chance(10)) changed.values[i] = element(changed.type);
      if (chance(10)) changed.times[i] *= 1 + 2e-16;
    }
    std::sort(changed.times.begin(), changed.times.end());
    return changed;
  }

  Options options() {
    Options options;
    options.alignment = oneOf({Alignment::unite, Alignment::intersect, Alignment::uniform});
    options.absTol = oneOf({0., 0., 0.1, 0.5, 2.});
    options.relTol = oneOf({0., 0., 0.1, 1.});
    options.timeTol = oneOf({0., 0., 0.1, 0.25, 1e-9, 3.});
    options.timeMatch = oneOf({1e-6, 1e-6, 0., 0.2});
    if (options.alignment == Alignment::uniform && chance(30))
      options.step = oneOf({0.1, 0.07});
    if (options.alignment == Alignment::uniform && !options.step && chance(30))
      options.count = static_cast<std::size_t>(2 + below(30));
    return options;
  }

 private:
  std::mt19937 engine_;
};

TEST(Agreement, WithExactArithmeticOnRandomPairs) {
  std::size_t rows = 0, failed = 0, undecided = 0, interpolated = 0;
  for (unsigned seed = 0; seed < 1000; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    const Samples b = random.samples();
    const Samples c = random.like(b);
    const Options options = random.options();
    AllRows computed;
    const Report report = compare(b.series(), c.series(), options, computed.sink());
    const std::vector<ReferenceRow> expected = referenceRows(b, c, options);
    ASSERT_EQ(computed.times.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i) {
      SCOPED_TRACE(i);
      const ReferenceRow& row = expected[i];
      ASSERT_EQ(computed.times[i], row.time);
      ASSERT_TRUE(agrees(row.difference, computed.difference[i]))
          << computed.difference[i] << " is not " << row.difference.value;
      // On which side the band is looked at hangs on the sign, an infinite one on the verdict.
      const bool isSure =
          row.verdict != ReferenceRow::Verdict::either &&
          (row.difference.slack == 0 || abs(row.difference.value) > row.difference.slack);
      ASSERT_TRUE(!isSure || agrees(row.tolerance, computed.tolerance[i]))
          << computed.tolerance[i] << " is not " << row.tolerance.value;
      if (row.verdict == ReferenceRow::Verdict::either)
        ++undecided;
      else
        ASSERT_EQ(computed.passed[i], row.verdict == ReferenceRow::Verdict::passes);
      failed += !computed.passed[i];
      interpolated += row.difference.slack > 0;
    }
    rows += expected.size();
    ASSERT_EQ(report.rows, expected.size());
    ASSERT_EQ(report.failedRows,
              std::count(computed.passed.begin(), computed.passed.end(), false));
  }
  // The pairs are worth something only if there is some of everything.
  EXPECT_GT(rows, 5'000);
  EXPECT_GT(failed, rows / 10);
  EXPECT_LT(failed, rows * 9 / 10);
  EXPECT_GT(interpolated, rows / 50);
  EXPECT_LT(undecided, rows / 20);
}

}  // namespace
}  // namespace comparison::test
