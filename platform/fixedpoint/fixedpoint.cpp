#include "fixedpoint/fixedpoint.h"

#include <algorithm>
#include <bit>
#include <boost/multiprecision/cpp_int.hpp>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "kodiag/message.h"

namespace fixedpoint {
namespace {

using boost::multiprecision::cpp_int;

static_assert(std::endian::native == std::endian::little, "containers are read as they lie");

__extension__ using Unsigned128 = unsigned __int128;
__extension__ using Signed128 = __int128;

constexpr int kBits = 128;

// Beyond this no stored integer and no slope of a double brings a number back into the range of
// doubles, and none differs from one further out.
constexpr int kLargestExponent = 5000;

int boundedExponent(long long exponent) {
  return static_cast<int>(std::clamp<long long>(exponent, -kLargestExponent, kLargestExponent));
}

[[noreturn]] void refuse(const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", "convert fixed-point values"}, {"Reason", reason}});
}

void checkType(const fxpDataTypeProp& type) {
  const bool fits = type.wordLength >= 1 && type.wordLength <= kBits &&
                    type.containerBytes >= 1 && type.containerBytes <= kBits / 8 &&
                    static_cast<std::size_t>(type.wordLength) <= 8 * type.containerBytes;
  if (!fits) {
    refuse("a word of " + std::to_string(type.wordLength) + " bits does not fit " +
           std::to_string(type.containerBytes) + " bytes");
  }
  if (!std::isfinite(type.slopeAdjustment) || !std::isfinite(type.bias)) {
    refuse("its slope or bias is not finite");
  }
}

// A stored integer as sign and magnitude: 2^127 and its negative need all bits.
struct Stored {
  bool negative;
  Unsigned128 magnitude;
};

Stored readStored(const fxpDataTypeProp& type, const char* container) {
  Unsigned128 raw = 0;
  std::memcpy(&raw, container, type.containerBytes);
  const int unused = kBits - type.wordLength;
  raw <<= unused;
  if (!type.isSigned) return {false, raw >> unused};
  const bool negative = raw >> (kBits - 1) != 0;
  const Signed128 value = static_cast<Signed128>(raw) >> unused;
  const auto bits = static_cast<Unsigned128>(value);
  return {negative, negative ? -bits : bits};
}

int bitLength(Unsigned128 value) {
  const auto high = static_cast<std::uint64_t>(value >> 64);
  return high ? 64 + static_cast<int>(std::bit_width(high))
              : static_cast<int>(std::bit_width(static_cast<std::uint64_t>(value)));
}

// magnitude x 2^exponent, rounded once to nearest, ties to even.
double scaledByPowerOfTwo(const Stored& stored, int exponent) {
  Unsigned128 magnitude = stored.magnitude;
  const int length = bitLength(magnitude);
  // Down to 64 bits with everything lost gathered in the lowest: long double then holds it
  // exactly, and the one rounding, subnormal results included, happens on the way to double.
  const int surplus = std::max(0, length - 64);
  if (surplus > 0) {
    const bool lost = (magnitude & ((Unsigned128{1} << surplus) - 1)) != 0;
    magnitude = magnitude >> surplus | (lost ? 1 : 0);
  }
  const long double exact = std::ldexp(
      static_cast<long double>(static_cast<std::uint64_t>(magnitude)), exponent + surplus);
  const auto value = static_cast<double>(exact);
  return stored.negative ? -value : value;
}

// An integer as mantissa x 2^exponent.
struct Scaled {
  cpp_int mantissa;
  int exponent;
};

Scaled exactly(double value) {
  constexpr int kDigits = std::numeric_limits<double>::digits;
  int exponent = 0;
  const double fraction = std::frexp(value, &exponent);
  return {cpp_int(static_cast<std::int64_t>(std::ldexp(fraction, kDigits))),
          exponent - kDigits};
}

double rounded(const Scaled& value) {
  cpp_int magnitude = abs(value.mantissa);
  if (magnitude == 0) return 0;
  const int surplus = std::max(0, static_cast<int>(msb(magnitude)) + 1 - kBits);
  const bool lost = surplus > 0 && static_cast<int>(lsb(magnitude)) < surplus;
  magnitude >>= surplus;
  const auto kept = static_cast<Unsigned128>(magnitude) | (lost ? 1 : 0);
  return scaledByPowerOfTwo({value.mantissa < 0, kept}, value.exponent + surplus);
}

double slopeAndBiasExactly(const fxpDataTypeProp& type, const Stored& stored) {
  Scaled product = exactly(type.slopeAdjustment);
  product.exponent += boundedExponent(type.fixedExponent);
  product.mantissa *= cpp_int(stored.magnitude) * (stored.negative ? -1 : 1);
  const Scaled bias = exactly(type.bias);
  const int exponent = std::min(product.exponent, bias.exponent);
  const cpp_int sum = (product.mantissa << (product.exponent - exponent)) +
                      (bias.mantissa << (bias.exponent - exponent));
  return rounded({sum, exponent});
}

double slopeAndBias(const fxpDataTypeProp& type, const Stored& stored) {
  const double step = std::ldexp(type.slopeAdjustment, boundedExponent(type.fixedExponent));
  // A multiply-add rounds once by itself when both factors are exact.
  if (std::isnormal(step) &&
      bitLength(stored.magnitude) <= std::numeric_limits<double>::digits) {
    const auto magnitude = static_cast<double>(stored.magnitude);
    return std::fma(step, stored.negative ? -magnitude : magnitude, type.bias);
  }
  return slopeAndBiasExactly(type, stored);
}

double realWorld(const fxpDataTypeProp& type, const Stored& stored) {
  switch (type.scaling) {
    case Scaling::binaryPoint:
      return scaledByPowerOfTwo(stored,
                                boundedExponent(-static_cast<long long>(type.fractionLength)));
    case Scaling::slopeBias:
      return slopeAndBias(type, stored);
    case Scaling::unspecified:
      return scaledByPowerOfTwo(stored, 0);
  }
  return 0;
}

}  // namespace

std::size_t containerBytesFor(int wordLength) {
  if (wordLength < 1 || wordLength > kBits) return 0;
  return std::bit_ceil(static_cast<std::size_t>(wordLength + 7) / 8);
}

void toReal(const fxpDataTypeProp& type, const void* stored, std::size_t count,
            double* values) {
  checkType(type);
  const char* const containers = static_cast<const char*>(stored);
  for (std::size_t i = 0; i < count; ++i) {
    values[i] = realWorld(type, readStored(type, containers + i * type.containerBytes));
  }
}

}  // namespace fixedpoint
