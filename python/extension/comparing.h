// Comparisons of two runs, for the package's own `compare`.
#pragma once

#include "pythonapi.h"

namespace vela::python {

/// Compares runs, given by repository and run ID, that may be in two repositories.
///
/// \param settings   any of "abs", "rel", "time" (numbers), "align", "signals" (texts); what is
///                   None or missing is as in RunComparisonOptions
/// \param isStoring  whether the comparison is kept; both runs are in the repository `baseline`
/// \returns a dict: "within" and "compared" (bool), "run" (ID or None), "rows" (a list of
///          dicts)
py::dict compareRuns(py::handle baseline, py::handle baselineRun, py::handle compared,
                     py::handle comparedRun, const py::dict& settings, bool isStoring);

}  // namespace vela::python
