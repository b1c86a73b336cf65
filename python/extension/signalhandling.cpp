#include "signalhandling.h"

#include <unistd.h>

#include <chrono>
#include <optional>

#include "errors.h"
#include "pythonapi.h"

namespace vela::python {
namespace {

using Clock = std::chrono::steady_clock;

/// Whoever computes in another thread may keep the lock from us for some milliseconds.
constexpr std::chrono::milliseconds kBetweenLooks(100);

// Of the main thread, the only one that handles signals.
Clock::time_point nextLook;
thread_local bool isInSignalHandler = false;
thread_local std::optional<PythonException> raisedByHandler;

/// Whether a handler raised. Without the lock.
bool handleSignals() {
  if (gettid() != getpid() || isPythonGone() || PyGILState_Check()) return false;
  const Clock::time_point now = Clock::now();
  if (now < nextLook) return false;
  nextLook = now + kBetweenLooks;
  const LockHolder lock;
  isInSignalHandler = true;
  const bool raised = PyErr_CheckSignals() != 0;
  isInSignalHandler = false;
  if (raised) raisedByHandler.emplace();
  return raised;
}

}  // namespace

namespace detail {

void refuseInSignalHandler() {
  if (!isInSignalHandler) return;
  PyErr_SetString(PyExc_RuntimeError,
                  "a signal handler cannot use repositories: it interrupts a call of one");
  throw py::error_already_set();
}

void raiseFromSignalHandler() {
  if (!raisedByHandler) return;
  const PythonException exception = *raisedByHandler;
  raisedByHandler.reset();
  throw exception;
}

}  // namespace detail

void handleSignalsDuringCalls() {
  host::setInterruptPoll(&handleSignals);
}

}  // namespace vela::python
