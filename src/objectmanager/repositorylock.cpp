#include "objectmanager/repositorylock.h"

#include <pthread.h>

#include <atomic>
#include <chrono>
#include <new>

#include "host/interrupt.h"
#include "kodd/datamodelrepository.h"
#include "kodiag/message.h"

namespace vela {
namespace {

// Never destroyed: managers are still disconnected while the process ends.
alignas(std::recursive_timed_mutex) unsigned char storage[sizeof(std::recursive_timed_mutex)];

std::atomic<const char*> holder{nullptr};

// In a forked child the lock may belong to a thread that exists in the parent only.
void makeNewLock() {
  new (storage) std::recursive_timed_mutex;
  holder = nullptr;
}

std::recursive_timed_mutex* makeFirstLock() {
  makeNewLock();
  pthread_atfork(nullptr, nullptr, makeNewLock);
  return std::launder(reinterpret_cast<std::recursive_timed_mutex*>(storage));
}

/// Waits in naps, between which the call may be stopped.
bool lockWithin(std::chrono::milliseconds patience, const char* operation) {
  constexpr std::chrono::milliseconds kNap{50};
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!repositoryLock().try_lock_for(kNap)) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    host::stopIfInterrupted(operation);
  }
  return true;
}

}  // namespace

std::recursive_timed_mutex& repositoryLock() {
  static std::recursive_timed_mutex* const lock = makeFirstLock();
  return *lock;
}

RepositoryGuard::RepositoryGuard(const char* operation) {
  const auto patience = kodd::DataModelRepository::Options().busyTimeout;
  if (!lockWithin(patience, operation)) {
    const char* const held = holder;
    kodiag::raise({"KODD:kodd", "RepositoryBusy"},
                  {{"Operation", operation},
                   {"Location", "the repository lock of this process"},
                   {"Reason", "\"" + std::string(held ? held : "a function") +
                                  "\" of another thread did not end within " +
                                  std::to_string(patience.count()) + " ms"}});
  }
  outer_ = holder.exchange(operation);
}

RepositoryGuard::~RepositoryGuard() {
  holder = outer_;
  repositoryLock().unlock();
}

}  // namespace vela
