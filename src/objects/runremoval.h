// Removal of runs with everything that belongs to them.
#pragma once

#include <vector>

#include "objectmanager/objectmanager.h"

namespace vela {

/// Refuses runs that are being written. \throws "nexstore:nex:DeleteStreamingSignal"
void refuseStreamingRuns(ObjectManager& manager, const std::vector<int>& runIDs);

/// Removes the runs, streaming or not; IDs without a run are ignored. To be called in a unit of
/// work. \returns how many runs there were
int removeRunsWithAll(ObjectManager& manager, const std::vector<int>& runIDs);

/// This instance's runs that a purge removes, in creation order.
std::vector<int> purgeableRuns(ObjectManager& manager);

/// Makes the file a little smaller after a removal, if it can be done now.
void giveSomeSpaceBack(ObjectManager& manager);

}  // namespace vela
