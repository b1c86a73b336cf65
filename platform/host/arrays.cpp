#include "host/arrays.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <variant>

#include "kodiag/message.h"
#include "text/utf8.h"

namespace host {
namespace {

/// The longest word of a fixed-point number.
constexpr int kMostBits = 65535;

struct ClassTraits {
  std::string_view name;
  std::size_t bytes;
};

constexpr std::array<ClassTraits, 18> kClasses = {{{"double", 8},
                                                   {"single", 4},
                                                   {"int8", 1},
                                                   {"uint8", 1},
                                                   {"int16", 2},
                                                   {"uint16", 2},
                                                   {"int32", 4},
                                                   {"uint32", 4},
                                                   {"int64", 8},
                                                   {"uint64", 8},
                                                   {"logical", 1},
                                                   {"char", 0},
                                                   {"cell", 0},
                                                   {"struct", 0},
                                                   {"enumeration", 0},
                                                   {"fixed-point", 0},
                                                   {"object", 0},
                                                   {"function", 0}}};

[[noreturn]] void refuse(const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidHostArray"}, {{"Reason", reason}});
}

std::size_t elementCount(const Dimensions& dimensions) {
  if (dimensions.size() < 2) refuse("it needs at least two dimensions");
  if (std::find(dimensions.begin(), dimensions.end(), 0u) != dimensions.end()) return 0;
  std::size_t count = 1;
  for (const std::size_t length : dimensions) {
    if (__builtin_mul_overflow(count, length, &count)) refuse("its dimensions are too large");
  }
  return count;
}

void requireCount(std::size_t count, std::size_t expected) {
  if (count == expected) return;
  refuse("its dimensions ask for " + std::to_string(expected) + " elements, " +
         std::to_string(count) + " are given");
}

std::size_t byteCountOf(ArrayClass cls, Complexity complexity, std::size_t count) {
  const bool isComplex = complexity == Complexity::complex;
  const std::size_t each = elementBytes(cls) * (isComplex ? 2 : 1);
  if (each == 0)
    refuse("elements of class " + std::string(arrayClassName(cls)) + " are no numbers");
  if (isComplex && cls != ArrayClass::real64 && cls != ArrayClass::real32) {
    refuse("complex elements are of class double or single");
  }
  std::size_t bytes = 0;
  if (__builtin_mul_overflow(count, each, &bytes)) refuse("its dimensions are too large");
  return bytes;
}

void requireLogical(std::span<const std::byte> elements) {
  const bool clean = std::all_of(elements.begin(), elements.end(),
                                 [](std::byte b) { return std::to_integer<int>(b) <= 1; });
  if (!clean) refuse("a logical element is neither 0 nor 1");
}

std::string joined(const Dimensions& dimensions) {
  std::string out;
  for (const std::size_t length : dimensions) {
    if (!out.empty()) out += "x";
    out += std::to_string(length);
  }
  return out;
}

bool isVector(const Dimensions& dimensions) {
  return dimensions.size() == 2 && (dimensions[0] == 1 || dimensions[1] == 1);
}

struct Numbers {
  std::shared_ptr<const std::byte> data;
  std::size_t byteCount = 0;
  Complexity complexity = Complexity::real;

  std::span<const std::byte> bytes() const { return {data.get(), byteCount}; }
  bool operator==(const Numbers& other) const {
    return complexity == other.complexity && std::ranges::equal(bytes(), other.bytes());
  }
};

struct Structure {
  std::vector<std::string> names;
  std::vector<HostArray> values;

  bool operator==(const Structure&) const = default;
};

struct Enumeration {
  std::shared_ptr<const EnumerationType> type;
  HostArray samples;

  bool operator==(const Enumeration& other) const {
    return (type == other.type || *type == *other.type) && samples == other.samples;
  }
};

struct FixedPoint {
  FixedPointType type;
  HostArray values;

  bool operator==(const FixedPoint&) const = default;
};

struct ScriptObject {
  std::string className;
  std::shared_ptr<void> object;

  bool operator==(const ScriptObject&) const = default;
};

struct Function {
  std::shared_ptr<const HostFunction> call;

