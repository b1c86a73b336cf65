// ISO 8601 time stamps, and the dates that circuit simulators write.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace formats {

/// A point in time to the nanosecond. Without a zone it is the local time of an unnamed place.
struct Instant {
  std::int64_t seconds = 0;      ///< since 1970-01-01 00:00:00, in UTC when zoned
  std::int32_t nanoseconds = 0;  ///< [0, 1'000'000'000)
  bool zoned = false;
};

/// The instant that "2024-05-01T12:30:05.25+02:00" names: a date, and if wanted after 'T' or a
/// space hours and minutes, seconds, a fraction after '.' or ',' and a zone "Z", "+hh:mm",
/// "+hhmm" or
/// "+hh". Digits of the fraction beyond the ninth are dropped. None for anything else.
std::optional<Instant> parseIsoTimestamp(std::string_view text);

/// The instant that "Sat Nov 21 05:43:57  2026" names; a zone before the year must be UTC or
/// GMT.
std::optional<Instant> parseSimulatorDate(std::string_view text);

/// Seconds from `start` to `end`, rounded once. Both or none of them are zoned.
double secondsBetween(const Instant& start, const Instant& end);

/// The instant as POSIX seconds; without a zone it is taken as local time of this machine.
double posixSeconds(const Instant& instant);

}  // namespace formats
