// Texts as template arguments.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>

namespace vela::scripting {

template <std::size_t n>
struct Literal {
  // Implicit, so that a string literal can stand as the argument.
  consteval Literal(const char (&given)[n]) { std::copy_n(given, n, text); }
  std::string str() const { return text; }

  char text[n];
};

}  // namespace vela::scripting
