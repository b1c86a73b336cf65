// What keeps fork() and the engine's calls apart.
#pragma once

#include <atomic>
#include <mutex>
#include <thread>

namespace sqldb {

/// Entered around calls of the engine on one connection, by one thread at a time; the thread
/// inside may enter again.
///
/// fork() waits until every gate of the process is free, so that no lock of the engine is taken
/// in the child by a thread that exists in the parent only. Therefore nobody stays inside
/// while a caller's function runs or while waiting for a lock of ours.
class EngineGate {
 public:
  EngineGate();
  ~EngineGate();
  EngineGate(const EngineGate&) = delete;
  EngineGate& operator=(const EngineGate&) = delete;

  void enter() {
    const std::thread::id self = std::this_thread::get_id();
    if (inside_.load(std::memory_order_relaxed) != self) {
      if (isForking_.load(std::memory_order_relaxed)) [[unlikely]] {
        letForkPass();
      }
      mutex_.lock();
      inside_.store(self, std::memory_order_relaxed);
      ++gatesInside_;
    }
    ++depth_;
  }
  void leave() noexcept {
    if (--depth_ > 0) return;
    --gatesInside_;
    inside_.store(std::thread::id(), std::memory_order_relaxed);
    mutex_.unlock();
  }

  class Scope {
   public:
    explicit Scope(EngineGate& gate) : gate_(gate) { gate.enter(); }
    ~Scope() { gate_.leave(); }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    EngineGate& gate_;
  };

  /// Outside for a wait, however often this thread has entered.
  class Pause {
   public:
    explicit Pause(EngineGate& gate) : gate_(gate), depth_(gate.leaveWholly()) {}
    ~Pause() { gate_.enterAgain(depth_); }
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;

   private:
    EngineGate& gate_;
    int depth_;
  };

  /// Whether this thread is inside this gate and no other. Inside another one it must not step
  /// aside from this: a fork that waits for the other would wait for ever.
  bool isOnlyOneEntered() const {
    return gatesInside_ == 1 &&
           inside_.load(std::memory_order_relaxed) == std::this_thread::get_id();
  }

  /// Aside for a question to the host in the middle of a call, where the engine holds none of
  /// its locks: a fork need not wait for the answer, and the call goes on only after it. Needs
  /// isOnlyOneEntered().
  class Aside {
   public:
    explicit Aside(EngineGate& gate) : gate_(gate) { gate.isAside_ = true; }
    ~Aside() { gate_.comeBack(); }
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;

   private:
    EngineGate& gate_;
  };

  /// The gate for opening and closing connections.
  static EngineGate& ofOpening();

  /// Takes all gates for this thread, save those it is inside of and those whose thread is
  /// aside; freed by the second function in the parent, by the third in the child.
  static void closeAllForFork();
  static void openAllAfterFork() noexcept;
  static void openAllInChild() noexcept;

 private:
  int leaveWholly() noexcept;
  void comeBack() noexcept;
  void enterAgain(int depth);
  static void letForkPass();

  static std::atomic<bool> isForking_;
  static inline thread_local int gatesInside_ = 0;

  std::mutex mutex_;
  std::atomic<std::thread::id> inside_{};
  int depth_ = 0;
  std::atomic<bool> isAside_{false};
  bool isTakenForFork_ = false;
};

}  // namespace sqldb
