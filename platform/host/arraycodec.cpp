#include "host/arraycodec.h"

#include <bit>
#include <memory>
#include <utility>

#include "kodiag/message.h"
#include "text/utf8.h"

namespace host {
namespace {

static_assert(std::endian::native == std::endian::little,
              "elements are stored as they lie in memory");

constexpr int kDeepest = 64;
constexpr std::size_t kMostDimensions = 255;
/// The fewest bytes an array takes: its class, the number of dimensions and two of these.
constexpr std::size_t kSmallestArray = 18;
constexpr std::size_t kSmallestText = sizeof(std::uint64_t);

bool hasNumbers(const HostArray& array) {
  return array.isNumeric() || array.isLogical();
}

[[noreturn]] void refuse(const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", "store an array"}, {"Reason", reason}});
}

[[noreturn]] void raiseInvalid(const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidHostArray"}, {{"Reason", reason}});
}

/// The rank of an array that was stored without one.
unsigned formerRank(const HostArray& array) {
  const bool isSingle = array.isScalar() && (hasNumbers(array) || array.isStructure());
  return isSingle ? 0 : static_cast<unsigned>(array.dimensions().size());
}

}  // namespace

void ArrayEncoder::putStructureHead(std::span<const std::string> fieldNames) {
  putHead(ArrayClass::structure, 0, {1, 1});
  putFieldNames(fieldNames);
}

void ArrayEncoder::putCellHead(std::size_t count) {
  putHead(ArrayClass::cell, 1, {1, count});
}

void ArrayEncoder::putText(const std::string& text) {
  putNumber(static_cast<std::uint64_t>(text.size()));
  out_ += text;
}

void ArrayEncoder::putHead(ArrayClass cls, unsigned rank, const Dimensions& dimensions) {
  if (dimensions.size() > kMostDimensions) refuse("it has too many dimensions");
  putNumber(static_cast<std::uint8_t>(cls));
  putNumber(static_cast<std::uint8_t>(rank));
  putNumber(static_cast<std::uint8_t>(dimensions.size()));
  for (const std::size_t length : dimensions) putNumber(static_cast<std::uint64_t>(length));
}

void ArrayEncoder::putFieldNames(std::span<const std::string> names) {
  putNumber(static_cast<std::uint32_t>(names.size()));
  for (const std::string& name : names) putText(name);
}

void ArrayEncoder::putArray(const HostArray& array, int depth) {
  if (depth > kDeepest) refuse("arrays are nested too deeply");
  putHead(array.arrayClass(), array.rank(), array.dimensions());
  putContents(array, depth);
}

void ArrayEncoder::putContents(const HostArray& array, int depth) {
  switch (array.arrayClass()) {
    case ArrayClass::character:
      putNumber(static_cast<std::uint8_t>(array.isWideText()));
      putText(array.toString());
      break;
    case ArrayClass::cell:
      for (const HostArray& element : array.cells()) putArray(element, depth + 1);
      break;
    case ArrayClass::structure:
      putFieldNames(array.fieldNames());
      for (std::size_t element = 0; element < array.size(); ++element) {
        for (const std::string& name : array.fieldNames()) {
          putArray(array.field(name, element), depth + 1);
        }
      }
      break;
    case ArrayClass::enumeration:
      putEnumerationType(array.enumerationType());
      putArray(array.underlying(), depth + 1);
      break;
    case ArrayClass::fixedPoint:
      putFixedPointType(array.fixedPointType());
      putArray(array.underlying(), depth + 1);
      break;
    case ArrayClass::scriptObject:
      refuse("an object of class " + array.scriptClass() + " cannot be kept");
    case ArrayClass::function:
      refuse("a function cannot be kept");
    default:
      putNumber(static_cast<std::uint8_t>(array.isComplex()));
      out_.append(reinterpret_cast<const char*>(array.bytes().data()), array.bytes().size());
  }
}

void ArrayEncoder::putEnumerationType(const EnumerationType& type) {
  putText(type.className);
  putNumber(static_cast<std::uint32_t>(type.members.size()));
  for (const auto& [label, value] : type.members) {
    putText(label);
    putNumber(value);
  }
}

void ArrayEncoder::putFixedPointType(const FixedPointType& type) {
  putNumber(static_cast<std::uint8_t>(type.isSigned));
  putNumber(static_cast<std::int32_t>(type.wordLength));
  putNumber(static_cast<std::uint8_t>(type.fractionLength.has_value()));
  putNumber(static_cast<std::int32_t>(type.fractionLength.value_or(0)));
  putNumber(type.slope);
  putNumber(type.bias);
}

std::vector<std::string> ArrayDecoder::takeStructureHead() {
  const Head head = takeHead();
  if (head.cls != ArrayClass::structure || head.dimensions != Dimensions{1, 1}) {
    raiseInvalid("a single structure was expected");
  }
  return takeFieldNames();
}

std::size_t ArrayDecoder::takeCellHead() {
  const Head head = takeHead();
  if (head.cls != ArrayClass::cell) raiseInvalid("a cell was expected");
  return countElements(head.dimensions, kSmallestArray);
}

template <class Number>
Number ArrayDecoder::takeNumber() {
  Number value;
  if (sizeof value > source_.left()) raiseInvalid("the array is cut off");
  source_.take(&value, sizeof value);
  return value;
}

std::string ArrayDecoder::takeText() {
  const auto length = takeNumber<std::uint64_t>();
  if (length > source_.left()) raiseInvalid("the array is cut off");
  std::string text(length, '\0');
  if (length > 0) source_.take(text.data(), text.size());
  return text;
}

ArrayDecoder::Head ArrayDecoder::takeHead() {
  const auto code = takeNumber<std::uint8_t>();
  if (code > static_cast<std::uint8_t>(ArrayClass::fixedPoint)) {
    raiseInvalid("an array has the unknown class " + std::to_string(code));
  }
  Head head{static_cast<ArrayClass>(code), hasRanks_ ? takeNumber<std::uint8_t>() : 0U, {}};
  head.dimensions.resize(takeNumber<std::uint8_t>());
  for (std::size_t& length : head.dimensions) length = takeNumber<std::uint64_t>();
  return head;
}

std::vector<std::string> ArrayDecoder::takeFieldNames() {
  const auto count = takeNumber<std::uint32_t>();
  if (count > source_.left() / kSmallestText) raiseInvalid("the array is cut off");
  std::vector<std::string> names;
  names.reserve(count);
  while (names.size() < count) names.push_back(takeText());
  return names;
}

std::size_t ArrayDecoder::countElements(const Dimensions& dimensions,
                                        std::size_t bytesEach) const {
  std::size_t count = 1;
  for (const std::size_t length : dimensions) {
    if (length == 0) return 0;
    if (__builtin_mul_overflow(count, length, &count)) raiseInvalid("the array is cut off");
  }
  if (count > source_.left() / bytesEach) raiseInvalid("the array is cut off");
  return count;
}

HostArray ArrayDecoder::takeArray(int depth) {
  if (depth > kDeepest) raiseInvalid("arrays are nested too deeply");
  Head head = takeHead();
  const unsigned rank = head.rank;
  HostArray array = takeContents(std::move(head), depth);
  return hasRanks_ ? std::move(array).withRank(rank) : array.withRank(formerRank(array));
}

HostArray ArrayDecoder::takeContents(Head head, int depth) {
  switch (head.cls) {
    case ArrayClass::character:
      return takeCharacters();
    case ArrayClass::cell:
      return takeCell(std::move(head), depth);
    case ArrayClass::structure:
      return takeStructure(std::move(head), depth);
    case ArrayClass::enumeration: {
      EnumerationType type = takeEnumerationType();
      return HostArray::enumeration(std::move(type), takeArray(depth + 1));
    }
    case ArrayClass::fixedPoint: {
      const FixedPointType type = takeFixedPointType();
      return HostArray::fixedPoint(type, takeArray(depth + 1));
    }
    default:
      return takeNumbers(std::move(head));
  }
}

HostArray ArrayDecoder::takeNumbers(Head head) {
  const bool isComplex = hasRanks_ && takeNumber<std::uint8_t>() != 0;
  const std::size_t bytesEach = elementBytes(head.cls) * (isComplex ? 2 : 1);
  const std::size_t count = countElements(head.dimensions, bytesEach);
  const std::size_t byteCount = count * bytesEach;
  const auto elements = std::make_shared_for_overwrite<std::byte[]>(byteCount);
  if (byteCount > 0) source_.take(elements.get(), byteCount);
  return HostArray::sharing(head.cls, std::move(head.dimensions), {elements, elements.get()},
                            byteCount, isComplex ? Complexity::complex : Complexity::real);
}

HostArray ArrayDecoder::takeCharacters() {
  const bool wide = takeNumber<std::uint8_t>() != 0;
  std::string text = takeText();
  return wide ? HostArray::text(text::toWide(text)) : HostArray::text(std::move(text));
}

std::vector<HostArray> ArrayDecoder::takeArrays(std::size_t count, int depth) {
  std::vector<HostArray> arrays;
  while (arrays.size() < count) arrays.push_back(takeArray(depth + 1));
  return arrays;
}

HostArray ArrayDecoder::takeCell(Head head, int depth) {
  const std::size_t count = countElements(head.dimensions, kSmallestArray);
  return HostArray::cell(std::move(head.dimensions), takeArrays(count, depth));
}

HostArray ArrayDecoder::takeStructure(Head head, int depth) {
  std::vector<std::string> names = takeFieldNames();
  if (names.empty()) return HostArray::structureArray(std::move(head.dimensions), {}, {});
  const std::size_t count = countElements(head.dimensions, names.size() * kSmallestArray);
  const std::size_t values = count * names.size();
  return HostArray::structureArray(std::move(head.dimensions), std::move(names),
                                   takeArrays(values, depth));
}

EnumerationType ArrayDecoder::takeEnumerationType() {
  EnumerationType type{takeText(), {}};
  for (auto count = takeNumber<std::uint32_t>(); count > 0; --count) {
    std::string label = takeText();
    type.members.emplace_back(std::move(label), takeNumber<std::int32_t>());
  }
  return type;
}

FixedPointType ArrayDecoder::takeFixedPointType() {
  FixedPointType type;
  type.isSigned = takeNumber<std::uint8_t>() != 0;
  type.wordLength = takeNumber<std::int32_t>();
  const bool hasFractionLength = takeNumber<std::uint8_t>() != 0;
  const auto fractionLength = takeNumber<std::int32_t>();
  if (hasFractionLength) type.fractionLength = fractionLength;
  type.slope = takeNumber<double>();
  type.bias = takeNumber<double>();
  return type;
}

}  // namespace host
