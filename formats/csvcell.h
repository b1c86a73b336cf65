// One cell of a table of text: what kind of value it holds.
#pragma once

#include <cstdint>
#include <string_view>

namespace formats {

enum class CellKind { kMissing, kBoolean, kInteger, kReal, kText };

struct Cell {
  CellKind kind = CellKind::kMissing;
  std::int64_t integer = 0;  ///< of kInteger; 0 or 1 of kBoolean
  double real = 0;           ///< of all but kText; NaN of kMissing
};

/// Reads a cell, blanks around it left out. Missing are: nothing, "NaN", "NA", "N/A" and "NULL"
/// in any case. "true" and "false" are booleans in any case. An integer that int64 does not
/// hold, and "-0", are reals. \param decimal  '.' or ','
Cell readCell(std::string_view text, char decimal);

}  // namespace formats
