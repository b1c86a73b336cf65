// A lock that spins for a while before it sleeps, for sections of a few instructions.
#pragma once

#include <mutex>

namespace host {

/// Re-entrant. Meets the requirements of std::lock_guard.
class CriticalSection {
 public:
  /// \param spinCount  attempts before the thread is put to sleep
  explicit CriticalSection(unsigned spinCount) : spinCount_(spinCount) {}

  void lock() {
    for (unsigned attempt = 0; attempt < spinCount_; ++attempt) {
      if (mutex_.try_lock()) return;
    }
    mutex_.lock();
  }
  bool try_lock() { return mutex_.try_lock(); }
  void unlock() { mutex_.unlock(); }

 private:
  const unsigned spinCount_;
  std::recursive_mutex mutex_;
};

}  // namespace host
