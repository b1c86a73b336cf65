// How two series are aligned and what counts as equal.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace comparison {

/// Which times are compared, within the time both series cover.
enum class Alignment {
  unite,      ///< "union": every time of either series
  intersect,  ///< "intersection": the times both have; nothing is interpolated
  uniform,    ///< "uniform": equal steps
};

/// \throws "nexstore:nex:InvalidSetting" for a text that names none
Alignment alignmentFromText(std::string_view text);
std::string textOf(Alignment alignment);

constexpr std::size_t kMaxUniformRows = 1'000'000'000;

struct Options {
  Alignment alignment = Alignment::unite;
  double absTol = 0;   ///< in the unit of the signals
  double relTol = 0;   ///< of the baseline's magnitude
  double timeTol = 0;  ///< seconds by which a value of the baseline may come early or late
  /// Times this close are one, as a fraction of the smallest gap around them; below 0.5.
  double timeMatch = 1e-6;
  /// Of the uniform alignment; at most one of the two. Without them as many points as the
  /// series with more times has in the common time.
  std::optional<double> step;        ///< seconds
  std::optional<std::size_t> count;  ///< points, 2 to kMaxUniformRows
  /// Whether a series that covers less time than the other is a failure; by default it is,
  /// except for the intersection.
  std::optional<bool> strictSpan;

  bool demandsEqualSpans() const;
};

/// \throws "nexstore:nex:InvalidSetting" when a number is NaN, infinite or out of its range, or
///         a step or count comes without the uniform alignment
void check(const Options& options);

}  // namespace comparison
