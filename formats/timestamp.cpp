#include "formats/timestamp.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

#include "formats/encoding.h"

namespace formats {
namespace {

constexpr std::int32_t kNanosecondsPerSecond = 1'000'000'000;

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// Takes parts off the front of a text; every `take` leaves it as it is when it does not fit.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : rest_(text) {}

  bool atEnd() const { return rest_.empty(); }
  char next() const { return rest_.empty() ? '\0' : rest_.front(); }

  bool take(char expected) {
    if (next() != expected) return false;
    rest_.remove_prefix(1);
    return true;
  }

  std::optional<int> takeDigits(std::size_t count) {
    if (rest_.size() < count) return std::nullopt;
    int value = 0;
    for (const char c : rest_.substr(0, count)) {
      if (!isDigit(c)) return std::nullopt;
      value = 10 * value + (c - '0');
    }
    rest_.remove_prefix(count);
    return value;
  }

  /// Any number of digits after a decimal mark, as nanoseconds.
  std::optional<std::int32_t> takeFraction() {
    std::int32_t value = 0;
    std::int32_t unit = kNanosecondsPerSecond;
    if (!isDigit(next())) return std::nullopt;
    for (; isDigit(next()); rest_.remove_prefix(1)) {
      unit /= 10;
      value += unit * (next() - '0');
    }
    return value;
  }

 private:
  std::string_view rest_;
};

std::optional<std::int64_t> secondsOfDay(int hour, int minute, int second) {
  // A leap second counts as the first second of the next minute.
  if (hour > 23 || minute > 59 || second > 60) return std::nullopt;
  return std::int64_t{hour} * 3600 + minute * 60 + second;
}

std::optional<std::int64_t> secondsOfDate(int year, int month, int day) {
  const std::chrono::year_month_day date{std::chrono::year(year),
                                         std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok()) return std::nullopt;
  return std::int64_t{std::chrono::sys_days(date).time_since_epoch().count()} * 86400;
}

bool takeDate(Cursor& cursor, Instant& instant) {
  const auto year = cursor.takeDigits(4);
  if (!year || !cursor.take('-')) return false;
  const auto month = cursor.takeDigits(2);
  if (!month || !cursor.take('-')) return false;
  const auto day = cursor.takeDigits(2);
  if (!day) return false;
  const auto seconds = secondsOfDate(*year, *month, *day);
  if (!seconds) return false;
  instant.seconds = *seconds;
  return true;
}

bool takeTimeOfDay(Cursor& cursor, Instant& instant) {
  const auto hour = cursor.takeDigits(2);
  if (!hour || !cursor.take(':')) return false;
  const auto minute = cursor.takeDigits(2);
  if (!minute) return false;
  int second = 0;
  if (cursor.take(':')) {
    const auto digits = cursor.takeDigits(2);
    if (!digits) return false;
    second = *digits;
    if (cursor.take('.') || cursor.take(',')) {
      const auto fraction = cursor.takeFraction();
      if (!fraction) return false;
      instant.nanoseconds = *fraction;
    }
  }
  const auto seconds = secondsOfDay(*hour, *minute, second);
  if (!seconds) return false;
  instant.seconds += *seconds;
  return true;
}

bool takeZone(Cursor& cursor, Instant& instant) {
  instant.zoned = true;
  if (cursor.take('Z') || cursor.take('z')) return true;
  const bool west = cursor.next() == '-';
  if (!cursor.take('-') && !cursor.take('+')) return false;
  const auto hours = cursor.takeDigits(2);
  if (!hours || *hours > 23) return false;
  int minutes = 0;
  if (!cursor.atEnd()) {
    cursor.take(':');
    const auto digits = cursor.takeDigits(2);
    if (!digits || *digits > 59) return false;
    minutes = *digits;
  }
  const std::int64_t offset = std::int64_t{*hours} * 3600 + minutes * 60;
  instant.seconds += west ? offset : -offset;
  return true;
}

std::optional<int> monthNamed(std::string_view name) {
  constexpr std::array<std::string_view, 12> kMonths = {
      "jan", "feb", "mar", "apr", "may", "jun", "jul", "aug", "sep", "oct", "nov", "dec"};
  const auto found = std::find(kMonths.begin(), kMonths.end(), lowerCase(name));
  if (found == kMonths.end()) return std::nullopt;
  return static_cast<int>(found - kMonths.begin()) + 1;
}

}  // namespace

std::optional<Instant> parseIsoTimestamp(std::string_view text) {
  Cursor cursor(text);
  Instant instant;
  if (!takeDate(cursor, instant)) return std::nullopt;
  if (cursor.atEnd()) return instant;
  if (!cursor.take('T') && !cursor.take('t') && !cursor.take(' ')) return std::nullopt;
  if (!takeTimeOfDay(cursor, instant)) return std::nullopt;
  if (cursor.atEnd()) return instant;
  cursor.take(' ');
  if (!takeZone(cursor, instant) || !cursor.atEnd()) return std::nullopt;
  return instant;
}

std::optional<Instant> parseSimulatorDate(std::string_view text) {
  char month[4] = {};
  char rest[16] = {};
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  const std::string terminated(text);
  if (std::sscanf(terminated.c_str(), " %*3s %3s %2d %2d:%2d:%2d %15[A-Z0-9 ]", month, &day,
                  &hour, &minute, &second, rest) != 6) {
    return std::nullopt;
  }
  std::string_view year = trimmed(rest);
  Instant instant;
  for (const std::string_view zone : {"UTC", "GMT"}) {
    if (!year.starts_with(zone)) continue;
    instant.zoned = true;
    year = trimmed(year.substr(zone.size()));
  }
  Cursor cursor(year);
  const auto yearNumber = cursor.takeDigits(4);
  const auto monthNumber = monthNamed(month);
  if (!yearNumber || !cursor.atEnd() || !monthNumber || day < 0 || hour < 0 || minute < 0 ||
      second < 0) {
    return std::nullopt;
  }
  const auto date = secondsOfDate(*yearNumber, *monthNumber, day);
  const auto time = secondsOfDay(hour, minute, second);
  if (!date || !time) return std::nullopt;
  instant.seconds = *date + *time;
  return instant;
}

double secondsBetween(const Instant& start, const Instant& end) {
  // The sum is exact in a long double for spans of centuries; only the quotient is rounded.
  const auto whole = static_cast<long double>(end.seconds - start.seconds);
  const auto part = static_cast<long double>(end.nanoseconds - start.nanoseconds);
  return static_cast<double>((whole * kNanosecondsPerSecond + part) / kNanosecondsPerSecond);
}

double posixSeconds(const Instant& instant) {
  const double fraction = static_cast<double>(instant.nanoseconds) / kNanosecondsPerSecond;
  if (instant.zoned) return static_cast<double>(instant.seconds) + fraction;
  const auto civil = static_cast<std::time_t>(instant.seconds);
  std::tm parts = {};
  gmtime_r(&civil, &parts);
  parts.tm_isdst = -1;
  return static_cast<double>(std::mktime(&parts)) + fraction;
}

}  // namespace formats
