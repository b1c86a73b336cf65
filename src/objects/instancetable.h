// The rows of the instance table, and what else an instance keeps in the repository.
#pragma once

#include <string>
#include <vector>

#include "objectmanager/objectmanager.h"

namespace vela {

/// IDs of the instances whose row has that flag, in creation order.
std::vector<long long> instancesWith(ObjectManager& manager, const std::string& flag);
/// Whether the instance has a row that is not closed.
bool isInstanceOpen(ObjectManager& manager, long long instanceID);

/// The own runs and comparison runs of an instance, which move or go with it. Runs of other
/// applications stay with the instance that made them.
kodd::Selection runsMovingWith(ObjectManager& manager, long long instanceID);

/// Removes the records of an instance that has no such runs any more: what it overwrites, the
/// numbers of runs that are gone, its plotted comparisons, its list and its counter, and, when
/// it is closed and has no run at all, its row. While it has such runs, which then are being
/// written, list and counter stay. To be called in a unit of work.
void removeInstanceRecords(ObjectManager& manager, long long instanceID);

}  // namespace vela
