// The settings of a comparison: from options, signals and what a stored comparison was made
// with.
#pragma once

#include "objects/set.h"
#include "objects/signal.h"
#include "runcomparison/runcomparison.h"

namespace vela {

/// \throws "nexstore:nex:InvalidSetting" for numbers no comparison can be made with
void checkSettings(const RunComparisonOptions& options);
/// Fills in what a row is compared with, from the options and, where they set nothing,
/// `signal`.
void applySettings(const Signal& signal, const RunComparisonOptions& options,
                   ComparedSignal& row);
/// Keeps the tolerances and alignment of a row on its comparison signal.
void storeSettings(Signal& comparison, const ComparedSignal& row);
/// Keeps on a comparison run what its signals have no place for.
void storeRunSettings(Set& run, const RunComparisonOptions& options);
/// The options, completed by what storeRunSettings kept; without defaults for tolerances.
RunComparisonOptions withStoredSettings(RunComparisonOptions options, const Set& run);

}  // namespace vela