  bool operator==(const Function&) const = default;
};

void requireMembers(const EnumerationType& type, const HostArray& samples) {
  std::set<std::int32_t> values;
  for (const auto& [label, value] : type.members) values.insert(value);
  for (const std::int32_t sample : samples.values<std::int32_t>()) {
    if (!values.contains(sample)) {
      refuse(std::to_string(sample) + " is no member of " + type.className);
    }
  }
}

}  // namespace

std::string_view arrayClassName(ArrayClass cls) {
  return kClasses[static_cast<std::size_t>(cls)].name;
}

std::size_t elementBytes(ArrayClass cls) {
  return kClasses[static_cast<std::size_t>(cls)].bytes;
}

struct HostArray::Body {
  ArrayClass cls = ArrayClass::real64;
  Dimensions dimensions;
  unsigned rank = 0;
  std::size_t size = 0;
  std::variant<Numbers, std::string, std::wstring, std::vector<HostArray>, Structure,
               Enumeration, FixedPoint, ScriptObject, Function>
      contents;

  bool operator==(const Body&) const = default;
};

HostArray::HostArray() {
  static const HostArray empty(ArrayClass::real64, {0, 0}, 0, Numbers());
  body_ = empty.body_;
}

template <class Contents>
HostArray::HostArray(ArrayClass cls, Dimensions dimensions, std::size_t count,
                     Contents contents) {
  const auto rank = static_cast<unsigned>(dimensions.size());
  body_ = std::make_shared<Body>(
      Body{cls, std::move(dimensions), rank, count, std::move(contents)});
}

HostArray HostArray::numeric(ArrayClass cls, Dimensions dimensions,
                             std::span<const std::byte> elements, Complexity complexity) {
  // new, unlike a vector of bytes, aligns for every element type.
  const std::shared_ptr<std::byte[]> copy(new std::byte[elements.size()]);
  std::copy(elements.begin(), elements.end(), copy.get());
  return sharing(cls, std::move(dimensions), {copy, copy.get()}, elements.size(), complexity);
}

HostArray HostArray::sharing(ArrayClass cls, Dimensions dimensions,
                             std::shared_ptr<const std::byte> elements, std::size_t byteCount,
                             Complexity complexity) {
  const std::size_t count = elementCount(dimensions);
  const std::size_t expected = byteCountOf(cls, complexity, count);
  if (byteCount != expected) {
    refuse("its dimensions ask for " + std::to_string(expected) + " bytes, " +
           std::to_string(byteCount) + " are given");
  }
  if (reinterpret_cast<std::uintptr_t>(elements.get()) % elementBytes(cls) != 0) {
    refuse("its elements are not aligned");
  }
  if (cls == ArrayClass::logical) requireLogical({elements.get(), byteCount});
  return HostArray(cls, std::move(dimensions), count,
                   Numbers{std::move(elements), byteCount, complexity});
}

HostArray HostArray::text(std::string narrow) {
  const std::size_t length = narrow.size();
  return HostArray(ArrayClass::character, {1, length}, length, std::move(narrow));
}

HostArray HostArray::text(std::wstring wide) {
  const std::size_t length = wide.size();
  return HostArray(ArrayClass::character, {1, length}, length, std::move(wide));
}

HostArray HostArray::cell(Dimensions dimensions, std::vector<HostArray> elements) {
  const std::size_t count = elementCount(dimensions);
  requireCount(elements.size(), count);
  return HostArray(ArrayClass::cell, std::move(dimensions), count, std::move(elements));
}

HostArray HostArray::cell(std::vector<HostArray> elements) {
  const std::size_t count = elements.size();
  return cell({1, count}, std::move(elements)).withRank(1);
}

HostArray HostArray::structure(Fields fields) {
  std::vector<std::string> names;
  std::vector<HostArray> values;
  for (auto& [name, value] : fields) {
    names.push_back(std::move(name));
    values.push_back(std::move(value));
  }
  return structureArray({1, 1}, std::move(names), std::move(values)).withRank(0);
}

HostArray HostArray::structureArray(Dimensions dimensions, std::vector<std::string> names,
                                    std::vector<HostArray> values) {
  const std::set<std::string_view> distinct(names.begin(), names.end());
  if (distinct.size() != names.size()) refuse("a field name is given twice");
  const std::size_t count = elementCount(dimensions);
  std::size_t expected = 0;
  if (__builtin_mul_overflow(count, names.size(), &expected)) {
    refuse("its dimensions are too large");
  }
  requireCount(values.size(), expected);
  return HostArray(ArrayClass::structure, std::move(dimensions), count,
                   Structure{std::move(names), std::move(values)});
}

HostArray HostArray::enumeration(EnumerationType type, HostArray samples) {
  if (type.className.empty()) refuse("the enumeration has no name");
  if (samples.arrayClass() != ArrayClass::int32) refuse("samples of enumerations are int32");
  requireMembers(type, samples);
  const Dimensions dimensions = samples.dimensions();
  const std::size_t count = samples.size();
  const unsigned rank = samples.rank();
  return HostArray(
             ArrayClass::enumeration, dimensions, count,
             Enumeration{std::make_shared<const EnumerationType>(std::move(type)), samples})
      .withRank(rank);
}

HostArray HostArray::fixedPoint(FixedPointType type, HostArray realWorldValues) {
  if (realWorldValues.arrayClass() != ArrayClass::real64 || realWorldValues.isComplex()) {
    refuse("fixed-point values are given as doubles");
  }
  if (type.wordLength < 1 || type.wordLength > kMostBits) {
    refuse("a word of " + std::to_string(type.wordLength) + " bits cannot be kept");
  }
  const Dimensions dimensions = realWorldValues.dimensions();
  const std::size_t count = realWorldValues.size();
  const unsigned rank = realWorldValues.rank();
  return HostArray(ArrayClass::fixedPoint, dimensions, count,
                   FixedPoint{type, std::move(realWorldValues)})
      .withRank(rank);
}

HostArray HostArray::scriptObject(std::string className, std::shared_ptr<void> object) {
  return HostArray(ArrayClass::scriptObject, {1, 1}, 1,
                   ScriptObject{std::move(className), std::move(object)})
      .withRank(0);
}

HostArray HostArray::function(HostFunction function) {
  return HostArray(ArrayClass::function, {1, 1}, 1,
                   Function{std::make_shared<const HostFunction>(std::move(function))})
      .withRank(0);
}

HostArray HostArray::withRank(unsigned rank) const& {
  return HostArray(*this).withRank(rank);
}

HostArray HostArray::withRank(unsigned rank) && {
  if (rank == body_->rank) return std::move(*this);
  const bool fits = rank == 0   ? size() == 1
                    : rank == 1 ? isVector(dimensions())
                                : rank == dimensions().size();
  if (!fits) refuse("rank " + std::to_string(rank) + " does not fit " + describe());
  if (body_.use_count() != 1) body_ = std::make_shared<Body>(*body_);
  // Nobody else sees this body, which was not made const.
  const_cast<Body&>(*body_).rank = rank;
  return std::move(*this);
}

ArrayClass HostArray::arrayClass() const {
  return body_->cls;
}

const Dimensions& HostArray::dimensions() const {
  return body_->dimensions;
}

unsigned HostArray::rank() const {
  return body_->rank;
}

std::size_t HostArray::size() const {
  return body_->size;
}

bool HostArray::isComplex() const {
  const auto* const numbers = std::get_if<Numbers>(&body_->contents);
  return numbers && numbers->complexity == Complexity::complex;
}

std::span<const std::byte> HostArray::bytes() const {
  requireNumbers("numbers");
  return std::get<Numbers>(body_->contents).bytes();
}

double HostArray::toDouble() const {
  requireNumbers("a number");
  requireReal();
  if (!isScalar()) raiseMismatch("a single number");
  return visitNumbers([](const auto& values) { return static_cast<double>(values[0]); });
}

std::int64_t HostArray::toInt64() const {
  requireNumbers("a whole number");
  requireReal();
  if (!isScalar()) raiseMismatch("a single whole number");
  return visitNumbers([this]<class T>(std::span<const T> values) -> std::int64_t {
    const T value = values[0];
    if constexpr (std::is_floating_point_v<T>) {
      // Both bounds are powers of two, exact in every floating-point type.
      if (!(value >= static_cast<T>(-0x1p63) && value < static_cast<T>(0x1p63)) ||
          std::trunc(value) != value) {
        raiseMismatch("a whole number of 64 bits");
      }
    } else if constexpr (!std::is_same_v<T, bool>) {
      if (!std::in_range<std::int64_t>(value)) raiseMismatch("a whole number of 64 bits");
    }
    return static_cast<std::int64_t>(value);
  });
}

bool HostArray::toBool() const {
  const double value = toDouble();
  if (std::isnan(value)) raiseMismatch("true or false");
  return value != 0;
}

std::string HostArray::toString() const {
  requireClass(ArrayClass::character);
  if (isWideText()) return text::toUtf8(std::get<std::wstring>(body_->contents));
  return std::get<std::string>(body_->contents);
}

std::wstring HostArray::toWide() const {
  requireClass(ArrayClass::character);
  if (isWideText()) return std::get<std::wstring>(body_->contents);
  return text::toWide(std::get<std::string>(body_->contents));
}

bool HostArray::isWideText() const {
  return std::holds_alternative<std::wstring>(body_->contents);
}

const std::vector<HostArray>& HostArray::cells() const {
  requireClass(ArrayClass::cell);
  return std::get<std::vector<HostArray>>(body_->contents);
}

const HostArray& HostArray::cell(std::size_t index) const {
  const std::vector<HostArray>& elements = cells();
  if (index >= elements.size()) {
    kodiag::raise({"nexstore:nex", "HostArrayIndex"},
                  {{"Index", std::to_string(index)}, {"Actual", describe()}});
  }
  return elements[index];
}

const std::vector<std::string>& HostArray::fieldNames() const {
  requireClass(ArrayClass::structure);
  return std::get<Structure>(body_->contents).names;
}

const HostArray* HostArray::findField(std::string_view name, std::size_t element) const {
  const std::vector<std::string>& names = fieldNames();
  if (element >= size()) {
    kodiag::raise({"nexstore:nex", "HostArrayIndex"},
                  {{"Index", std::to_string(element)}, {"Actual", describe()}});
  }
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) return nullptr;
  const auto position = static_cast<std::size_t>(found - names.begin());
  return &std::get<Structure>(body_->contents).values[element * names.size() + position];
}

