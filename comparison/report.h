// What a comparison found, and its rows.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>

namespace comparison {

enum class Status {
  compared,
  spansDiffer,   ///< compared, but one series begins later or ends earlier than the other
  noCommonTime,  ///< there is no time at which the two could be compared
  noSamples,     ///< one of the series is empty
  unitsDiffer,   ///< not compared
};

/// "compared", "spans differ", "no common time", "no samples", "units differ"
std::string textOf(Status status);

/// The time a series covers.
struct Span {
  std::size_t samples = 0;
  double first = 0;  ///< seconds; 0 without samples
  double last = 0;
  double coverage = 0;  ///< the part of it the other series covers too, 0..1
};

/// The numbers are over the rows whose difference is no NaN; a row with an infinite difference
/// counts. Without such rows they are 0.
struct Report {
  Status status = Status::compared;
  /// Whether there was a row, every row passed, and the spans agree where that is demanded.
  bool within = false;
  bool typesDiffer = false;  ///< the series have different scalar types; a note only
  std::size_t rows = 0;
  std::size_t failedRows = 0;
  std::optional<double> firstFailingTime;
  double maxDifference = 0;  ///< magnitude
  double timeOfMaxDifference = 0;
  double maxRatio = 0;  ///< of the difference to the tolerance; infinite where that is 0
  double rms = 0;       ///< root of the mean square of the differences
  Span baseline;
  Span compareTo;
};

/// Rows in time order; the spans have equal lengths.
struct Rows {
  std::span<const double> times;       ///< seconds, nowhere decreasing, duplicates kept
  std::span<const double> difference;  ///< compareTo - baseline
  std::span<const double> tolerance;   ///< how large the difference may be
  std::span<const char> passed;        ///< 0 or 1
};

constexpr std::size_t kRowsPerBlock = 65536;

/// Takes the rows, `kRowsPerBlock` at a time and the rest at the end. May be empty.
using Sink = std::function<void(const Rows&)>;

}  // namespace comparison
