#include "sqldb/enginegate.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <utility>
#include <vector>

namespace sqldb {
namespace {

/// How long a newcomer stands back while somebody forks. It may be inside another gate, which
/// the fork waits for, so that it must not wait for ever.
constexpr int kCourtesyRounds = 100;
constexpr std::chrono::microseconds kCourtesyPause{50};

struct Registry {
  std::mutex mutex;
  std::vector<EngineGate*> gates;
};

// Leaked on purpose: gates of objects with static storage may outlive any destructor here.
Registry& registry() {
  static Registry& instance = *new Registry;
  return instance;
}

}  // namespace

std::atomic<bool> EngineGate::isForking_{false};

EngineGate::EngineGate() {
  const std::lock_guard guard(registry().mutex);
  registry().gates.push_back(this);
}

EngineGate::~EngineGate() {
  const std::lock_guard guard(registry().mutex);
  std::erase(registry().gates, this);
}

EngineGate& EngineGate::ofOpening() {
  static EngineGate& instance = *new EngineGate;
  return instance;
}

int EngineGate::leaveWholly() noexcept {
  if (inside_.load(std::memory_order_relaxed) != std::this_thread::get_id()) return 0;
  const int depth = std::exchange(depth_, 1);
  leave();
  return depth;
}

void EngineGate::enterAgain(int depth) {
  if (depth == 0) return;
  enter();
  depth_ = depth;
}

void EngineGate::comeBack() noexcept {
  // Seen by a fork that begins now, or else its beginning is seen here.
  isAside_ = false;
  while (isForking_) {
    isAside_ = true;
    std::this_thread::sleep_for(kCourtesyPause);
    isAside_ = false;
  }
}

void EngineGate::letForkPass() {
  for (int i = 0; i < kCourtesyRounds && isForking_.load(std::memory_order_relaxed); ++i) {
    std::this_thread::sleep_for(kCourtesyPause);
  }
}

void EngineGate::closeAllForFork() {
  registry().mutex.lock();
  isForking_ = true;
  const std::thread::id self = std::this_thread::get_id();
  // All or none at a time: whoever is inside one gate may want another.
  for (EngineGate* blocked = nullptr;;) {
    if (std::exchange(blocked, nullptr) != nullptr) std::this_thread::yield();
    for (EngineGate* gate : registry().gates) {
      if (gate->isAside_ || gate->inside_.load(std::memory_order_relaxed) == self) continue;
      if (!gate->mutex_.try_lock()) {
        blocked = gate;
        break;
      }
      gate->isTakenForFork_ = true;
    }
    if (blocked == nullptr) return;
    for (EngineGate* gate : registry().gates) {
      if (std::exchange(gate->isTakenForFork_, false)) gate->mutex_.unlock();
    }
  }
}

void EngineGate::openAllAfterFork() noexcept {
  for (EngineGate* gate : registry().gates) {
    if (std::exchange(gate->isTakenForFork_, false)) gate->mutex_.unlock();
  }
  isForking_ = false;
  registry().mutex.unlock();
}

void EngineGate::openAllInChild() noexcept {
  const std::thread::id self = std::this_thread::get_id();
  for (EngineGate* gate : registry().gates) {
    const std::thread::id inside = gate->inside_;
    if (inside == std::thread::id() || inside == self) continue;
    // Its thread, which was aside, exists in the parent only.
    new (&gate->mutex_) std::mutex;
    gate->inside_ = std::thread::id();
    gate->depth_ = 0;
    gate->isAside_ = false;
  }
  openAllAfterFork();
}

}  // namespace sqldb
