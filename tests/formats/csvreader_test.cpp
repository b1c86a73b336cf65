#include "formats/csvreader.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <ctime>
#include <random>

#include "formatstest.h"
#include "text/numbers.h"

namespace formats::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

class CsvReaderTest : public ::testing::Test {
 protected:
  std::filesystem::path file(const std::string& content) const {
    return folder_.write("table.csv", content);
  }
  /// The one run of a table.
  ReadRun read(const std::string& content, const ReadOptions& options = {}) const {
    auto runs = readAll(file(content), options);
    EXPECT_EQ(runs.size(), 1);
    return std::move(runs.at(0));
  }
  ReadReport report(const std::string& content, const ReadOptions& options = {}) const {
    return openReader(file(content), options)->describe().report;
  }

  TemporaryFolder folder_;
};

TEST_F(CsvReaderTest, FindsDelimiterAndDecimalMark) {
  const char* const tables[] = {
      "t,a,b\n0.5,1.5,2\n1.5,-2.5,3\n",
      "t;a;b\n0,5;1,5;2\n1,5;-2,5;3\n",
      "t;a;b\r\n0.5;1.5;2\r\n1.5;-2.5;3\r\n",
      "t\ta\tb\n0,5\t1,5\t2\n1,5\t-2,5\t3",
      "t|a|b\n0.5|1.5|2\n\n1.5|-2.5|3\n",
      "\xEF\xBB\xBFt,a,b,\n0.5,1.5,2,\n1.5,-2.5,3,\n",
      "t,a,b\n\"0,5\",\"1,5\", \"2\" \n\"1,5\",\"-2,5\",\"3\"\n",
      "t, a, b\n 0.5, 1.5, 2\n 1.5, -2.5, 3\n",
  };
  for (const char* table : tables) {
    SCOPED_TRACE(table);
    const ReadRun run = read(table);
    EXPECT_EQ(run.info.name, "table");
    EXPECT_EQ(run.info.axis.name, "t");
    ASSERT_EQ(run.columns.size(), 2);
    EXPECT_EQ(run.info.signals->at(1).name, "b");
    EXPECT_THAT(run.axis, ElementsAre(0.5, 1.5));
    EXPECT_THAT(run.reals(0), ElementsAre(1.5, -2.5));
    EXPECT_THAT(run.integers(1), ElementsAre(2, 3));
  }
}

TEST_F(CsvReaderTest, FindsNamesAndUnits) {
  struct Case {
    const char* table;
    const char* name;
    const char* unit;
  };
  const Case cases[] = {
      {"t,speed [m/s]\n0,1\n1,2\n", "speed", "m/s"},
      {"t,speed (m/s)\n0,1\n1,2\n", "speed", "m/s"},
      {"t,speed[m/s]\n0,1\n1,2\n", "speed", "m/s"},
      {"t,\"speed, \"\"raw\"\"\nof car [m/s]\"\n0,1\n1,2\n", "speed, \"raw\"\nof car", "m/s"},
      {"t,v(out)\n0,1\n1,2\n", "v(out)", ""},
      {"t,v(out) [V]\n0,1\n1,2\n", "v(out)", "V"},
      {"t,x[3]\n0,1\n1,2\n", "x[3]", ""},
      {"t,x (2)\n0,1\n1,2\n", "x (2)", ""},
      {"t,speed\ns,[m/s]\n0,1\n1,2\n", "speed", "m/s"},
      {"t,speed\n,km/h\n0,1\n1,2\n", "speed", "km/h"},
      {"0,1\n1,2\n", "column 2", ""},
      {"t,\n0,1\n1,2\n", "column 2", ""},
      {"t,W\xE4rme [\xB0"
       "C]\n0,1\n1,2\n",
       "W\u00E4rme",
       "\u00B0"
       "C"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.table);
    const ReadRun run = read(c.table);
    ASSERT_EQ(run.info.signals->size(), 1);
    EXPECT_EQ(run.info.signals->at(0).name, c.name);
    EXPECT_EQ(run.info.signals->at(0).unit, c.unit);
    EXPECT_FALSE(report(c.table).lossy());
    EXPECT_THAT(run.axis, ElementsAre(0., 1.));
    EXPECT_THAT(run.integers(0), ElementsAre(1, 2));
  }
  const ReadRun repeated = read("t,a,a (2),a,a\n0,1,2,3,4\n");
  EXPECT_EQ(repeated.info.signals->at(2).name, "a (3)");
  EXPECT_EQ(repeated.info.signals->at(3).name, "a (4)");
}

