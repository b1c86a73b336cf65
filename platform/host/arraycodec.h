// Array values as bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/arrays.h"

namespace host {

/// Where encoded bytes come from, one after the other.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  /// How many bytes are left.
  virtual std::uint64_t left() const = 0;
  /// Takes the next `count` bytes; the caller has made sure that they are there.
  virtual void take(void* into, std::size_t count) = 0;
};

/// Writes arrays with their class, dimensions, rank and contents.
///
/// An array is its class (one byte), its rank (one byte), the number of dimensions (one byte),
/// each length (8 bytes), then its contents: of numbers, a byte that is 1 for complex ones and
/// the elements; a byte that is 1 for wide characters, the length (8 bytes) and UTF-8 of text;
/// one array after the other of a cell; the number of fields (4 bytes), each name as length (8
/// bytes) and bytes, and the arrays of a structure, element by element; of an enumeration, its
/// name, the number of members (4 bytes), each with its label and value (4 bytes), and the
/// numbers as one more array; of fixed-point values, signedness (one byte), word length (4
/// bytes), a byte that is 1 with a fraction length, the fraction length (4 bytes), slope and
/// bias (8 bytes each), and the values as one more array. All numbers are little-endian.
class ArrayEncoder {
 public:
  /// Appends to `out`, which the caller may empty between calls.
  explicit ArrayEncoder(std::string& out) : out_(out) {}

  /// \throws "nexstore:nex:InvalidData" for objects, functions and too deep nesting
  void put(const HostArray& array) { putArray(array, 0); }
  /// What stands before the fields of a structure of 1x1, which have to follow in this order.
  void putStructureHead(std::span<const std::string> fieldNames);
  /// What stands before the elements of a cell of 1xn and rank 1, which have to follow.
  void putCellHead(std::size_t count);

 private:
  template <class Number>
  void putNumber(Number value) {
    out_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void putText(const std::string& text);
  void putHead(ArrayClass cls, unsigned rank, const Dimensions& dimensions);
  void putFieldNames(std::span<const std::string> names);
  void putArray(const HostArray& array, int depth);
  void putContents(const HostArray& array, int depth);
  void putEnumerationType(const EnumerationType& type);
  void putFixedPointType(const FixedPointType& type);

  std::string& out_;
};

/// Takes encoded bytes apart. Every length is checked against the bytes that are left before
/// anything is made from it.
///
/// Errors: "nexstore:nex:InvalidHostArray" for bytes no ArrayEncoder made.
class ArrayDecoder {
 public:
  /// \param hasRanks  false for the older form without ranks and complex numbers
  explicit ArrayDecoder(ByteSource& source, bool hasRanks = true)
      : source_(source), hasRanks_(hasRanks) {}

  HostArray take() { return takeArray(0); }
  /// The field names of a structure of 1x1; its fields follow.
  std::vector<std::string> takeStructureHead();
  /// The number of elements of a cell; they follow.
  std::size_t takeCellHead();

 private:
  struct Head {
    ArrayClass cls;
    unsigned rank;
    Dimensions dimensions;
  };

  template <class Number>
  Number takeNumber();
  std::string takeText();
  Head takeHead();
  std::vector<std::string> takeFieldNames();
  /// The number of elements, each of which takes at least `bytesEach` of what is left.
  std::size_t countElements(const Dimensions& dimensions, std::size_t bytesEach) const;
  HostArray takeArray(int depth);
  HostArray takeContents(Head head, int depth);
  HostArray takeNumbers(Head head);
  HostArray takeCharacters();
  HostArray takeCell(Head head, int depth);
  HostArray takeStructure(Head head, int depth);
  std::vector<HostArray> takeArrays(std::size_t count, int depth);
  EnumerationType takeEnumerationType();
  FixedPointType takeFixedPointType();

  ByteSource& source_;
  bool hasRanks_;
};

}  // namespace host
