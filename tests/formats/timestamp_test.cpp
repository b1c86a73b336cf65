#include "formats/timestamp.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>

namespace formats {
namespace {

TEST(TimestampTest, ReadsIsoTimestamps) {
  struct Case {
    const char* text;
    std::int64_t seconds;
    std::int32_t nanoseconds;
    bool zoned;
  };
  const Case cases[] = {
      {"1970-01-01", 0, 0, false},
      {"1970-01-02T00:00", 86400, 0, false},
      {"2024-02-29 12:30:05", 1709209805, 0, false},
      {"2024-02-29T12:30:05.25Z", 1709209805, 250'000'000, true},
      {"2024-02-29T12:30:05,123456789123z", 1709209805, 123'456'789, true},
      {"2024-02-29T12:30:05+02:00", 1709202605, 0, true},
      {"2024-02-29T12:30:05 -0130", 1709215205, 0, true},
      {"1969-12-31T23:59:59.5+00", -1, 500'000'000, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const auto instant = parseIsoTimestamp(c.text);
    ASSERT_TRUE(instant);
    EXPECT_EQ(instant->seconds, c.seconds);
    EXPECT_EQ(instant->nanoseconds, c.nanoseconds);
    EXPECT_EQ(instant->zoned, c.zoned);
  }
}

TEST(TimestampTest, RefusesWhatIsNoTimestamp) {
  for (const char* text :
       {"", "2023-02-29", "2024-13-01", "2024-1-1", "2024-01-01T24:00", "2024-01-01T1:00",
        "2024-01-01T10", "2024-01-01T10:00:00.", "2024-01-01T10:00:00+",
        "2024-01-01T10:00:00+99", "2024-01-01T10:00Zx"}) {
    EXPECT_FALSE(parseIsoTimestamp(text)) << text;
  }
}

TEST(TimestampTest, SecondsBetweenRoundsOnce) {
  const auto between = [](const char* start, const char* end) {
    return secondsBetween(*parseIsoTimestamp(start), *parseIsoTimestamp(end));
  };
  EXPECT_EQ(between("2024-01-01T00:00:00.9", "2024-01-01T00:00:01.0"), 0.1);
  EXPECT_EQ(between("2024-01-01T00:00:00", "2024-12-31T23:59:59.123456789"),
            31622399.123456789);
  EXPECT_EQ(between("2024-01-01T00:00:00Z", "2023-12-31T23:59:59.7Z"), -0.3);
}

TEST(TimestampTest, ReadsSimulatorDates) {
  setenv("TZ", "XYZ-02", 1);  // two hours east of Greenwich
  tzset();
  EXPECT_EQ(posixSeconds(*parseSimulatorDate("Sat Nov 21 05:43:57  2026")), 1795239837. - 7200);
  EXPECT_EQ(posixSeconds(*parseSimulatorDate("Sun Feb  5 13:44:35 UTC 2023")), 1675604675.);
  for (const char* text :
       {"", "Sat Nov 31 05:43:57 2026", "Sat Foo 21 05:43:57 2026", "Sat Nov 21 05:43 2026",
        "Sat Nov 21 05:43:57 CET 2026", "Sat Nov 21 25:43:57 2026"}) {
    EXPECT_FALSE(parseSimulatorDate(text)) << text;
  }
}

}  // namespace
}  // namespace formats
