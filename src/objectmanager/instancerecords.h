// The rows an instance keeps about itself in a repository: that it exists, and its run order.
#pragma once

#include <functional>

namespace vela {

class ObjectManager;

/// Where new instances show their runs: 1 at the top, 0 at the bottom.
using ShowAtTopPreference = std::function<int()>;
/// Asked whenever a run-order record is created; without one, or when it throws, it is 0.
void setShowAtTopPreference(ShowAtTopPreference preference);

namespace instancerecords {

/// Every function needs an open repository and does nothing where its package lacks the
/// classes. Instance 0 (a manager on a file of its own) and ObjectManager::RACCEL_INSTANCE_ID
/// have no row in the instance table.

/// Marks the manager's instance as living, makes sure its row in the instance table exists and
/// is open, and that it has exactly one run-order record. Writes only what is missing.
void ensure(ObjectManager& manager);
/// Gives up an instance ID: it lives no longer, and its rows go when it has no runs.
void abandon(ObjectManager& manager, long long instanceID);
/// Marks the manager's own row closed.
void close(ObjectManager& manager);
/// Marks the open rows of instances whose process is gone closed and crashed; leaves living
/// ones alone.
void closeDead(ObjectManager& manager);

}  // namespace instancerecords
}  // namespace vela
