// Where imported data came from.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "formats/reader.h"

namespace formats {

struct Provenance {
  std::string file;  ///< absolute path, UTF-8
  std::uint64_t sizeBytes = 0;
  std::string sha256;   ///< 64 lower-case hexadecimal digits
  std::string options;  ///< as optionsText()
};

/// \param summary  of the reader that read the file with these options
Provenance provenanceOf(const std::filesystem::path& path, const Summary& summary,
                        const ReadOptions& options);

}  // namespace formats
