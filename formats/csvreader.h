// Reads tables of text (CSV): one run, one signal a column, ordered by its time column.
#pragma once

#include <filesystem>
#include <memory>

#include "formats/filehead.h"
#include "formats/reader.h"

namespace formats {

/// \param head  the first bytes of the file
/// \throws ExceptionWithCauses "VELA:vela:InvalidReadOption", "VELA:vela:BrokenCsvFile"
std::unique_ptr<Reader> openCsvReader(SteadyFile file, const FileHead& head,
                                      const ReadOptions& options);

}  // namespace formats
