// The host's dynamically typed array: the currency of scripts and host functions.
#pragma once

#include <complex>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace host {

/// What the elements are. // Stored in array properties; never renumber.
enum class ArrayClass : std::uint8_t {
  real64 = 0,
  real32 = 1,
  int8 = 2,
  uint8 = 3,
  int16 = 4,
  uint16 = 5,
  int32 = 6,
  uint32 = 7,
  int64 = 8,
  uint64 = 9,
  logical = 10,
  character = 11,
  cell = 12,
  structure = 13,
  enumeration = 14,
  fixedPoint = 15,
  scriptObject = 16,  ///< never stored
  function = 17,      ///< never stored
};

/// "double", "int32", "logical", "char", "cell", "struct" ...
std::string_view arrayClassName(ArrayClass cls);
/// Bytes of one real numeric or logical element; 0 for the other classes.
std::size_t elementBytes(ArrayClass cls);

/// Two or more lengths; elements lie in column-major order.
using Dimensions = std::vector<std::size_t>;

/// Whether each element has an imaginary part behind its real one.
enum class Complexity : std::uint8_t { real = 0, complex = 1 };  // Stored; never renumber.

/// An enumeration: its name and its members in order. Labels are UTF-8.
struct EnumerationType {
  std::string className;
  std::vector<std::pair<std::string, std::int32_t>> members;

  bool operator==(const EnumerationType&) const = default;
};

/// How a fixed-point number is kept: value = slope * stored integer + bias. With a fraction
/// length, the slope is 2 to the power of its negative and the bias 0.
struct FixedPointType {
  bool isSigned = true;
  int wordLength = 16;  ///< bits
  std::optional<int> fractionLength;
  double slope = 1;
  double bias = 0;

  bool operator==(const FixedPointType&) const = default;
};

class HostArray;
using HostArrays = std::vector<HostArray>;
/// Takes the arguments and the number of results asked for; returns at least that many.
using HostFunction = std::function<HostArrays(std::span<const HostArray>, std::size_t)>;

template <class T>
concept ArrayElement = std::is_arithmetic_v<T> && sizeof(T) <= 8 && !std::same_as<T, char> &&
                       !std::same_as<T, wchar_t> && !std::same_as<T, char8_t> &&
                       !std::same_as<T, char16_t> && !std::same_as<T, char32_t>;

/// The class whose elements are of type T.
template <ArrayElement T>
constexpr ArrayClass arrayClassOf() {
  if constexpr (std::same_as<T, bool>) {
    return ArrayClass::logical;
  } else if constexpr (std::floating_point<T>) {
    return sizeof(T) == 8 ? ArrayClass::real64 : ArrayClass::real32;
  } else {
    constexpr int kLog2 = sizeof(T) == 1 ? 0 : sizeof(T) == 2 ? 1 : sizeof(T) == 4 ? 2 : 3;
    return static_cast<ArrayClass>(static_cast<int>(ArrayClass::int8) + 2 * kLog2 +
                                   (std::unsigned_integral<T> ? 1 : 0));
  }
}

/// An array value. Copies share the immutable elements.
///
/// Beside its dimensions an array has a rank, which tells apart what a host of matrices does
/// not: 0 for a scalar, 1 for a list, else the number of dimensions.
///
/// Threads: any number of readers.
/// Errors of the reading members: "nexstore:nex:HostArrayMismatch" when the array is not what
/// is asked for, naming both; "NoSuchField" and "HostArrayIndex" of the same component.
class HostArray {
 public:
  using Fields = std::vector<std::pair<std::string, HostArray>>;

  /// An empty 0x0 array of doubles.
  HostArray();

