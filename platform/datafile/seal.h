// The block in front of a data file by which damage is noticed before the library sees it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace datafile {

/// Bytes of the block; what the library writes begins behind it.
inline constexpr std::size_t kSealBytes = 512;  // Stored.

/// Fills in the block of an open file that is complete.
/// \returns 0, or the error number of what failed
int seal(int descriptor);

/// \param working  called now and then
/// \returns why the open file is not as it was sealed; empty when it is
std::string brokenSeal(int descriptor, const std::function<void()>& working);

}  // namespace datafile
