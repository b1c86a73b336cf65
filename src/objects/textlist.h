// Lists of texts in one blob.
#pragma once

#include <string>
#include <vector>

namespace vela {

/// Each text as its length in bytes (32 bits, little-endian) followed by its UTF-8 bytes.
/// // Stored; never change.
std::vector<char> encodeTexts(const std::vector<std::wstring>& texts);
/// Ends at the first text that is cut off.
std::vector<std::wstring> decodeTexts(const std::vector<char>& bytes);

}  // namespace vela
