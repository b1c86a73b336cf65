#include "text/utf8.h"

#include <gtest/gtest.h>

#include "tests/support/throwsid.h"

namespace {

using vela::test::ThrowsId;

TEST(Utf8, WideTextComesBackWhateverItHolds) {
  const std::wstring text =
      L"a\u00e9\u20ac\U0001F600" + std::wstring(1, L'\0') + L"\uFFFD\U0010FFFF";
  EXPECT_EQ(text::toUtf8(text).size(), 1u + 2 + 3 + 4 + 1 + 3 + 4);
  EXPECT_EQ(text::toWide(text::toUtf8(text)), text);
}

TEST(Utf8, HalvesOfSurrogatePairsAreRefused) {
  for (const wchar_t bad : {wchar_t(0xD800), wchar_t(0xDFFF), wchar_t(0x110000)}) {
    EXPECT_THAT([&] { text::toUtf8(std::wstring(L"ab") + bad); },
                ThrowsId("nexstore:nex:InvalidText"));
  }
}

TEST(Utf8, DamagedBytesReadAsReplacementsAndDoNotSwallowTheirNeighbours) {
  const std::pair<const char*, std::wstring> cases[] = {
      {"a\xC3z", L"a\uFFFDz"},                  // cut short
      {"\xC0\x80", L"\uFFFD\uFFFD"},            // overlong
      {"\xED\xA0\x80", L"\uFFFD\uFFFD\uFFFD"},  // surrogate
      {"\xF5\x80", L"\uFFFD\uFFFD"},            // beyond the last plane
      {"x\xE2\x82", L"x\uFFFD\uFFFD"},          // ends in the middle
  };
  for (const auto& [bytes, wide] : cases) {
    EXPECT_EQ(text::toWide(bytes), wide);
    EXPECT_FALSE(text::isUtf8(bytes));
  }
}

}  // namespace
