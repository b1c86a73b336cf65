// Removal of signals with everything that belongs to them.
#pragma once

#include <optional>
#include <vector>

#include "objectmanager/objectmanager.h"

namespace vela {

/// Deletes the signals with their chunks, metadata, observers and plotted comparisons, those of
/// `sources` (of class "SignalSource"; may be absent) that no signal names any more, and the
/// units no signal has any more: a fixed number of statements whatever the number of signals.
/// To be called in a unit of work.
///
/// \returns how many signals there were
long long removeSignals(ObjectManager& manager, const kodd::Selection& signals,
                        const std::optional<kodd::Selection>& sources);

/// \throws "nexstore:nex:DeleteStreamingSignal" when one of the signals is being written
void refuseStreamingSignals(ObjectManager& manager, const std::vector<int>& signals);

/// The signal and everything below it, parents before children.
std::vector<int> signalsBelow(ObjectManager& manager, int signal);

}  // namespace vela
