// A stopwatch with any number of hands, each with a name.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "host/arrays.h"

namespace vela {

/// What NexTimer::log does. Any other value stops as well.
enum TimerAction : int { startTimer = 0, stopTimer = 1 };

/// Wall-clock times of the process's work, by name. Threads: any.
class NexTimer {
 public:
  static NexTimer& getInstance();
  NexTimer(const NexTimer&) = delete;
  NexTimer& operator=(const NexTimer&) = delete;

  /// A stop without a start counts nothing; a start after a start begins anew.
  void log(const std::string& name, const TimerAction& action);
  /// Forgets times and counts. A measurement that is running is still added when it stops.
  void reset();
  /// A 1-by-1 structure with a field per name that was measured since the last reset: a 1-by-1
  /// structure of "Total" (seconds) and "Average" (per start; 0 when none was counted).
  std::unique_ptr<host::HostArray> getTimerResults() const;

 private:
  NexTimer() = default;
  double& getElapsedTimeRef(const std::string& name);

  static std::unique_ptr<NexTimer> s_pAQTimer;

  mutable std::mutex mutex_;
  std::map<std::string, double> starts_;  ///< seconds of the clock, of what is running
  std::map<std::string, double> elapsed_;
  std::map<std::string, int> counts_;
};

}  // namespace vela
