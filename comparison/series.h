// What is compared: a series of samples of one scalar type, read in blocks.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace comparison {

enum class ScalarType {
  boolean,  ///< one byte, anything but 0 is true
  int8,
  uint8,
  int16,
  uint16,
  int32,
  uint32,
  int64,
  uint64,
  single,
  real,  ///< double
};

std::size_t bytesOf(ScalarType type);
/// From a number of the type to the next; 0 for the types that are exact.
double precisionOf(ScalarType type, double value);

/// How values between two samples are found.
enum class Interpolation { zeroOrderHold, linear };

/// "zoh" or "linear". \throws "nexstore:nex:InvalidSetting" for any other text
Interpolation interpolationFromText(std::string_view text);

/// Samples as they are stored.
struct Block {
  std::span<const double> times;  ///< (n) seconds, finite, nowhere decreasing across blocks
  std::span<const char> values;   ///< n elements, packed, in the machine's byte order
};

/// One pass over the blocks of a series.
class BlockReader {
 public:
  virtual ~BlockReader() = default;
  /// The next block, valid until the next call; false after the last. Blocks may be empty.
  virtual bool next(Block& block) = 0;
};

struct Series {
  ScalarType type = ScalarType::real;
  /// Whether the integers are values of an enumeration: held, and equal or not.
  bool isEnumeration = false;
  /// Booleans and enumerations are always held.
  Interpolation interpolation = Interpolation::zeroOrderHold;
  std::string unit;
  /// Begins a new pass. Uniform alignment takes two of them, the others one.
  std::function<std::unique_ptr<BlockReader>()> open;

  Interpolation effectiveInterpolation() const;
};

/// A series over the caller's memory, which must outlive it, handed out `blockSamples` at a
/// time.
Series seriesInMemory(ScalarType type, std::span<const double> times,
                      std::span<const char> values, std::size_t blockSamples = 65536);

}  // namespace comparison
