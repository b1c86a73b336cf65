#include "text/utf8.h"

#include <cstdint>

#include "kodiag/message.h"

namespace text {
namespace {

constexpr wchar_t kReplacement = 0xFFFD;

bool isSurrogate(std::uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDFFF;
}

void appendUtf8(std::uint32_t point, std::string& out) {
  const auto put = [&out](std::uint32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (point < 0x80) {
    put(point);
  } else if (point < 0x800) {
    put(0xC0 | point >> 6);
    put(0x80 | (point & 0x3F));
  } else if (point < 0x10000) {
    put(0xE0 | point >> 12);
    put(0x80 | (point >> 6 & 0x3F));
    put(0x80 | (point & 0x3F));
  } else {
    put(0xF0 | point >> 18);
    put(0x80 | (point >> 12 & 0x3F));
    put(0x80 | (point >> 6 & 0x3F));
    put(0x80 | (point & 0x3F));
  }
}

// Reads one code point at `at` and moves past it; false (moving one byte) when it is malformed.
bool decodeOne(std::string_view bytes, std::size_t& at, std::uint32_t& point) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
  const unsigned char lead = byte(at);
  const std::size_t length = lead < 0x80   ? 1
                             : lead < 0xC2 ? 0
                             : lead < 0xE0 ? 2
                             : lead < 0xF0 ? 3
                             : lead < 0xF5 ? 4
                                           : 0;
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const std::size_t start = at++;
  if (length == 0 || start + length > bytes.size()) return false;
  point = length == 1 ? lead : lead & (0x7Fu >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(start + i) & 0xC0) != 0x80) return false;
    point = point << 6 | (byte(start + i) & 0x3Fu);
  }
  if (point < kSmallest[length] || point > 0x10FFFF || isSurrogate(point)) return false;
  at = start + length;
  return true;
}

}  // namespace

std::string toUtf8(std::wstring_view wide) {
  std::string out;
  out.reserve(wide.size());
  for (std::size_t i = 0; i < wide.size(); ++i) {
    const auto point = static_cast<std::uint32_t>(wide[i]);
    if (point > 0x10FFFF || isSurrogate(point)) {
      kodiag::raise({"nexstore:nex", "InvalidText"}, {{"Position", std::to_string(i)}});
    }
    appendUtf8(point, out);
  }
  return out;
}

std::wstring toWide(std::string_view utf8) {
  std::wstring out;
  out.reserve(utf8.size());
  for (std::size_t at = 0; at < utf8.size();) {
    std::uint32_t point = 0;
    out.push_back(decodeOne(utf8, at, point) ? static_cast<wchar_t>(point) : kReplacement);
  }
  return out;
}

bool isUtf8(std::string_view bytes) {
  for (std::size_t at = 0; at < bytes.size();) {
    std::uint32_t point = 0;
    if (!decodeOne(bytes, at, point)) return false;
  }
  return true;
}

}  // namespace text
