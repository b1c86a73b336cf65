#include "text/numbers.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>

namespace {

TEST(Numbers, TheShortestTextReadsBackToTheSameBits) {
  std::mt19937_64 random(7);
  for (int i = 0; i < 20'000; ++i) {
    const auto value = std::bit_cast<double>(random());
    if (std::isnan(value)) continue;
    const auto back = text::parseDouble(text::shortest(value));
    ASSERT_TRUE(back);
    ASSERT_EQ(std::bit_cast<std::uint64_t>(*back), std::bit_cast<std::uint64_t>(value));
  }
  EXPECT_EQ(text::shortest(0.1), "0.1");
  EXPECT_EQ(text::shortest(-0.0), "-0");
}

TEST(Numbers, ParsingTakesTheWholeTextOrNothing) {
  EXPECT_EQ(text::parseDouble("+1.5e3"), 1500.0);
  EXPECT_EQ(text::parseInteger("-9223372036854775808"), std::numeric_limits<long long>::min());
  for (const char* const bad : {"", "+", "+-1", "1.5x", " 1", "1 ", "1,5", "0x10"}) {
    EXPECT_FALSE(text::parseDouble(bad)) << bad;
    EXPECT_FALSE(text::parseInteger(bad)) << bad;
  }
  EXPECT_FALSE(text::parseInteger("9223372036854775808"));
}

}  // namespace
