// How a table of text is laid out: delimiter, decimal mark, header, units, time column.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "formats/filehead.h"
#include "formats/reader.h"

namespace formats {

struct CsvColumn {
  std::string name;  ///< unique in the table
  std::string unit;
  bool isNamed = true;  ///< whether the name is the file's
};

struct CsvLayout {
  char delimiter = ',';
  char decimal = '.';
  bool hasHeader = false;
  bool hasUnitRow = false;
  std::vector<CsvColumn> columns;
  std::size_t timeColumn = 0;  ///< index into columns
  std::vector<std::string> notices;

  std::size_t leadingRecords() const { return (hasHeader ? 1 : 0) + (hasUnitRow ? 1 : 0); }
};

/// Finds out what the options leave open, from the first records of the file.
/// \throws ExceptionWithCauses "VELA:vela:InvalidReadOption", "VELA:vela:BrokenCsvFile"
CsvLayout findCsvLayout(const FileHead& head, const ReadOptions& options);

/// Whether the file is a table of text: by its name, or because its records agree in their
/// length and hold mostly numbers.
bool looksLikeCsv(const FileHead& head, const ReadOptions& options);

[[noreturn]] void raiseBrokenCsv(const std::string& name, std::uint64_t line,
                                 const std::string& reason);

}  // namespace formats
