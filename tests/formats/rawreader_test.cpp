#include "formats/rawreader.h"

#include <gmock/gmock.h>

#include <bit>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <limits>

#include "formatstest.h"
#include "text/numbers.h"

namespace formats::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using namespace std::string_literals;

std::string header(const std::string& plot, const std::string& flags, const std::string& points,
                   const std::vector<std::string>& variables) {
  std::string text = "Title: * a circuit\nDate: Sat Nov 21 05:43:57  2026\nPlotname: " + plot +
                     "\nFlags: " + flags +
                     "\nNo. Variables: " + std::to_string(variables.size()) +
                     "\nNo. Points: " + points + "\nVariables:\n";
  for (std::size_t i = 0; i < variables.size(); ++i) {
    text += "\t" + std::to_string(i) + "\t" + variables[i] + "\n";
  }
  return text;
}

/// A plot of one signal in text.
std::string sweepText(const std::string& scale, const std::vector<double>& values,
                      const std::string& flags = "real") {
  std::string text =
      header("Sweep", flags, std::to_string(values.size()), {scale, "v(x)\tvoltage"});
  text += "Values:\n";
  for (std::size_t i = 0; i < values.size(); ++i) {
    text += " " + std::to_string(i) + "\t" + text::shortest(values[i]) + "\n\t" +
            std::to_string(10 * i) + "\n\n";
  }
  return text;
}

class RawReaderTest : public ::testing::Test {
 protected:
  std::filesystem::path file(const std::string& content) const {
    return folder_.write("a.raw", content);
  }
  std::vector<ReadRun> read(const std::string& content) const { return readAll(file(content)); }

  TemporaryFolder folder_;
};

TEST_F(RawReaderTest, ReadsBinaryPointsBitForBit) {
  setenv("TZ", "UTC0", 1);
  tzset();
  // Time 0 with -0.0, time 1.0 with a NaN that carries a payload, spelled out byte by byte.
  const std::string points =
      "\0\0\0\0\0\0\0\0"s
      "\0\0\0\0\0\0\0\x80"s
      "\0\0\0\0\0\0\xF0\x3F"s
      "\x2A\0\0\0\0\0\xF8\x7F"s;
  const auto runs =
      read(header("Transient Analysis", "real", "2      ", {"time\ttime", "v(out)\tvoltage"}) +
           "Binary:\n" + points);
  ASSERT_EQ(runs.size(), 1);
  const RunInfo& info = runs[0].info;
  EXPECT_EQ(info.name, "Transient Analysis");
  EXPECT_EQ(info.title, "* a circuit");
  EXPECT_EQ(info.date, 1795239837.);
  EXPECT_FALSE(info.step);
  EXPECT_EQ(info.axis.kind, AxisKind::kTime);
  EXPECT_EQ(info.axis.unit, "s");
  ASSERT_EQ(info.signals->size(), 1);
  EXPECT_EQ(info.signals->at(0).name, "v(out)");
  EXPECT_EQ(info.signals->at(0).unit, "V");
  EXPECT_THAT(runs[0].axis, ElementsAre(0., 1.));
  EXPECT_THAT(runs[0].reals(0),
              BitsAre(std::vector<double>{-0., std::bit_cast<double>(0x7FF800000000002AULL)}));
}

TEST_F(RawReaderTest, ReadsPointsInText) {
  const auto runs = read(
      header("Transient Analysis", "real", "2",
             {"time\ttime", "v(a)-v(b)\tnotype", "i(v1)\tcurrent"}) +
      "Values:\n 0\t0.0e+00\n\t1.5\n\t-2e-3\n\n 1\t1e-9\n\tnan\n\t4.9406564584124654e-324\n\n");
  ASSERT_EQ(runs.size(), 1);
  EXPECT_THAT(runs[0].axis, ElementsAre(0., 1e-9));
  EXPECT_EQ(runs[0].reals(0)[0], 1.5);
  EXPECT_TRUE(std::isnan(runs[0].reals(0)[1]));
  EXPECT_THAT(runs[0].reals(1), ElementsAre(-2e-3, std::numeric_limits<double>::denorm_min()));
  EXPECT_EQ(runs[0].info.signals->at(0).unit, "");
  EXPECT_EQ(runs[0].info.signals->at(1).unit, "A");
}

TEST_F(RawReaderTest, ReadsComplexPointsOfBothLayouts) {
  const auto plot = [](const std::string& layout, const std::string& points) {
    return header("AC Analysis", "complex", "2",
                  {"frequency\tfrequency grid=3", "v(out)\tvoltage"}) +
           layout + points;
  };
  const std::string text = plot("Values:\n", " 0\t10,0.0\n\t1,-2\n\n 1\t100,0.0\n\t3,4e0\n\n");
  const std::string binary = plot("Binary:\n", bytesOf({10, 1e247, 1, -2, 100, -1, 3, 4}));
  for (const std::string& content : {text, binary}) {
    const auto runs = read(content);
    ASSERT_EQ(runs.size(), 1);
    EXPECT_EQ(runs[0].info.axis.kind, AxisKind::kFrequency);
    EXPECT_EQ(runs[0].info.axis.name, "frequency");
    EXPECT_EQ(runs[0].info.axis.unit, "Hz");
    EXPECT_TRUE(runs[0].info.signals->at(0).isComplex);
    EXPECT_THAT(runs[0].axis, ElementsAre(10., 100.));
    EXPECT_THAT(runs[0].complexes(0), ElementsAre(std::complex(1., -2.), std::complex(3., 4.)));
  }
}

