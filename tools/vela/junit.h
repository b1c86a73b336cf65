// A comparison in the XML form build servers read test results in.
#pragma once

#include <string>

#include "tools/vela/comparisonview.h"
#include "tools/vela/outputfile.h"

namespace vela::tool {

/// Test results in this form, whoever wrote them.
extern const OutputKind kJunitReport;

/// A test case a signal; all but "within" and what the comparison allows are failures. Where
/// nothing was compared there is one more, which is an error.
std::string junitOf(const ShownComparison& shown);
/// Of a comparison that could not be made: one test case with that error.
std::string junitOfError(const std::string& message);

}  // namespace vela::tool
