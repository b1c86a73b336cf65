#include "sqldb/processstate.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <mutex>
#include <new>
#include <thread>
#include <vector>

#include "host/processmutex.h"
#include "sqldb/enginegate.h"

namespace sqldb {
namespace {

struct ProcessState {
  std::mutex mutex;
  std::vector<ForkParticipant*> participants;
  std::vector<FileIdentity> unusableFiles;
  std::map<FileIdentity, std::thread::id> writers;
  struct Index {
    FileIdentity identity;
    int users = 0;
  };
  std::map<FileIdentity, Index> indexes;  ///< by repository file
};

// Leaked on purpose: connections that other objects with static storage own may outlive any
// destructor here, and fork handlers cannot be taken back.
ProcessState& state() {
  static ProcessState& instance = *new ProcessState;
  return instance;
}

std::atomic<unsigned> generation{0};

void beforeFork() {
  // The gates first: whoever is inside one may want the state.
  EngineGate::closeAllForFork();
  state().mutex.lock();
  host::ProcessMutex::lockAll();
  for (ForkParticipant* each : state().participants) each->prepareFork();
}

void afterForkInParent() {
  host::ProcessMutex::unlockAll();
  state().mutex.unlock();
  EngineGate::openAllAfterFork();
}

void afterForkInChild() {
  generation.fetch_add(1, std::memory_order_relaxed);
  // The one thread of the child may carry the number of a thread that held a lock in the
  // parent.
  state().writers.clear();
  state().indexes.clear();
  for (ForkParticipant* each : state().participants) each->abandonInChild();
  host::ProcessMutex::unlockAll();
  state().mutex.unlock();
  EngineGate::openAllInChild();
}

void installForkHandlers() {
  static const int result = pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
  if (result != 0) throw std::bad_alloc();  // the only failure there is
}

}  // namespace

void joinForks(ForkParticipant& participant) {
  installForkHandlers();
  const std::lock_guard guard(state().mutex);
  state().participants.push_back(&participant);
}

void leaveForks(ForkParticipant& participant) noexcept {
  const std::lock_guard guard(state().mutex);
  std::erase(state().participants, &participant);
}

void markUnusableAfterFork(FileIdentity file) {
  const std::lock_guard guard(state().mutex);
  state().unusableFiles.push_back(file);
}

bool clearInheritedHandles(FileIdentity file) {
  // Handles are closed below; whoever forks has the gates before the state.
  const EngineGate::Scope gate(EngineGate::ofOpening());
  const std::lock_guard guard(state().mutex);
  const auto& unusable = state().unusableFiles;
  if (std::find(unusable.begin(), unusable.end(), file) != unusable.end()) return false;
  return std::all_of(state().participants.begin(), state().participants.end(),
                     [&](ForkParticipant* each) { return each->makeWayInChild(file); });
}

unsigned forkGeneration() {
  return generation.load(std::memory_order_relaxed);
}

bool isWrittenByThisThread(FileIdentity lockFile) {
  const std::lock_guard guard(state().mutex);
  const auto found = state().writers.find(lockFile);
  return found != state().writers.end() && found->second == std::this_thread::get_id();
}

void setWriter(FileIdentity lockFile) {
  const std::lock_guard guard(state().mutex);
  state().writers[lockFile] = std::this_thread::get_id();
}

void clearWriter(FileIdentity lockFile) noexcept {
  const std::lock_guard guard(state().mutex);
  state().writers.erase(lockFile);
}

bool useIndex(FileIdentity file, FileIdentity index) {
  const std::lock_guard guard(state().mutex);
  const auto place = state().indexes.try_emplace(file, ProcessState::Index{index, 0}).first;
  if (place->second.identity != index) return false;
  ++place->second.users;
  return true;
}

void giveBackIndex(FileIdentity file) noexcept {
  const std::lock_guard guard(state().mutex);
  const auto place = state().indexes.find(file);
  if (place != state().indexes.end() && --place->second.users == 0) {
    state().indexes.erase(place);
  }
}

}  // namespace sqldb