TEST_F(RawReaderTest, EveryPlotOfAFileIsARun) {
  const std::vector<std::string> variables = {"time\ttime", "v(a)\tvoltage"};
  const auto runs = read(header("first", "real", "1", variables) + "Binary:\n" +
                         bytesOf({0, 1}) + header("none", "real", "0", variables) +
                         "Binary:\n" + header("second", "real", "1", variables) +
                         "Values:\n 0\t5\n\t6\n\n" + header("third", "real", "2", variables) +
                         "Binary:\n" + bytesOf({7, 8, 7, 10}) + "\n");
  ASSERT_EQ(runs.size(), 3);
  EXPECT_EQ(runs[1].info.plot, "second");
  EXPECT_THAT(runs[1].reals(0), ElementsAre(6.));
  EXPECT_THAT(runs[2].axis, ElementsAre(7., 7.));
  EXPECT_THAT(runs[2].reals(0), ElementsAre(8., 10.));
}

TEST_F(RawReaderTest, StepsStartWhereTheScaleStartsAgain) {
  struct Case {
    std::string what;
    std::string content;
    AxisKind kind;
    std::vector<std::vector<double>> axes;
  };
  const std::string sweep = "v(v-sweep)\tvoltage";
  const std::string time = "time\ttime";
  const Case cases[] = {
      {"two steps of time",
       sweepText(time, {1, 2, 3, 1, 4}),
       AxisKind::kTime,
       {{1, 2, 3}, {1, 4}}},
      {"equal times do not part", sweepText(time, {0, 0, 1}), AxisKind::kTime, {{0, 0, 1}}},
      {"declared, starting elsewhere",
       sweepText(time, {1, 2, 1.5, 3}, "real stepped"),
       AxisKind::kTime,
       {{1, 2}, {1.5, 3}}},
      {"rising sweeps",
       sweepText(sweep, {0, 1, 0, 1, 0, 1}),
       AxisKind::kSweep,
       {{0, 1}, {0, 1}, {0, 1}}},
      {"falling sweeps",
       sweepText(sweep, {2, 1, 0, 2, 1}),
       AxisKind::kPoint,
       {{0, 1, 2}, {0, 1}}},
      {"up and down",
       sweepText(sweep, {0, 1, 2, 1, 0, 1}),
       AxisKind::kPoint,
       {{0, 1, 2, 3, 4, 5}}},
      {"no scale", sweepText("v(a)\tvoltage", {3, 1, 3}), AxisKind::kPoint, {{0, 1, 2}}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto runs = read(c.content);
    ASSERT_EQ(runs.size(), c.axes.size());
    double value = 0;
    for (std::size_t i = 0; i < runs.size(); ++i) {
      EXPECT_EQ(runs[i].info.axis.kind, c.kind);
      EXPECT_THAT(runs[i].axis, ::testing::ElementsAreArray(c.axes[i]));
      EXPECT_EQ(runs[i].info.step, runs.size() > 1 ? std::optional(i + 1) : std::nullopt);
      // What is no axis is a signal, and no sample changes its place.
      EXPECT_EQ(runs[i].columns.size(), c.kind == AxisKind::kPoint ? 2 : 1);
      for (const double sample : runs[i].reals(runs[i].columns.size() - 1)) {
        EXPECT_EQ(sample, value);
        value += 10;
      }
    }
  }
  EXPECT_EQ(read(sweepText(sweep, {0, 1, 0, 1}))[1].info.name, "Sweep, step 2");
  EXPECT_THAT(read(sweepText(sweep, {2, 1, 0}))[0].reals(0), ElementsAre(2., 1., 0.));
}

TEST_F(RawReaderTest, BlocksAreBounded) {
  constexpr std::size_t kRows = 150'000;
  std::vector<double> values;
  for (std::size_t i = 0; i < kRows; ++i) {
    values.push_back(static_cast<double>(i / 2));
    values.push_back(static_cast<double>(i) * 0.1);
  }
  for (const char* scale : {"time\ttime", "a\tvoltage"}) {
    SCOPED_TRACE(scale);
    const auto runs =
        read(header("long", "real", std::to_string(kRows), {scale, "v(a)\tvoltage"}) +
             "Binary:\n" + bytesOf(values));
    ASSERT_EQ(runs.size(), 1);
    EXPECT_EQ(runs[0].blocks, 3);
    const bool isNumbered = runs[0].info.axis.kind == AxisKind::kPoint;
    for (std::size_t i = 0; i < kRows; ++i) {
      ASSERT_EQ(runs[0].axis[i], isNumbered ? static_cast<double>(i) : values[2 * i]);
      ASSERT_EQ(runs[0].reals(isNumbered ? 1 : 0)[i], values[2 * i + 1]);
    }
  }
}

TEST_F(RawReaderTest, RefusesMoreStepsThanItCanHold) {
  std::vector<double> values;
  for (std::size_t i = 0; i < 2 * 100'001; ++i) {
    values.push_back(static_cast<double>(i % 2));
    values.push_back(0);
  }
  const auto plot = [&values](const std::string& name) {
    return header(name, "real", std::to_string(values.size() / 2),
                  {"v-sweep\tvoltage", "v\tvoltage"}) +
           "Binary:\n" + bytesOf(values);
  };
  EXPECT_THAT(failure(file(plot("p"))), HasSubstr("more than 100000 times"));
  values.resize(values.size() - 4);
  EXPECT_EQ(openReader(file(plot("p")))->describe().runs.size(), 100'000);
  // A name that 100,000 runs would repeat.
  EXPECT_THAT(failure(file(plot(std::string(60'000, 'x')))), HasSubstr("too much"));
}

TEST_F(RawReaderTest, NamesAnUnknownTypeAndReadsOn) {
  const auto path =
      file(header("p", "real", "1", {"time\ttime", "q\tbananas"}) + "Values:\n0 0 1\n");
  const auto reader = openReader(path);
  const Summary& summary = reader->describe();
  ASSERT_EQ(summary.report.notices.size(), 1);
  EXPECT_THAT(summary.report.notices[0].text, HasSubstr("bananas"));
  EXPECT_FALSE(summary.report.lossy());
  EXPECT_THAT(readAll(path)[0].reals(0), ElementsAre(1.));
}

TEST_F(RawReaderTest, RefusesWhatIsNoSoundFile) {
  const std::vector<std::string> variables = {"time\ttime", "v(a)\tvoltage"};
  const auto real = [&](const std::string& points, const std::string& data) {
    return header("p", "real", points, variables) + data;
  };
  struct Case {
    std::string content;
    std::string where;
    std::string why;
  };
  const Case cases[] = {
      {real("2", "Binary:\n" + bytesOf({0, 1, 2})), "byte 154",
       "cut off or the count is wrong"},
      {real("1000000000000000000", "Binary:\n" + bytesOf({0, 1})), "byte 172",
       "promises 1000000000000000000"},
      {real("99999999999999999999", "Binary:\n"), "line 6", "is no count"},
      {real("-1", "Binary:\n"), "line 6", "is no count"},
      {real("0", "Binary:\n" + bytesOf({0, 1, 2, 3})), "line 11", "a plot must start"},
      {real("1", "Binary:\n" + bytesOf({0, 1, 2, 3})), "line 11", "too small"},
      {real("0", "Binary:\n"), "line 10", "no points"},
      {real("2", "Binary:\n" + bytesOf({0, 1, std::nan(""), 3})), "byte 170",
       "time of point 1 is nan"},
      {real("3", "Binary:\n" + bytesOf({0, 1, 2, 3, 1, 3})), "byte 186", "falls from 2 to 1"},
      {real("3", "Values:\n0 0 1\n1 2 1\n2 1 1\n"), "line 13", "falls from 2 to 1"},
      {real("3", "Values:\n0 0 1\n1 2 1\n2 3 \n"), "line 13", "cut off after 2 whole"},
      {real("3", "Values:\n0 0 1\n1 2 1\n3 3 1\n"), "line 13",
       "point 2 should start here, not \"3\""},
      {real("1", "Values:\n0 0 1x\n"), "line 11", "\"1x\" is no number"},
      {real("1", ""), "line 9", "ends within the header"},
      {header("p", "complex", "1", variables) + "Values:\n0 0,0 1\n", "line 11",
       "no complex number"},
      {header("p", "real fastaccess", "1", variables) + "Binary:\n", "line 4", "fastaccess"},
      {header("p", "real unpadded", "1", {"time\ttime", "v\tvoltage dims=3"}) + "Values:\n",
       "line 9", "unpadded"},
      {header("p", "real", "1", {"time\ttime", "v"}) + "Values:\n", "line 9",
       "variable 1 of 2"},
      {"Title: x\nNo. Variables: 9000000000\nVariables:\n0 a time\n", "line 4", "ends within"},
      {"Title: x\nPlotname: y\nno colon\n", "line 3", "no header line"},
      {"Title: x\nPlotname: y\nValues:\n", "line 3", "names no variables"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.content);
    const std::string text = failure(file(c.content));
    EXPECT_THAT(text, StartsWith("VELA:vela:BrokenRawFile"));
    EXPECT_THAT(text, HasSubstr("a.raw\", " + c.where));
    EXPECT_THAT(text, HasSubstr(c.why));
  }
}

}  // namespace
}  // namespace formats::test
