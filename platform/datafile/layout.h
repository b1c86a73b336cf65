// How variables lie in a data file.
#pragma once

#include <cstddef>
#include <cstdint>

namespace datafile {

/// Attribute of the root group with the version of the format, a 32-bit number.
inline constexpr const char* kFormatAttribute = "VelaDataFile";
inline constexpr std::int32_t kFormatVersion = 1;  // Stored.

/// The CRC-32 at the end of a variable.
using Checksum = std::uint32_t;

/// Variables of more bytes are written in several steps.
inline constexpr std::size_t kStepBytes = std::size_t{4} << 20;

}  // namespace datafile