  /// 1x1, of rank 0.
  template <ArrayElement T>
  static HostArray scalar(T value) {
    return column(std::span<const T>(&value, 1)).withRank(0);
  }
  template <std::floating_point T>
  static HostArray scalar(std::complex<T> value) {
    return numeric(arrayClassOf<T>(), {1, 1}, std::as_bytes(std::span(&value, 1)),
                   Complexity::complex)
        .withRank(0);
  }
  /// nx1, of rank 1.
  template <ArrayElement T>
  static HostArray list(std::span<const T> values) {
    return column(values).withRank(1);
  }
  /// The same without a copy of the elements.
  template <ArrayElement T>
  requires(!std::same_as<T, bool>) static HostArray list(std::vector<T> values) {
    const std::size_t count = values.size();
    return owning(arrayClassOf<T>(), {count, 1}, std::move(values)).withRank(1);
  }
  template <ArrayElement T>
  static HostArray column(std::span<const T> values) {
    return numeric(arrayClassOf<T>(), {values.size(), 1}, std::as_bytes(values));
  }
  template <ArrayElement T>
  static HostArray row(std::span<const T> values) {
    return numeric(arrayClassOf<T>(), {1, values.size()}, std::as_bytes(values));
  }
  /// A numeric or logical array of copied elements.
  /// \throws "nexstore:nex:InvalidHostArray" unless dimensions and bytes agree and logical
  ///         bytes are 0 or 1
  static HostArray numeric(ArrayClass cls, Dimensions dimensions,
                           std::span<const std::byte> elements,
                           Complexity complexity = Complexity::real);
  /// The same without a copy: shares elements that nobody may change any more.
  static HostArray sharing(ArrayClass cls, Dimensions dimensions,
                           std::shared_ptr<const std::byte> elements, std::size_t byteCount,
                           Complexity complexity = Complexity::real);
  /// The same, taking a vector over; its elements may be of any type, char for raw bytes.
  template <class T>
  static HostArray owning(ArrayClass cls, Dimensions dimensions, std::vector<T> elements,
                          Complexity complexity = Complexity::real) {
    const auto kept = std::make_shared<const std::vector<T>>(std::move(elements));
    const auto* const first = reinterpret_cast<const std::byte*>(kept->data());
    return sharing(cls, std::move(dimensions), {kept, first}, kept->size() * sizeof(T),
                   complexity);
  }
  /// A row of characters, kept byte by byte.
  static HostArray text(std::string narrow);
  static HostArray text(const char* narrow) { return text(std::string(narrow)); }
  static HostArray text(std::wstring wide);
  static HostArray cell(Dimensions dimensions, std::vector<HostArray> elements);
  /// A cell of 1xn, of rank 1.
  static HostArray cell(std::vector<HostArray> elements);
  /// A structure of 1x1, of rank 0. \throws "nexstore:nex:InvalidHostArray" for a name given
  /// twice
  static HostArray structure(Fields fields);
  /// Structures with the same fields. `values` holds all fields of the first element in the
  /// order of `names`, then those of the second, and so on.
  static HostArray structureArray(Dimensions dimensions, std::vector<std::string> names,
                                  std::vector<HostArray> values);
  /// Members of an enumeration, with dimensions and rank of `samples`.
  /// \param samples  real numbers of class int32, each the value of a member
  /// \throws "nexstore:nex:InvalidHostArray" for other samples or a type without a name
  static HostArray enumeration(EnumerationType type, HostArray samples);
  /// Fixed-point numbers, with dimensions and rank of `realWorldValues`.
  /// \param realWorldValues  real numbers of class double
  /// \throws "nexstore:nex:InvalidHostArray" for others, or a word length outside [1, 65535]
  static HostArray fixedPoint(FixedPointType type, HostArray realWorldValues);
  /// An object of the host, of which only the class is known here. 1x1, of rank 0; equal to
  /// arrays that hold the same object.
  static HostArray scriptObject(std::string className, std::shared_ptr<void> object);
  /// A function of the host. 1x1, of rank 0; equal to copies of itself.
  static HostArray function(HostFunction function);

  /// The same elements with another rank: 0 for one element, 1 for nx1 or 1xn, or the number
  /// of dimensions. \throws "nexstore:nex:InvalidHostArray" for a rank that does not fit
  HostArray withRank(unsigned rank) const&;
  HostArray withRank(unsigned rank) &&;

  ArrayClass arrayClass() const;
  const Dimensions& dimensions() const;
  unsigned rank() const;
  /// Number of elements: the product of the dimensions.
  std::size_t size() const;
  bool isEmpty() const { return size() == 0; }
  bool isScalar() const { return size() == 1; }
  /// A class of numbers; logical is none.
  bool isNumeric() const { return arrayClass() < ArrayClass::logical; }
  bool isComplex() const;
  bool isLogical() const { return arrayClass() == ArrayClass::logical; }
  bool isText() const { return arrayClass() == ArrayClass::character; }
  bool isCell() const { return arrayClass() == ArrayClass::cell; }
  bool isStructure() const { return arrayClass() == ArrayClass::structure; }
  bool isEnumeration() const { return arrayClass() == ArrayClass::enumeration; }
  bool isFixedPoint() const { return arrayClass() == ArrayClass::fixedPoint; }
  bool isScriptObject() const { return arrayClass() == ArrayClass::scriptObject; }
  bool isFunction() const { return arrayClass() == ArrayClass::function; }

