#include "text/numbers.h"

#include <charconv>

namespace text {
namespace {

template <class Number>
std::optional<Number> parseWhole(std::string_view characters) {
  if (characters.starts_with('+')) {
    characters.remove_prefix(1);
    if (characters.starts_with('-')) return std::nullopt;
  }
  Number value{};
  const char* const end = characters.data() + characters.size();
  const auto [stop, error] = std::from_chars(characters.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace

std::string shortest(double value) {
  char buffer[32];
  const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
  static_cast<void>(error);  // 32 characters hold every double
  return std::string(buffer, end);
}

std::optional<double> parseDouble(std::string_view characters) {
  return parseWhole<double>(characters);
}

std::optional<long long> parseInteger(std::string_view characters) {
  return parseWhole<long long>(characters);
}

}  // namespace text
