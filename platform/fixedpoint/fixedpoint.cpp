#include "fixedpoint/fixedpoint.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>

#include "kodiag/message.h"

namespace fixedpoint {
namespace {

static_assert(std::endian::native == std::endian::little, "containers are read as they lie");

__extension__ using Unsigned128 = unsigned __int128;
__extension__ using Signed128 = __int128;

constexpr int kBits = 128;

void checkType(const fxpDataTypeProp& type) {
  const bool fits = type.wordLength >= 1 && type.wordLength <= kBits &&
                    type.containerBytes >= 1 && type.containerBytes <= kBits / 8 &&
                    static_cast<std::size_t>(type.wordLength) <= 8 * type.containerBytes;
  if (!fits) {
    kodiag::raise(
        {"nexstore:nex", "InvalidData"},
        {{"Operation", "convert fixed-point values"},
         {"Reason", "a word of " + std::to_string(type.wordLength) + " bits does not fit " +
                        std::to_string(type.containerBytes) + " bytes"}});
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

double slopeAndBias(const fxpDataTypeProp& type, const Stored& stored) {
  const long double magnitude = static_cast<long double>(stored.magnitude);
  const long double integer = stored.negative ? -magnitude : magnitude;
  const long double slope =
      std::ldexp(static_cast<long double>(type.slopeAdjustment), type.fixedExponent);
  return static_cast<double>(std::fma(slope, integer, static_cast<long double>(type.bias)));
}

double realWorld(const fxpDataTypeProp& type, const Stored& stored) {
  switch (type.scaling) {
    case Scaling::binaryPoint:
      return scaledByPowerOfTwo(stored, -type.fractionLength);
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
