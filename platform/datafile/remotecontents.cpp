#include "datafile/remotecontents.h"

#include <poll.h>

#include <algorithm>
#include <numeric>
#include <system_error>

#include "datafile/readfailure.h"
#include "host/interrupt.h"

namespace datafile {
namespace {

using Kind = ReadFailure::Kind;
using std::chrono::seconds;

/// After so long without a word the other process has lost its way. A disk that has to start
/// up answers sooner.
constexpr seconds kLongestSilence{8};
/// What is added to that, for all waiting together, per megabyte of the file.
constexpr seconds kPerMegabyte{1};

/// While waiting, so often the host is asked whether to go on.
constexpr std::chrono::milliseconds kBetweenQuestions{100};

[[noreturn]] void raiseConfused() {
  throw ReadFailure(Kind::invalid, "the program that reads it was led astray");
}

[[noreturn]] void raiseLate() {
  throw ReadFailure(Kind::invalid, "the program that reads it took too long and was ended");
}

}  // namespace

RemoteContents::RemoteContents(int file, std::uint64_t fileBytes)
    : fileBytes_(fileBytes),
      patience_(kLongestSilence + kPerMegabyte * static_cast<std::int64_t>(fileBytes >> 20)),
      program_(file) {
  for (;;) {
    const Message message = receive();
    switch (message.answer) {
      case Answer::working:
        break;
      case Answer::unreadable:
        throw ReadFailure(Kind::unreadable, message.body);
      case Answer::refused:
        throw ReadFailure(Kind::invalid, message.body);
      case Answer::variables:
        takeVariables(message.body);
        break;
      case Answer::listed:
        return;
      case Answer::read:
        raiseConfused();
    }
  }
}

Message RemoteContents::receive() {
  const Clock::time_point begin = Clock::now();
  waitUntil(begin + std::min<Clock::duration>(patience_, kLongestSilence));
  std::optional<Message> message = receiveMessage(program_.socket());
  if (!message) raiseEnded();
  hasStarted_ = true;
  patience_ -= Clock::now() - begin;
  if (patience_ <= Clock::duration::zero()) raiseLate();
  return std::move(*message);
}

void RemoteContents::waitUntil(Clock::time_point latest) const {
  using std::chrono::milliseconds;
  pollfd socket{program_.socket(), POLLIN, 0};
  for (;;) {
    const auto left = std::chrono::ceil<milliseconds>(latest - Clock::now());
    const milliseconds step = std::clamp(left, milliseconds(0), kBetweenQuestions);
    if (poll(&socket, 1, static_cast<int>(step.count())) > 0) return;
    host::stopIfInterrupted("read a data file");
    if (left <= milliseconds(0)) raiseLate();
  }
}

void RemoteContents::raiseEnded() {
  const std::string how = program_.end();
  if (hasStarted_) {
    throw ReadFailure(Kind::invalid, "the program that reads it " + how);
  }
  throw ReadFailure(Kind::unreadable, "\"" + ReadingProgram::path().string() +
                                          "\", which reads it, " + how +
                                          " before it could begin");
}

// A variable takes more room in the file than its name and two numbers.
void RemoteContents::takeVariables(const std::string& body) {
  std::optional<std::vector<Entry>> entries = entriesIn(body);
  toldBytes_ += body.size();
  if (!entries || toldBytes_ > fileBytes_) raiseConfused();
  for (Entry& entry : *entries) {
    if (entry.bytes > fileBytes_) raiseConfused();
    variables_.push_back(std::move(entry));
  }
}

std::shared_ptr<RemoteContents::Delivery> RemoteContents::request(std::vector<Piece> pieces) {
  const std::uint64_t bytes =
      std::transform_reduce(pieces.begin(), pieces.end(), std::uint64_t{0}, std::plus<>(),
                            [](const Piece& piece) { return piece.length; });
  try {
    awaited_.push_back(std::make_shared<Delivery>(std::move(pieces), bytes));
  } catch (const std::system_error& error) {
    throw ReadFailure(Kind::unreadable, error.what());
  }
  const Delivery& delivery = *awaited_.back();
  if (!sendRequest(program_.socket(), delivery.pieces, delivery.memory.descriptor())) {
    raiseEnded();
  }
  return awaited_.back();
}

void RemoteContents::await(const Delivery& delivery) {
  while (!delivery.isThere) takeDelivery(receive());
}

void RemoteContents::takeDelivery(const Message& message) {
  if (message.answer != Answer::read || awaited_.empty()) raiseConfused();
  const std::shared_ptr<Delivery> delivery = std::move(awaited_.front());
  awaited_.pop_front();
  try {
    if (message.count > delivery->pieces.size() || !delivery->memory.seal()) raiseConfused();
  } catch (const std::system_error& error) {
    throw ReadFailure(Kind::unreadable, error.what());
  }
  delivery->complete = message.count;
  delivery->reason = message.body;
  delivery->isThere = true;
}

}  // namespace datafile
