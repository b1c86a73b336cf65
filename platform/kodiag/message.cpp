#include "kodiag/message.h"

#include "kodiag/catalog.h"
#include "kodiag/diagnostics.h"

namespace kodiag {
namespace {

void appendCauses(const Message& message, std::size_t depth, std::string& out) {
  for (const Message& cause : message.causes) {
    out += "\n" + std::string(2 * depth, ' ') + "because: " + cause.text();
    appendCauses(cause, depth + 1, out);
  }
}

}  // namespace

std::string Message::text() const {
  return catalogText(id, arguments);
}

std::string Message::textWithCauses() const {
  std::string out = text();
  appendCauses(*this, 1, out);
  return out;
}

void raise(MessageID id, Arguments arguments, std::vector<Message> causes) {
  throw except::ExceptionWithCauses(
      Message{std::move(id), std::move(arguments), std::move(causes), nullptr});
}

}  // namespace kodiag
