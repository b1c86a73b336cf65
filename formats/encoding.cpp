#include "formats/encoding.h"

#include <algorithm>

#include "text/utf8.h"

namespace formats {

std::string utf8FromBytes(std::string_view bytes) {
  if (text::isUtf8(bytes)) return std::string(bytes);
  std::string utf8;
  for (const char byte : bytes) {
    const auto code = static_cast<unsigned char>(byte);
    if (code < 0x80) {
      utf8 += byte;
    } else {
      utf8 += static_cast<char>(0xC0 | (code >> 6));
      utf8 += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  return utf8;
}

bool looksLikeUtf16(std::string_view bytes) {
  if (bytes.starts_with("\xFF\xFE") || bytes.starts_with("\xFE\xFF")) return true;
  // Western text has a zero in every other byte.
  const std::size_t count = std::min<std::size_t>(bytes.size() & ~std::size_t{1}, 16);
  std::size_t zerosAtEven = 0;
  std::size_t zerosAtOdd = 0;
  for (std::size_t i = 0; i < count; ++i) {
    if (bytes[i] == '\0') ++(i % 2 ? zerosAtOdd : zerosAtEven);
  }
  return count >= 4 && (zerosAtEven == count / 2) != (zerosAtOdd == count / 2);
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlank = " \t\r\n";
  const std::size_t start = text.find_first_not_of(kBlank);
  if (start == std::string_view::npos) return {};
  return text.substr(start, text.find_last_not_of(kBlank) - start + 1);
}

std::string inQuotes(std::string_view text) {
  constexpr std::size_t kShownBytes = 60;
  const auto isContinuation = [](char byte) { return (byte & 0xC0) == 0x80; };
  const std::string utf8 = utf8FromBytes(trimmed(text));
  std::size_t shown = std::min(utf8.size(), kShownBytes);
  while (shown < utf8.size() && isContinuation(utf8[shown])) --shown;
  std::string quote = "\"";
  quote.append(utf8, 0, shown).append(shown < utf8.size() ? "...\"" : "\"");
  return quote;
}

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

}  // namespace formats
