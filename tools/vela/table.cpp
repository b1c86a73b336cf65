#include "tools/vela/table.h"

#include <algorithm>
#include <utility>

#include "text/printable.h"

namespace vela::tool {
namespace {

// Characters, not bytes: bytes that continue a UTF-8 character take no room of their own.
std::size_t displayWidth(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
  }));
}

}  // namespace

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {
  for (Column& column : columns_) column.title = text::printable(column.title);
}

void Table::addRow(std::vector<std::string> cells) {
  for (std::string& cell : cells) cell = text::printable(cell);
  rows_.push_back(std::move(cells));
}

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

}  // namespace vela::tool
