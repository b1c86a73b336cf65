#include "text/printable.h"

#include <gtest/gtest.h>

namespace {

TEST(Printable, NothingThatSteersATerminalIsLeft) {
  const std::pair<std::string, std::string> cases[] = {
      {"v(out) \u00e9\u20ac\U0001F600", "v(out) \u00e9\u20ac\U0001F600"},
      {"\x1b[31mred\x1b]0;title\x07", "?[31mred?]0;title?"},
      {std::string("a\0b\tc\rd\ne\x7f", 10), "a?b?c?d?e?"},
      {"\u0080\u009b2J\u009f\u00a0", "??2J?\u00a0"},  // C1
      {"\u061c\u200e\u200f\u202a\u202e\u2066\u2069\u200d\u2029", "???????\u200d\u2029"},
      {"\x9b"
       "2J\xe2\x80",
       "\uFFFD"
       "2J\uFFFD\uFFFD"},
  };
  for (const auto& [raw, shown] : cases) EXPECT_EQ(text::printable(raw), shown);
  EXPECT_EQ(text::printable("a\nb\x1b", text::LineEnds::kept), "a\nb?");
}

TEST(Printable, JsonSaysTheSameInEscapes) {
  EXPECT_EQ(text::escapedInJson("{\"a\": \"\x7f\u009b\u202e\u00e9\"}\n"),
            "{\"a\": \"\\u007f\\u009b\\u202e\u00e9\"}\n");
}

}  // namespace
