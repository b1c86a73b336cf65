#include "objectmanager/repositorylock.h"

#include <pthread.h>

#include <new>

namespace vela {
namespace {

// Never destroyed: managers are still disconnected while the process ends.
alignas(std::recursive_mutex) unsigned char storage[sizeof(std::recursive_mutex)];

// In a forked child the lock may belong to a thread that exists in the parent only.
void makeNewLock() {
  new (storage) std::recursive_mutex;
}

std::recursive_mutex* makeFirstLock() {
  makeNewLock();
  pthread_atfork(nullptr, nullptr, makeNewLock);
  return std::launder(reinterpret_cast<std::recursive_mutex*>(storage));
}

}  // namespace

std::recursive_mutex& repositoryLock() {
  static std::recursive_mutex* const lock = makeFirstLock();
  return *lock;
}

}  // namespace vela
