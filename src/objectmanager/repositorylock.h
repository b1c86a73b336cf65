// The lock of the process for functions that must not run beside each other.
#pragma once

#include <mutex>

namespace vela {

/// The process-wide repository lock, shared by all managers; may be taken again by the thread
/// that holds it. It is held by ObjectManager::threadSafeEval and while repositories are opened
/// and closed; units of work do not need it. First in the lock order: take it before the turn
/// to write or an instance lock. A forked child starts with a free one. Lives until the process
/// ends.
std::recursive_timed_mutex& repositoryLock();

/// The repository lock for a scope.
class RepositoryGuard {
 public:
  /// \throws "KODD:kodd:RepositoryBusy", naming what holds it, after the busy timeout;
  ///         "KODD:kodd:Interrupted"
  explicit RepositoryGuard(const char* operation);
  ~RepositoryGuard();
  RepositoryGuard(const RepositoryGuard&) = delete;
  RepositoryGuard& operator=(const RepositoryGuard&) = delete;

 private:
  const char* outer_;  ///< what held it before, when it is taken again
};

}  // namespace vela
