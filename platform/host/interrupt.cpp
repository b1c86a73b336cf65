#include "host/interrupt.h"

#include <atomic>
#include <chrono>
#include <string>

#include "kodiag/diagnostics.h"
#include "kodiag/message.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

/// Rare enough to cost nothing, often enough for a person.
constexpr std::chrono::milliseconds kBetweenPolls{20};

std::atomic<InterruptPoll> installedPoll = nullptr;

thread_local Clock::time_point nextPoll;
thread_local int uninterruptibleScopes = 0;

}  // namespace

void setInterruptPoll(InterruptPoll poll) noexcept {
  installedPoll = poll;
}

bool isInterrupted() noexcept {
  const InterruptPoll poll = installedPoll.load(std::memory_order_acquire);
  if (poll == nullptr || uninterruptibleScopes > 0) return false;
  const Clock::time_point now = Clock::now();
  if (now < nextPoll) return false;
  nextPoll = now + kBetweenPolls;
  return poll();
}

void stopIfInterrupted(std::string_view operation) {
  if (!isInterrupted()) return;
  kodiag::raise({"KODD:kodd", "Interrupted"}, {{"Operation", std::string(operation)}});
}

bool isInterruption(const kodiag::except::ExceptionWithCauses& failure) {
  return failure.innermost().id == kodiag::MessageID{"KODD:kodd", "Interrupted"};
}

Uninterruptible::Uninterruptible() noexcept {
  ++uninterruptibleScopes;
}

Uninterruptible::~Uninterruptible() {
  --uninterruptibleScopes;
}

}  // namespace host