  /// The elements of a numeric or logical array; lives as long as any copy of it. Of complex
  /// ones, real and imaginary parts in turn.
  std::span<const std::byte> bytes() const;
  /// The elements of a real array whose class is that of T.
  template <ArrayElement T>
  std::span<const T> values() const {
    requireClass(arrayClassOf<T>());
    requireReal();
    return {reinterpret_cast<const T*>(bytes().data()), size()};
  }
  /// The elements of a complex array whose class is that of T.
  template <std::floating_point T>
  std::span<const std::complex<T>> complexValues() const {
    requireClass(arrayClassOf<T>());
    requireComplex();
    return {reinterpret_cast<const std::complex<T>*>(bytes().data()), size()};
  }
  /// Calls `visitor` with the elements as a span of their own type; real numbers or logical
  /// only.
  template <class Visitor>
  decltype(auto) visitNumbers(Visitor&& visitor) const;

  /// A real or logical scalar as a double.
  double toDouble() const;
  /// A real or logical scalar that is a whole number and fits.
  std::int64_t toInt64() const;
  /// Whether a real or logical scalar differs from 0. NaN is neither.
  bool toBool() const;
  /// Text, wide characters as UTF-8.
  std::string toString() const;
  /// Text, narrow bytes read as UTF-8.
  std::wstring toWide() const;
  bool isWideText() const;

  /// The elements of a cell.
  const std::vector<HostArray>& cells() const;
  const HostArray& cell(std::size_t index) const;

  const std::vector<std::string>& fieldNames() const;
  /// A field of one element of a structure; null when there is none of that name.
  const HostArray* findField(std::string_view name, std::size_t element = 0) const;
  const HostArray& field(std::string_view name, std::size_t element = 0) const;

  const EnumerationType& enumerationType() const;
  const FixedPointType& fixedPointType() const;
  /// The numbers of an enumeration (int32) or of fixed-point values (double).
  const HostArray& underlying() const;

  /// The class of a script object.
  const std::string& scriptClass() const;
  /// The object itself; may be null.
  const std::shared_ptr<void>& scriptPointer() const;
  const HostFunction& toFunction() const;

  /// Equal class, dimensions, rank and contents, numbers compared bit by bit.
  bool operator==(const HostArray& other) const;

  /// For messages: "a 2x3 int32 array".
  std::string describe() const;

 private:
  struct Body;
  /// An array whose rank is the number of its dimensions.
  template <class Contents>
  HostArray(ArrayClass cls, Dimensions dimensions, std::size_t count, Contents contents);

  void requireClass(ArrayClass cls) const;
  void requireReal() const;
  void requireComplex() const;
  void requireNumbers(const char* expected) const;
  [[noreturn]] void raiseMismatch(std::string_view expected) const;

  std::shared_ptr<const Body> body_;
};

template <class Visitor>
decltype(auto) HostArray::visitNumbers(Visitor&& visitor) const {
  switch (arrayClass()) {
    case ArrayClass::real64:
      return visitor(values<double>());
    case ArrayClass::real32:
      return visitor(values<float>());
    case ArrayClass::int8:
      return visitor(values<std::int8_t>());
    case ArrayClass::uint8:
      return visitor(values<std::uint8_t>());
    case ArrayClass::int16:
      return visitor(values<std::int16_t>());
    case ArrayClass::uint16:
      return visitor(values<std::uint16_t>());
    case ArrayClass::int32:
      return visitor(values<std::int32_t>());
    case ArrayClass::uint32:
      return visitor(values<std::uint32_t>());
    case ArrayClass::int64:
      return visitor(values<std::int64_t>());
    case ArrayClass::uint64:
      return visitor(values<std::uint64_t>());
    case ArrayClass::logical:
      return visitor(values<bool>());
    default:
      raiseMismatch("numbers");
  }
}

}  // namespace host
