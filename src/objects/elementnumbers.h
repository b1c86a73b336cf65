// The elements of a signal as numbers: sizes, minimum and maximum, conversion.
#pragma once

#include <cstddef>
#include <limits>
#include <optional>
#include <string>

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
/// `none` for codes that are none of a built-in type.
NumberKind numberKindOf(int dataTypeCode);

/// Converts packed elements to another kind.
/// \returns the index of the first one that kind cannot hold exactly; none when all are
///          converted. NaN and infinities pass between floating-point kinds
std::optional<std::size_t> convertExactly(NumberKind from, const char* elements,
                                          std::size_t count, NumberKind to, char* out);

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
