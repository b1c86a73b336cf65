// Mutexes of the process that a fork finds free.
#pragma once

#include <mutex>

namespace host {

/// A mutex over state that all threads share, held for a moment and never while another one of
/// its kind, a lock of another kind or a caller's function is waited for.
///
/// Whoever forks takes all of them first, so that the child finds each of them free and what it
/// guards whole.
class ProcessMutex {
 public:
  ProcessMutex();
  ~ProcessMutex();
  ProcessMutex(const ProcessMutex&) = delete;
  ProcessMutex& operator=(const ProcessMutex&) = delete;

  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }

  static void lockAll();
  static void unlockAll();

 private:
  std::mutex mutex_;
};

}  // namespace host
