// The lock under which the process runs dictionary functions one at a time.
#pragma once

#include <mutex>

namespace vela {

/// The process-wide repository lock, shared by all managers; may be taken again by the thread
/// that holds it. First in the lock order: take it before an instance lock or a store's mutex.
/// A forked child starts with a free one. Lives until the process ends.
std::recursive_mutex& repositoryLock();

}  // namespace vela
