// A stored signal as a series the comparison can read.
#pragma once

#include <optional>

#include "comparison/series.h"
#include "objects/signal.h"

namespace vela {

/// None when the signal carries no numbers. Borrows the signal, which must outlive the series.
/// \throws "nexstore:nex:InvalidSetting" when its interpolation method is unknown
std::optional<comparison::Series> seriesOf(Signal& signal);
/// Whether neither is an enumeration, or both are one of the same name and enumerators: every
/// session, and every repository, stores enumerations of its own.
bool haveSameKind(const Signal& baseline, const Signal& compareTo);

}  // namespace vela
