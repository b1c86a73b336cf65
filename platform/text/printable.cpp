#include "text/printable.h"

#include <cstdio>

#include "text/utf8.h"

namespace text {
namespace {

bool isControl(wchar_t c) {
  return c < 0x20 || (c >= 0x7F && c <= 0x9F);
}

/// The characters of Unicode's property Bidi_Control.
bool reorders(wchar_t c) {
  return c == 0x061C || c == 0x200E || c == 0x200F || (c >= 0x202A && c <= 0x202E) ||
         (c >= 0x2066 && c <= 0x2069);
}

bool isUnsafe(wchar_t c) {
  return isControl(c) || reorders(c);
}

}  // namespace

std::string printable(std::string_view utf8, LineEnds lineEnds) {
  std::wstring wide = toWide(utf8);
  for (wchar_t& c : wide) {
    if (isUnsafe(c) && !(c == L'\n' && lineEnds == LineEnds::kept)) c = L'?';
  }
  return toUtf8(wide);
}

std::string escapedInJson(std::string_view json) {
  std::wstring out;
  for (const wchar_t c : toWide(json)) {
    if (!isUnsafe(c) || c == L'\n') {
      out += c;
      continue;
    }
    char escape[8];
    std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(c) & 0xFFFFu);
    out.append(escape, escape + 6);
  }
  return toUtf8(out);
}

}  // namespace text
