#include "tools/vela/interruption.h"

#include <atomic>
#include <csignal>

#include "host/interrupt.h"

namespace vela::tool {
namespace {

std::atomic<bool> isStopWanted = false;
std::atomic<bool> hasCome = false;
static_assert(std::atomic<bool>::is_always_lock_free, "set in a signal handler");

void noteInterrupt(int) {
  hasCome = true;
  isStopWanted = true;
}

}  // namespace

void stopOnInterrupt() {
  struct sigaction before = {};
  if (sigaction(SIGINT, nullptr, &before) != 0 || before.sa_handler == SIG_IGN) return;
  struct sigaction once = {};
  once.sa_handler = noteInterrupt;
  // Whoever presses twice does not want to wait. No SA_RESTART: a question is waited for no
  // more.
  once.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &once, nullptr);
  host::setInterruptPoll([] { return isStopWanted.exchange(false); });
}

bool wasInterrupted() {
  return hasCome;
}

}  // namespace vela::tool
