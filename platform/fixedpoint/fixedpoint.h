// Fixed-point types and what their stored integers stand for.
#pragma once

#include <cstddef>

namespace fixedpoint {

/// How a stored integer Q becomes a number.
enum class Scaling {
  binaryPoint,  ///< Q x 2^-fractionLength
  slopeBias,    ///< slopeAdjustment x 2^fixedExponent x Q + bias
  unspecified,  ///< Q
};

}  // namespace fixedpoint

/// A fixed-point type. Stored integers are little-endian, in containers of whole bytes; bits
/// above the word length carry no value.
struct fxpDataTypeProp {
  fixedpoint::Scaling scaling = fixedpoint::Scaling::binaryPoint;
  bool isSigned = true;
  int wordLength = 16;             ///< bits, 1..128
  std::size_t containerBytes = 2;  ///< 1..16, at least the word length
  int fractionLength = 0;
  double slopeAdjustment = 1;
  int fixedExponent = 0;
  double bias = 0;
};

namespace fixedpoint {

/// The smallest container of 1, 2, 4, 8 or 16 bytes that holds a word; 0 for lengths
/// outside 1..128.
std::size_t containerBytesFor(int wordLength);

/// The numbers that stored integers stand for, each rounded once to the nearest double.
///
/// \param stored  shape (count), `type.containerBytes` apart, any alignment
/// \param values  shape (count)
/// \throws "nexstore:nex:InvalidData" for a type whose word does not fit its container or
///         whose slope or bias is not finite
void toReal(const fxpDataTypeProp& type, const void* stored, std::size_t count, double* values);

}  // namespace fixedpoint