// Where every repetition is counted from 2 again this takes minutes.
TEST_F(CsvReaderTest, NamesManyEqualColumns) {
  std::string names = "t";
  std::string row = "0";
  for (int i = 0; i < 40'000; ++i) {
    names += ",a";
    row += ",1";
  }
  EXPECT_EQ(read(names + "\n" + row + "\n").info.signals->back().name, "a (40000)");
}

TEST_F(CsvReaderTest, FindsTheTimeColumn) {
  struct Case {
    const char* table;
    const char* option;
    std::vector<double> times;
    AxisKind kind;
  };
  const Case cases[] = {
      {"a,Time\n9,1\n8,2\n", "", {1, 2}, AxisKind::kTime},
      {"a,ZEIT [ms]\n9,1\n8,2\n", "", {0.001, 0.002}, AxisKind::kTime},
      {"a,t (h)\n9,1\n8,2\n", "", {3600, 7200}, AxisKind::kTime},
      {"a,b\n3,1\n4,0\n", "", {3, 4}, AxisKind::kTime},
      {"a,b\n3,1\n2,5\n", "b", {1, 5}, AxisKind::kTime},
      {"a,b [ms]\n3,1\n2,5\n", "b [ms]", {0.001, 0.005}, AxisKind::kTime},
      {"t,b\n3,1\n2,5\n", "2", {1, 5}, AxisKind::kTime},
      {"f [Hz],b\n3,1\n4,0\n", "", {3, 4}, AxisKind::kFrequency},
      {"x [mm],b\n3,1\n4,0\n", "", {3, 4}, AxisKind::kSweep},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.table);
    ReadOptions options;
    options.timeColumn = c.option;
    const ReadRun run = read(c.table, options);
    EXPECT_THAT(run.axis, ::testing::ElementsAreArray(c.times));
    EXPECT_EQ(run.info.axis.kind, c.kind);
  }
}

