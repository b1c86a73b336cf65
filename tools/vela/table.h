// Aligned columns for people.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vela::tool {

/// Rows of text in columns as wide as their widest cell, two blanks between them; whatever the
/// cells hold is made printable.
class Table {
 public:
  enum class Align { left, right };
  struct Column {
    std::string title;
    Align align = Align::left;
  };

  explicit Table(std::vector<Column> columns);
  /// One cell per column.
  void addRow(std::vector<std::string> cells);
  /// Titles and rows, each line ended; trailing blanks cut.
  std::string str() const;

 private:
  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace vela::tool
