// The elements of a signal as numbers: sizes, minimum and maximum, widening.
#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <vector>

namespace vela {

/// How the bytes of one element are read as a number.
enum class NumberKind {
  none,  ///< carries no numbers
  real64,
  real32,
  int8,
  int16,
  int32,
  int64,
  uint8,
  uint16,
  uint32,
  uint64
};

/// \param typeLabel  classification, or name of a built-in type
NumberKind numberKindOf(const std::string& typeLabel);
/// 0 for `none`.
std::size_t bytesOf(NumberKind kind);

/// Bytes of an element of the built-in type with that code; 0 for codes that are none.
std::size_t builtInElementBytes(int dataTypeCode);
/// Whether elements of that code are integers of less than 4 bytes.
bool isSmallInteger(int dataTypeCode);
/// `count` small integers as int32.
std::vector<int> widened(int dataTypeCode, const void* elements, std::size_t count);

/// The least and greatest of the elements seen; NaN is passed over, infinities count. 64-bit
/// integers are rounded to the nearest double.
class NumberBounds {
 public:
  explicit NumberBounds(NumberKind kind) : kind_(kind) {}

  /// \param bytes  packed elements; a trailing part of one is ignored
  void add(const char* bytes, std::size_t byteCount);
  /// Whether any element was seen.
  bool any() const { return any_; }
  /// NaN when all elements were.
  double min() const { return allNaN() ? kNaN : min_; }
  double max() const { return allNaN() ? kNaN : max_; }

 private:
  static constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
  static constexpr double kInfinity = std::numeric_limits<double>::infinity();

  template <class T>
  void addTyped(const char* bytes, std::size_t count);
  bool allNaN() const { return min_ > max_; }

  NumberKind kind_;
  bool any_ = false;
  double min_ = kInfinity;
  double max_ = -kInfinity;
};

}  // namespace vela
