// A message: what went wrong, named by an ID that code can test and people can look up.
#pragma once

#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace kodiag {

/// A catalog component and a key: "KODD:kodd" and "InvalidProperty".
struct MessageID {
  std::string component;
  std::string key;

  /// The joined form, "KODD:kodd:InvalidProperty".
  std::string str() const { return component + ":" + key; }
  bool operator==(const MessageID&) const = default;
};

/// Named arguments of a message, put into its text at `{Name}`. All text is UTF-8.
using Arguments = std::vector<std::pair<std::string, std::string>>;

struct Message {
  MessageID id;
  Arguments arguments;
  std::vector<Message> causes;
  /// The foreign exception this message stands for, where there was one.
  std::exception_ptr original;

  /// The catalog's text with the arguments filled in; the ID and arguments when it has none.
  std::string text() const;
  /// text() followed by the texts of all causes, one a line, indented by depth.
  std::string textWithCauses() const;
};

/// Throws `except::ExceptionWithCauses` carrying the message.
[[noreturn]] void raise(MessageID id, Arguments arguments = {},
                        std::vector<Message> causes = {});

}  // namespace kodiag
