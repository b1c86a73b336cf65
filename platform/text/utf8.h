// UTF-8 and wide strings: the one converter between what is stored and what callers hold.
#pragma once

#include <string>
#include <string_view>

namespace text {

/// Wide text as UTF-8, embedded NULs kept.
/// \throws ExceptionWithCauses "nexstore:nex:InvalidText" for a lone surrogate or a value
/// beyond
///         U+10FFFF, naming its position.
std::string toUtf8(std::wstring_view wide);

/// UTF-8 as wide text. Bytes that are not UTF-8 become U+FFFD, so that damaged text can still
/// be read.
std::wstring toWide(std::string_view utf8);

/// Whether the bytes are well-formed UTF-8.
bool isUtf8(std::string_view bytes);

}  // namespace text
