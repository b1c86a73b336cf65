// What is shown of a comparison: a table, JSON, a report for build servers.
#pragma once

#include <string>

#include "runcomparison/runcomparison.h"
#include "tools/vela/runview.h"

namespace vela::tool {

/// A comparison, and what its two sides are called.
struct ShownComparison {
  RunComparison comparison;
  std::string baseline;
  std::string compared;
  std::string axisUnit;  ///< of the times
};

/// A line a signal.
std::string tableOf(const ShownComparison& shown);
Json jsonOf(const ShownComparison& shown);
/// "outside: 3 within, 1 outside, 1 missing"
std::string summaryOf(const ShownComparison& shown);
/// What it says of one signal: "largest difference 0.5 at 1 s, tolerance abs 0.1 (option)"
std::string wordsOf(const ComparedSignal& row, const std::string& axisUnit);

}  // namespace vela::tool
