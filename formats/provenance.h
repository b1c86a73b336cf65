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

/// Reads the whole file once, in bounded memory.
/// \throws ExceptionWithCauses "VELA:vela:CannotReadFile"
Provenance provenanceOf(const std::filesystem::path& path, const ReadOptions& options);

}  // namespace formats
