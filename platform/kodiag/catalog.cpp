#include "kodiag/catalog.h"

#include <map>
#include <sstream>

extern const char* const kMessageCatalog[];

namespace kodiag {
namespace {

using Catalog = std::map<std::string, std::string, std::less<>>;

Catalog readCatalog() {
  Catalog catalog;
  for (const char* const* file = kMessageCatalog; *file; ++file) {
    std::istringstream lines(*file);
    for (std::string line; std::getline(lines, line);) {
      if (line.empty() || line.front() == '#') continue;
      const std::size_t idEnd = line.find_first_of(" \t");
      const std::size_t textStart = line.find_first_not_of(" \t", idEnd);
      if (textStart != std::string::npos) {
        catalog.emplace(line.substr(0, idEnd), line.substr(textStart));
      }
    }
  }
  return catalog;
}

const Catalog& catalog() {
  static const Catalog texts = readCatalog();
  return texts;
}

// Read when the library is loaded: a fork in the middle of the first use would leave it half
// made in the child, whose first message would wait for the rest for ever.
[[maybe_unused]] const Catalog& readAtStart = catalog();

std::string argumentNamed(const Arguments& arguments, const std::string& name) {
  for (const auto& [argument, value] : arguments) {
    if (argument == name) return value;
  }
  return {};
}

std::string fill(const std::string& text, const Arguments& arguments) {
  std::string out;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t open = text.find('{', at);
    const std::size_t close = text.find('}', open);
    if (close == std::string::npos) break;
    out += text.substr(at, open - at);
    out += argumentNamed(arguments, text.substr(open + 1, close - open - 1));
    at = close + 1;
  }
  return out + text.substr(at);
}

}  // namespace

std::string catalogText(const MessageID& id, const Arguments& arguments) {
  const auto found = catalog().find(id.str());
  if (found != catalog().end()) return fill(found->second, arguments);
  std::string text = id.str();
  for (const auto& [name, value] : arguments) text += " " + name + "=\"" + value + "\"";
  return text;
}

std::vector<std::string> catalogIDs() {
  std::vector<std::string> ids;
  for (const auto& [id, text] : catalog()) ids.push_back(id);
  return ids;
}

}  // namespace kodiag
