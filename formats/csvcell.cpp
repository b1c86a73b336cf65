#include "formats/csvcell.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <optional>
#include <string>

#include "formats/encoding.h"
#include "text/numbers.h"

namespace formats {
namespace {

constexpr std::size_t kLongestWord = 9;  // "-infinity"

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

Cell realCell(double value) {
  return {CellKind::kReal, 0, value};
}

Cell integerCell(std::int64_t value) {
  return {CellKind::kInteger, value, static_cast<double>(value)};
}

Cell booleanCell(bool value) {
  return {CellKind::kBoolean, value, value ? 1. : 0.};
}

Cell missingCell() {
  return {CellKind::kMissing, 0, std::numeric_limits<double>::quiet_NaN()};
}

Cell textCell() {
  return {CellKind::kText, 0, 0};
}

Cell readWord(std::string_view content) {
  if (content.size() > kLongestWord) return textCell();
  const std::string word = lowerCase(content);
  for (const char* missing : {"nan", "na", "n/a", "null"}) {
    if (word == missing) return missingCell();
  }
  if (word == "true") return booleanCell(true);
  if (word == "false") return booleanCell(false);
  const std::string_view unsignedWord =
      std::string_view(word).substr(word[0] == '-' || word[0] == '+' ? 1 : 0);
  if (unsignedWord == "inf" || unsignedWord == "infinity") {
    const double infinity = std::numeric_limits<double>::infinity();
    return realCell(word[0] == '-' ? -infinity : infinity);
  }
  return textCell();
}

/// The number with '.' as decimal mark, whatever mark it is written with.
std::optional<double> parseReal(std::string_view content, char decimal) {
  if (decimal == '.') return text::parseDouble(content);
  if (content.find('.') != std::string_view::npos) return std::nullopt;
  std::string digits(content);
  std::replace(digits.begin(), digits.end(), decimal, '.');
  return text::parseDouble(digits);
}

}  // namespace

Cell readCell(std::string_view text, char decimal) {
  const std::string_view content = trimmed(text);
  if (content.empty()) return missingCell();
  const std::size_t first = content[0] == '-' || content[0] == '+' ? 1 : 0;
  const bool startsNumber =
      content.size() > first && (isDigit(content[first]) || content[first] == decimal);
  if (!startsNumber) return readWord(content);
  if (const auto integer = text::parseInteger(content)) {
    const bool isNegativeZero = *integer == 0 && content[0] == '-';
    return isNegativeZero ? realCell(-0.) : integerCell(*integer);
  }
  if (const auto real = parseReal(content, decimal)) return realCell(*real);
  return textCell();
}

}  // namespace formats
