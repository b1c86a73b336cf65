// Text of files that do not say how they are encoded.
#pragma once

#include <string>
#include <string_view>

namespace formats {

/// The bytes as UTF-8: as they are when they are UTF-8 already, else taken as Latin-1.
std::string utf8FromBytes(std::string_view bytes);

/// Whether the first bytes of a file are those of UTF-16 text.
bool looksLikeUtf16(std::string_view bytes);

/// The text without spaces, tabs and line ends at either side.
std::string_view trimmed(std::string_view text);

/// The text in quotes for a message, as UTF-8 and trimmed; long text is cut off with "...".
std::string inQuotes(std::string_view text);

/// With A-Z as a-z; other characters stay.
std::string lowerCase(std::string_view text);

}  // namespace formats
