// The store's error container and the exception it is raised as.
#pragma once

#include <exception>
#include <string>
#include <vector>

#include "kodiag/message.h"

namespace kodiag {

namespace except {

/// A failure with its message ID and everything that led to it.
class ExceptionWithCauses : public std::exception {
 public:
  explicit ExceptionWithCauses(Message message);

  const Message& message() const { return message_; }
  /// The joined message ID, "KODD:kodd:InvalidProperty".
  std::string id() const { return message_.id.str(); }
  /// The text with its causes, UTF-8.
  const char* what() const noexcept override { return what_.c_str(); }

  /// The message at the bottom of the units of work it travelled through: what a caller can act
  /// on.
  const Message& innermost() const;

 private:
  Message message_;
  std::string what_;
};

}  // namespace except

namespace util {

/// Where a store call leaves its errors; empty when it succeeded.
class diagnostics {
 public:
  diagnostics() = default;
  explicit diagnostics(const except::ExceptionWithCauses& exception);
  explicit diagnostics(Message message);

  static diagnostics getEmptyInstance() { return {}; }

  bool empty() const { return messages_.empty(); }
  void clear() { messages_.clear(); }
  void add(Message message) { messages_.push_back(std::move(message)); }
  void append(const diagnostics& other);
  const std::vector<Message>& messages() const { return messages_; }

  /// The first message as an exception, with the later ones among its causes. Empties this
  /// object. Must not be called on an empty one.
  except::ExceptionWithCauses extractExceptionWithCauses();
  /// Raises what is here; does nothing when empty.
  void raiseIfAny();

 private:
  std::vector<Message> messages_;
};

}  // namespace util
}  // namespace kodiag
