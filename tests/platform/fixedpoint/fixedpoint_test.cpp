#include "fixedpoint/fixedpoint.h"

#include <gtest/gtest.h>

#include <bit>
#include <boost/multiprecision/cpp_int.hpp>
#include <climits>
#include <cmath>
#include <random>

#include "tests/support/throwsid.h"

namespace {

using boost::multiprecision::cpp_int;
using boost::multiprecision::cpp_rational;
using vela::test::ThrowsId;

// The stored integer, worked out digit by digit.
cpp_int storedInteger(const fxpDataTypeProp& type, const std::vector<unsigned char>& bytes) {
  cpp_int value = 0;
  for (int bit = type.wordLength - 1; bit >= 0; --bit) {
    const int set = bytes[static_cast<std::size_t>(bit / 8)] >> bit % 8 & 1;
    const bool isSignBit = type.isSigned && bit == type.wordLength - 1;
    value = 2 * value + (isSignBit ? -set : set);
  }
  return value;
}

cpp_rational timesPowerOfTwo(const cpp_rational& value, int exponent) {
  const cpp_rational power(cpp_int(1) << std::abs(exponent));
  return exponent < 0 ? cpp_rational(value / power) : cpp_rational(value * power);
}

double converted(const fxpDataTypeProp& type, const std::vector<unsigned char>& bytes) {
  double value = 0;
  fixedpoint::toReal(type, bytes.data(), 1, &value);
  return value;
}

// No double lies nearer to the exact number, and of two that lie as near this is the even one.
void expectNearest(double value, const cpp_rational& exact) {
  const auto distance = [&](double candidate) {
    return cpp_rational(abs(cpp_rational(candidate) - exact));
  };
  ASSERT_TRUE(std::isfinite(value));
  const cpp_rational own = distance(value);
  const bool isEven = std::bit_cast<std::uint64_t>(value) % 2 == 0;
  for (const double end : {HUGE_VAL, -HUGE_VAL}) {
    const cpp_rational other = distance(std::nextafter(value, end));
    ASSERT_TRUE(own < other || (own == other && isEven)) << value << " and " << exact;
  }
}

std::vector<unsigned char> randomBytes(std::size_t count, std::mt19937& random) {
  std::vector<unsigned char> bytes(count);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
  return bytes;
}

TEST(FixedPoint, BinaryPointValuesAreTheNearestDoubles) {
  std::mt19937 random(3);
  for (int i = 0; i < 5'000; ++i) {
    fxpDataTypeProp type;
    type.isSigned = random() % 2;
    type.wordLength = 1 + static_cast<int>(random() % 128);
    type.containerBytes = fixedpoint::containerBytesFor(type.wordLength);
    type.fractionLength = static_cast<int>(random() % 200) - 100 + (i % 7 == 0 ? 1070 : 0);
    type.scaling = i % 5 ? fixedpoint::Scaling::binaryPoint : fixedpoint::Scaling::unspecified;
    const std::vector<unsigned char> bytes = randomBytes(type.containerBytes, random);
    const int exponent = i % 5 ? -type.fractionLength : 0;
    SCOPED_TRACE(::testing::Message() << type.wordLength << " bits, 2^" << exponent);
    ASSERT_NO_FATAL_FAILURE(
        expectNearest(converted(type, bytes),
                      timesPowerOfTwo(cpp_rational(storedInteger(type, bytes)), exponent)));
  }
}

TEST(FixedPoint, SlopeAndBiasAreAppliedInOneRounding) {
  std::mt19937 random(4);
  std::uniform_real_distribution<double> mantissa(-2, 2);
  for (int i = 0; i < 5'000; ++i) {
    fxpDataTypeProp type;
    type.scaling = fixedpoint::Scaling::slopeBias;
    type.isSigned = random() % 2;
    type.wordLength = 1 + static_cast<int>(random() % 128);
    type.containerBytes = fixedpoint::containerBytesFor(type.wordLength);
    type.slopeAdjustment = mantissa(random);
    type.fixedExponent = static_cast<int>(random() % 200) - 100 - (i % 7 == 0 ? 1070 : 0);
    // Of the size of the product, so that the two sum up to something where rounding shows.
    type.bias =
        i % 3 ? std::ldexp(mantissa(random), type.fixedExponent + type.wordLength / 2) : 0;
    const std::vector<unsigned char> bytes = randomBytes(type.containerBytes, random);
    const cpp_rational exact =
        timesPowerOfTwo(cpp_rational(type.slopeAdjustment), type.fixedExponent) *
            cpp_rational(storedInteger(type, bytes)) +
        cpp_rational(type.bias);
    SCOPED_TRACE(::testing::Message() << type.wordLength << " bits, " << type.slopeAdjustment
                                      << " x 2^" << type.fixedExponent << ", " << type.bias);
    ASSERT_NO_FATAL_FAILURE(expectNearest(converted(type, bytes), exact));
  }
}

TEST(FixedPoint, ValuesSpelledOutByHand) {
  fxpDataTypeProp type;
  type.scaling = fixedpoint::Scaling::slopeBias;
  type.slopeAdjustment = 1.25;
  type.fixedExponent = -3;
  type.bias = 10;
  EXPECT_EQ(converted(type, {0xFE, 0xFF}), 10 - 2 * 1.25 / 8);
  type.scaling = fixedpoint::Scaling::unspecified;
  EXPECT_EQ(converted(type, {0xFE, 0xFF}), -2);
  type.scaling = fixedpoint::Scaling::binaryPoint;
  type.fractionLength = 4;
  EXPECT_EQ(converted(type, {0x18, 0x00}), 1.5);
  type.wordLength = 128;
  type.containerBytes = 16;
  type.fractionLength = 0;
  EXPECT_EQ(converted(type, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80}), -0x1p127);
}

