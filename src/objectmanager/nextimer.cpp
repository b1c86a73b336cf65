#include "objectmanager/nextimer.h"

#include <chrono>

namespace vela {
namespace {

double clockSeconds() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

}  // namespace

std::unique_ptr<NexTimer> NexTimer::s_pAQTimer;

NexTimer& NexTimer::getInstance() {
  static std::once_flag made;
  std::call_once(made, [] { s_pAQTimer.reset(new NexTimer); });
  return *s_pAQTimer;
}

void NexTimer::log(const std::string& name, const TimerAction& action) {
  // Before the lock, for which one may have to wait.
  const double now = clockSeconds();
  std::lock_guard lock(mutex_);
  if (action == startTimer) {
    starts_[name] = now;
    ++counts_[name];
    return;
  }
  const auto start = starts_.find(name);
  if (start == starts_.end()) return;
  getElapsedTimeRef(name) += now - start->second;
  starts_.erase(start);
}

void NexTimer::reset() {
  std::lock_guard lock(mutex_);
  elapsed_.clear();
  counts_.clear();
}

std::unique_ptr<host::HostArray> NexTimer::getTimerResults() const {
  using host::HostArray;
  std::lock_guard lock(mutex_);
  HostArray::Fields timers;
  for (const auto& [name, seconds] : elapsed_) {
    const auto count = counts_.find(name);
    const double average = count == counts_.end() ? 0 : seconds / count->second;
    timers.emplace_back(name, HostArray::structure({{"Total", HostArray::scalar(seconds)},
                                                    {"Average", HostArray::scalar(average)}}));
  }
  return std::make_unique<HostArray>(HostArray::structure(std::move(timers)));
}

double& NexTimer::getElapsedTimeRef(const std::string& name) {
  return elapsed_.try_emplace(name, 0.0).first->second;
}

}  // namespace vela
