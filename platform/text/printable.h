// Text of others on its way to a terminal.
#pragma once

#include <string>
#include <string_view>

namespace text {

enum class LineEnds { kept, replaced };

/// The text without what could steer a terminal or reorder what it shows: control characters
/// (C0, DEL, C1) and bidirectional controls become '?', bytes that are not UTF-8 U+FFFD.
std::string printable(std::string_view utf8, LineEnds lineEnds = LineEnds::replaced);

/// The same characters in a JSON document as \u escapes, so that the document says what it
/// said. \pre all of them stand in strings, as after `nlohmann::json::dump(-1)`; line ends are
/// kept
std::string escapedInJson(std::string_view json);

}  // namespace text
