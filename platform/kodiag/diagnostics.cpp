#include "kodiag/diagnostics.h"

#include <cassert>
#include <utility>

namespace kodiag {
namespace except {

ExceptionWithCauses::ExceptionWithCauses(Message message)
    : message_(std::move(message)), what_(message_.textWithCauses()) {}

const Message& ExceptionWithCauses::innermost() const {
  const Message* message = &message_;
  while (message->id.key.starts_with("DictFuncThrew") && !message->causes.empty()) {
    message = &message->causes.front();
  }
  return *message;
}

}  // namespace except

namespace util {

diagnostics::diagnostics(const except::ExceptionWithCauses& exception)
    : messages_{exception.message()} {}

diagnostics::diagnostics(Message message) {
  messages_.push_back(std::move(message));
}

void diagnostics::append(const diagnostics& other) {
  messages_.insert(messages_.end(), other.messages_.begin(), other.messages_.end());
}

except::ExceptionWithCauses diagnostics::extractExceptionWithCauses() {
  assert(!messages_.empty());
  std::vector<Message> messages = std::exchange(messages_, {});
  Message first = std::move(messages.front());
  first.causes.insert(first.causes.end(), std::make_move_iterator(messages.begin() + 1),
                      std::make_move_iterator(messages.end()));
  return except::ExceptionWithCauses(std::move(first));
}

void diagnostics::raiseIfAny() {
  if (!empty()) throw extractExceptionWithCauses();
}

}  // namespace util
}  // namespace kodiag
