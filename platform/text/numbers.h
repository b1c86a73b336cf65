// Numbers as text and back, the same in every locale.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace text {

/// The shortest decimal text that reads back to the same double; "nan", "inf", "-inf".
std::string shortest(double value);

/// The number that is the whole of `characters`; none when anything is left over. Takes a
/// leading
/// '+', and "nan", "inf" in any case.
std::optional<double> parseDouble(std::string_view characters);
std::optional<long long> parseInteger(std::string_view characters);

}  // namespace text
