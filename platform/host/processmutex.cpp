#include "host/processmutex.h"

#include <vector>

namespace host {
namespace {

struct Registry {
  std::mutex mutex;
  std::vector<ProcessMutex*> all;
};

// Never destroyed: the mutexes are members of static objects of other units.
Registry& registry() {
  static auto* const mutexes = new Registry;
  return *mutexes;
}

}  // namespace

ProcessMutex::ProcessMutex() {
  const std::lock_guard lock(registry().mutex);
  registry().all.push_back(this);
}

ProcessMutex::~ProcessMutex() {
  const std::lock_guard lock(registry().mutex);
  std::erase(registry().all, this);
}

void ProcessMutex::lockAll() {
  registry().mutex.lock();
  for (ProcessMutex* each : registry().all) each->lock();
}

void ProcessMutex::unlockAll() {
  for (ProcessMutex* each : registry().all) each->unlock();
  registry().mutex.unlock();
}

}  // namespace host