const HostArray& HostArray::field(std::string_view name, std::size_t element) const {
  const HostArray* const found = findField(name, element);
  if (!found) {
    kodiag::raise({"nexstore:nex", "NoSuchField"}, {{"FieldName", std::string(name)}});
  }
  return *found;
}

const EnumerationType& HostArray::enumerationType() const {
  requireClass(ArrayClass::enumeration);
  return *std::get<Enumeration>(body_->contents).type;
}

const FixedPointType& HostArray::fixedPointType() const {
  requireClass(ArrayClass::fixedPoint);
  return std::get<FixedPoint>(body_->contents).type;
}

const HostArray& HostArray::underlying() const {
  if (isEnumeration()) return std::get<Enumeration>(body_->contents).samples;
  requireClass(ArrayClass::fixedPoint);
  return std::get<FixedPoint>(body_->contents).values;
}

const std::string& HostArray::scriptClass() const {
  requireClass(ArrayClass::scriptObject);
  return std::get<ScriptObject>(body_->contents).className;
}

const std::shared_ptr<void>& HostArray::scriptPointer() const {
  requireClass(ArrayClass::scriptObject);
  return std::get<ScriptObject>(body_->contents).object;
}

const HostFunction& HostArray::toFunction() const {
  requireClass(ArrayClass::function);
  return *std::get<Function>(body_->contents).call;
}

bool HostArray::operator==(const HostArray& other) const {
  return body_ == other.body_ || *body_ == *other.body_;
}

std::string HostArray::describe() const {
  return "a " + joined(dimensions()) + (isComplex() ? " complex " : " ") +
         std::string(arrayClassName(arrayClass())) + " array";
}

void HostArray::requireClass(ArrayClass cls) const {
  if (arrayClass() != cls) {
    raiseMismatch("an array of class " + std::string(arrayClassName(cls)));
  }
}

void HostArray::requireReal() const {
  if (isComplex()) raiseMismatch("an array of real numbers");
}

void HostArray::requireComplex() const {
  if (!isComplex()) raiseMismatch("an array of complex numbers");
}

void HostArray::requireNumbers(const char* expected) const {
  if (!isNumeric() && !isLogical()) raiseMismatch(expected);
}

void HostArray::raiseMismatch(std::string_view expected) const {
  kodiag::raise({"nexstore:nex", "HostArrayMismatch"},
                {{"Expected", std::string(expected)}, {"Actual", describe()}});
}

}  // namespace host
