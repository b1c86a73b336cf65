// Stopping a call that takes long: the host is asked again and again whether it should go on.
#pragma once

#include <string_view>

namespace kodiag::except {
class ExceptionWithCauses;
}

namespace host {

/// Whether the call that this thread is in should stop. Answers true once for every request to
/// stop, so that undoing what was begun is not stopped too. Does not throw; touches no
/// repository.
using InterruptPoll = bool (*)();

/// Sets who is asked, process-wide; nullptr: nobody, and calls run to their end. Threads: any.
void setInterruptPoll(InterruptPoll poll) noexcept;

/// Asks the poll, at most every 20 ms a thread; false inside Uninterruptible.
///
/// Asked by the engine during every statement, by whoever waits for a lock, and by whoever
/// reads files.
bool isInterrupted() noexcept;

/// \param operation  what stops, for the message
/// \throws "KODD:kodd:Interrupted" if isInterrupted()
void stopIfInterrupted(std::string_view operation);

/// Whether the failure is a stop that was asked for: whoever goes on after failures passes
/// these on.
bool isInterruption(const kodiag::except::ExceptionWithCauses& failure);

/// While it lives nobody is asked in this thread: for steps that must not stop half-way.
class Uninterruptible {
 public:
  Uninterruptible() noexcept;
  ~Uninterruptible();
  Uninterruptible(const Uninterruptible&) = delete;
  Uninterruptible& operator=(const Uninterruptible&) = delete;
};

}  // namespace host
