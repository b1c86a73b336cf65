// A stored signal as a series the comparison can read.
#pragma once

#include <optional>

#include "comparison/series.h"
#include "objects/signal.h"

namespace vela {

/// None when the signal carries no numbers. Borrows the signal, which must outlive the series.
/// \throws "nexstore:nex:InvalidSetting" when its interpolation method is unknown
std::optional<comparison::Series> seriesOf(Signal& signal);

}  // namespace vela