TEST(FixedPoint, AbsurdExponentsEndInZeroInfinityOrTheBias) {
  fxpDataTypeProp type;
  for (const int absurd : {INT_MAX, INT_MIN}) {
    type.scaling = fixedpoint::Scaling::binaryPoint;
    type.fractionLength = absurd;
    EXPECT_EQ(converted(type, {1, 0}), absurd > 0 ? 0 : HUGE_VAL);
    type.scaling = fixedpoint::Scaling::slopeBias;
    type.fixedExponent = absurd;
    type.bias = 0.1;
    EXPECT_EQ(converted(type, {1, 0}), absurd > 0 ? HUGE_VAL : 0.1);
    EXPECT_EQ(converted(type, {0, 0}), 0.1);
  }
}

TEST(FixedPoint, TypesThatMeanNothingAreRefused) {
  const auto refused = [](auto&& change) {
    fxpDataTypeProp type;
    type.scaling = fixedpoint::Scaling::slopeBias;
    change(type);
    const std::vector<unsigned char> bytes(32);
    EXPECT_THAT([&] { converted(type, bytes); }, ThrowsId("nexstore:nex:InvalidData"));
  };
  refused([](auto& type) { type.wordLength = 0; });
  refused([](auto& type) { type.wordLength = 17; });
  refused([](auto& type) { type.wordLength = -1; });
  refused([](auto& type) { type.containerBytes = 17; });
  refused([](auto& type) { type.containerBytes = 0; });
  refused([](auto& type) { type.slopeAdjustment = NAN; });
  refused([](auto& type) { type.bias = HUGE_VAL; });
}

TEST(FixedPoint, BitsAboveTheWordCarryNoValue) {
  fxpDataTypeProp type;
  type.wordLength = 12;
  EXPECT_EQ(converted(type, {0x01, 0xF0}), 1);
  EXPECT_EQ(converted(type, {0xFF, 0x0F}), -1);
  type.isSigned = false;
  EXPECT_EQ(converted(type, {0xFF, 0xFF}), 4095);
}

TEST(FixedPoint, ContainersAreTheSmallestOfTheUsualSizes) {
  const std::pair<int, std::size_t> cases[] = {{1, 1},   {8, 1},    {9, 2},   {17, 4}, {33, 8},
                                               {65, 16}, {128, 16}, {129, 0}, {0, 0}};
  for (const auto& [bits, bytes] : cases) EXPECT_EQ(fixedpoint::containerBytesFor(bits), bytes);
}

}  // namespace