TEST_F(CsvReaderTest, FindsTheTypeOfAColumnFromAllOfIt) {
  struct Case {
    std::string last;
    ValueType type;
    double value;
  };
  const Case cases[] = {
      {"7", ValueType::kInt64, 7},
      {"-0", ValueType::kDouble, -0.},
      {"7.5", ValueType::kDouble, 7.5},
      {"9223372036854775808", ValueType::kDouble, 9223372036854775808.},
      {"-inf", ValueType::kDouble, -std::numeric_limits<double>::infinity()},
  };
  std::string rows = "t,a,flag\n";
  for (int i = 0; i < 70'000; ++i) rows += std::to_string(i) + ",5,true\n";
  for (const Case& c : cases) {
    SCOPED_TRACE(c.last);
    const ReadRun run = read(rows + "99999," + c.last + ",FALSE\n");
    EXPECT_EQ(run.blocks, 2);
    EXPECT_EQ(run.info.signals->at(0).type, c.type);
    const double last = c.type == ValueType::kInt64
                            ? static_cast<double>(run.integers(0).back())
                            : run.reals(0).back();
    EXPECT_EQ(last, c.value);
    EXPECT_EQ(std::signbit(last), std::signbit(c.value));
    EXPECT_EQ(run.booleans(1).front(), 1);
    EXPECT_EQ(run.booleans(1).back(), 0);
  }
  EXPECT_THAT(read("t,a\n0,9223372036854775807\n1,-9223372036854775808\n").integers(0),
              ElementsAre(INT64_MAX, INT64_MIN));
}

TEST_F(CsvReaderTest, MissingValuesAreNaN) {
  const ReadRun run =
      read("t,a,b,c\n0,1,true,\n1,,false,\n2,NA,N/A,\n3,nan,null,\n4,2,true,\n");
  ASSERT_EQ(run.columns.size(), 3);
  EXPECT_EQ(run.reals(0)[0], 1);
  EXPECT_EQ(run.reals(0)[4], 2);
  EXPECT_EQ(run.reals(1)[0], 1);
  EXPECT_EQ(run.reals(1)[1], 0);
  for (const std::size_t row : {1, 2, 3}) EXPECT_TRUE(std::isnan(run.reals(0)[row]));
  for (const std::size_t row : {2, 3}) EXPECT_TRUE(std::isnan(run.reals(1)[row]));
  EXPECT_TRUE(std::isnan(run.reals(2)[4]));
  EXPECT_FALSE(report("t,a\n0,1\n1,\n").lossy());
}

TEST_F(CsvReaderTest, TimestampsStartTheRun) {
  setenv("TZ", "XYZ-02", 1);  // two hours east of Greenwich
  tzset();
  const ReadRun zoned = read(
      "date,a\n2024-02-29T12:00:00.9+01:00,1\n2024-02-29T11:00:01Z,2\n"
      "2024-02-29T11:00:01.123456789Z,3\n");
  EXPECT_EQ(zoned.info.date, 1709204400.9);
  EXPECT_THAT(zoned.axis, ElementsAre(0, 0.1, 0.223456789));
  const ReadRun local = read("date;a\n2024-02-29 12:00:00,5;1\n2024-03-01;2\n");
  EXPECT_EQ(local.info.date, 1709208000.5 - 7200);
  EXPECT_THAT(local.axis, ElementsAre(0, 43199.5));
  EXPECT_EQ(local.info.axis.unit, "s");
  EXPECT_EQ(report("date,a\n2024-01-01T00:00:00Z,1\n2024-01-01T00:00:01,2\n").badLines, 1);
}

TEST_F(CsvReaderTest, ReportsLinesItLeavesOut) {
  const std::string table =
      "t,\"a\nb\",c\n"  // two lines
      "0,1,2\n"
      "1,2\n"         // line 4
      "1,2,3,4\n"     // line 5
      "1,two,3\n"     // line 6
      "1,\"2\"x,3\n"  // line 7
      "\n"
      "one,2,3\n"  // line 9
      "2,3,4,\n"
      "end of data\n";  // line 11
  const ReadReport found = report(table);
  EXPECT_EQ(found.rows, 2);
  EXPECT_EQ(found.badLines, 6);
  std::vector<std::uint64_t> lines;
  for (const Notice& notice : found.notices) lines.push_back(notice.line);
  EXPECT_THAT(lines, ElementsAre(4, 5, 6, 7, 9, 11));
  EXPECT_EQ(found.notices[0].text, "2 fields where 3 are expected");
  EXPECT_EQ(found.notices[2].text, "\"two\" in column 2 is no number");
  EXPECT_TRUE(found.lossy());
  // Long text is cut off between characters.
  const std::string longText = "x" + std::string(59, '-') + "\u00E4\u00E4";
  EXPECT_EQ(report("t,a\n0,1\n1,2\n2," + longText + "\n").notices[0].text,
            "\"x" + std::string(59, '-') + "...\" in column 2 is no number");
  EXPECT_EQ(report("t,a\n0,1\n1,2\n2,-" + longText.substr(2) + "\n").notices[0].text,
            "\"" + std::string(59, '-') + "...\" in column 2 is no number");
  EXPECT_THAT(read(table).axis, ElementsAre(0, 2));
  std::string many = "t,a\n0,1\n0,1\n0,1\n";
  for (int i = 0; i < 500; ++i) many += "0\n" + std::to_string(i) + ",1\n";
  EXPECT_EQ(report(many).badLines, 500);
  EXPECT_EQ(report(many).notices.size(), ReadReport::kNoticesKept);
}

TEST_F(CsvReaderTest, LeavesOutColumnsOfText) {
  const std::string table = "t,state,a\n0,open,1\n1,closed,2\n2,3,3\n";
  const ReadRun run = read(table);
  ASSERT_EQ(run.info.signals->size(), 1);
  EXPECT_EQ(run.info.signals->at(0).origin, "column 3");
  EXPECT_THAT(run.integers(0), ElementsAre(1, 2, 3));
  EXPECT_EQ(report(table).skippedColumns, 1);
  EXPECT_TRUE(report(table).lossy());
}

TEST_F(CsvReaderTest, OptionsOverrideWhatItFinds) {
  ReadOptions options;
  options.delimiter = ',';
  options.header = Choice::kYes;
  const ReadRun run = read("1,2\n3,4\n", options);
  EXPECT_EQ(run.info.signals->at(0).name, "2");
  EXPECT_THAT(run.integers(0), ElementsAre(4));
  options.header = Choice::kNo;
  options.unitRow = Choice::kYes;
  EXPECT_EQ(read("s,V\n3,4\n", options).info.signals->at(0).unit, "V");
  options = {};
  options.decimal = ',';
  EXPECT_THAT(read("t;a\n0;1,5\n1;2,5\n", options).reals(0), ElementsAre(1.5, 2.5));
  options.delimiter = '5';
  EXPECT_THAT(failure(file("t,a\n"), options), StartsWith("VELA:vela:InvalidReadOption"));
  options = {};
  options.timeColumn = "b";
  const std::string noColumn = failure(file("t,a\n0,1\n"), options);
  EXPECT_THAT(noColumn, StartsWith("VELA:vela:InvalidReadOption"));
  EXPECT_THAT(noColumn, HasSubstr("its 2 columns are: \"t\", \"a\""));
}

TEST_F(CsvReaderTest, RefusesWhatIsNoSoundTable) {
  struct Case {
    const char* table;
    int line;
    const char* why;
  };
  const Case cases[] = {
      {"t,a\n0,1\n2,1\n1,1\n", 4, "falls from 2 to 1"},
      {"t,a\n0,1\n,1\n", 3, "time is missing"},
      {"t,a\n0,1\nNaN,1\n", 3, "\"NaN\" cannot be a time"},
      {"t,a\n0,1\n\n\ninf,1\n", 5, "\"inf\" cannot be a time"},
      {"t,a\n2024-01-01T00:00:01,1\n2024-01-01T00:00:00,1\n", 3, "falls from 0 to -1"},
      {"t,a\n2024-01-01T00:00:01,1\nNA,1\n", 3, "time stamp is missing"},
      {"t,a\n0,1\n1,\"2\n3,4\n", 3, "never closed"},
      {"t,a\n", 2, "no row of data"},
      {"t,a,b\n0,1\n1,2\n", 2, "no row can be used; here 2 fields where 3"},
      {"t,a\nx,y\nz,w\n", 1, "no column but that of time"},
      {"t\n1\n2\n", 1, "no column but that of time"},
      {"\n", 1, "no whole record"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.table);
    const std::string text = failure(file(c.table));
    EXPECT_THAT(text, StartsWith("VELA:vela:BrokenCsvFile"));
    EXPECT_THAT(text, HasSubstr("table.csv\", line " + std::to_string(c.line) + ":"));
    EXPECT_THAT(text, HasSubstr(c.why));
  }
}

TEST_F(CsvReaderTest, TellsTablesFromOtherTextByContent) {
  EXPECT_EQ(readAll(folder_.write("log", "0 ; 1\n1 ; 2\n")).size(), 1);
  EXPECT_THAT(failure(folder_.write("log", "one, two\nthree, four\n")),
              HasSubstr("UnknownFormat"));
  EXPECT_EQ(openReader(folder_.write("log", "0;1\n1;2\n"))->describe().details.front(),
            "delimiter: semicolon");
}

/// A table with random values, written out in a random dialect.
class RandomTable {
 public:
  explicit RandomTable(unsigned seed) : random_(seed) {
    delimiter_ = ",;\t|"[pick(4)];
    decimal_ = delimiter_ != ',' && pick(2) ? ',' : '.';
    columns.resize(1 + pick(4));
    double time = -5;
    for (std::size_t row = 0, rows = 3 + pick(30); row < rows; ++row) {
      times.push_back(time += static_cast<double>(pick(3)) * 0.1);
      for (auto& column : columns) column.push_back(value());
    }
  }

  std::string text() {
    const std::string lineEnd = pick(2) ? "\r\n" : "\n";
    std::string text = quoted("Time");
    for (std::size_t i = 0; i < columns.size(); ++i) {
      text += delimiter_ + quoted("c" + std::string(1, delimiter_) + std::to_string(i), true);
    }
    text += lineEnd;
    for (std::size_t row = 0; row < times.size(); ++row) {
      text += number(times[row]);
      for (const auto& column : columns) text += delimiter_ + number(column[row]);
      text += lineEnd;
    }
    return text;
  }

  std::vector<double> times;
  std::vector<std::vector<double>> columns;

 private:
  std::size_t pick(std::size_t count) { return random_() % count; }

  double value() {
    const double scale = std::pow(10., static_cast<double>(pick(40)) - 20);
    return (static_cast<double>(random_()) / 3e9 - 0.7) * scale;
  }

  std::string quoted(const std::string& field, bool must = false) {
    return must || pick(3) == 0 ? '"' + field + '"' : field;
  }

  std::string number(double value) {
    std::string digits = text::shortest(value);
    for (char& c : digits) c = c == '.' ? decimal_ : c;
    return quoted(digits);
  }

  std::mt19937 random_;
  char delimiter_;
  char decimal_;
};

TEST_F(CsvReaderTest, ReadsRandomTablesInRandomDialects) {
  for (unsigned seed = 0; seed < 500; ++seed) {
    RandomTable table(seed);
    const std::string text = table.text();
    SCOPED_TRACE("seed " + std::to_string(seed) + ":\n" + text);
    const ReadRun run = read(text);
    ASSERT_THAT(run.axis, BitsAre(table.times));
    ASSERT_EQ(run.columns.size(), table.columns.size());
    for (std::size_t i = 0; i < table.columns.size(); ++i) {
      ASSERT_THAT(run.reals(i), BitsAre(table.columns[i]));
    }
  }
}

}  // namespace
}  // namespace formats::test
