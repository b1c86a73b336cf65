#include "tools/vela/table.h"

#include <algorithm>

namespace vela::tool {
namespace {

// Characters, not bytes: bytes that continue a UTF-8 character take no room of their own.
std::size_t displayWidth(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
  }));
}

}  // namespace

std::string Table::str() const {
  std::vector<std::size_t> widths;
  for (const Column& column : columns_) widths.push_back(displayWidth(column.title));
  for (const std::vector<std::string>& row : rows_) {
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], displayWidth(row[i]));
    }
  }

  std::string out;
  const auto addLine = [&](auto&& cellAt) {
    std::string line;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const std::string& cell = cellAt(i);
      const std::string blanks(widths[i] - displayWidth(cell), ' ');
      if (i > 0) line += "  ";
      line += columns_[i].align == Align::right ? blanks + cell : cell + blanks;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out += line + "\n";
  };
  addLine([&](std::size_t i) -> const std::string& { return columns_[i].title; });
  for (const std::vector<std::string>& row : rows_) {
    addLine([&](std::size_t i) -> const std::string& { return row[i]; });
  }
  return out;
}

std::string printable(std::string text) {
  for (char& c : text) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = '?';
  }
  return text;
}

}  // namespace vela::tool
