#include "kodd/hostarraycodec.h"

#include <bit>
#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "kodiag/diagnostics.h"
#include "kodiag/message.h"
#include "text/utf8.h"

namespace kodd {
namespace {

using host::ArrayClass;
using host::HostArray;

static_assert(std::endian::native == std::endian::little,
              "elements are stored as they lie in memory");

// Stored; never renumber.
constexpr std::uint8_t kFormat = 2;
constexpr std::uint8_t kFormatWithoutRank = 1;
constexpr int kDeepest = 64;
constexpr std::size_t kMostDimensions = 255;

bool hasNumbers(const HostArray& array) {
  return array.isNumeric() || array.isLogical();
}

[[noreturn]] void refuse(const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", "store an array"}, {"Reason", reason}});
}

class Encoder {
 public:
  std::string encode(const HostArray& array) {
    put(kFormat);
    putArray(array, 0);
    return std::move(out_);
  }

 private:
  template <class Number>
  void put(Number value) {
    out_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  void putText(const std::string& text) {
    put(static_cast<std::uint64_t>(text.size()));
    out_ += text;
  }

  void putArray(const HostArray& array, int depth) {
    if (depth > kDeepest) refuse("arrays are nested too deeply");
    put(static_cast<std::uint8_t>(array.arrayClass()));
    put(static_cast<std::uint8_t>(array.rank()));
    putDimensions(array);
    switch (array.arrayClass()) {
      case ArrayClass::character:
        put(static_cast<std::uint8_t>(array.isWideText()));
        putText(array.toString());
        break;
      case ArrayClass::cell:
        for (const HostArray& element : array.cells()) putArray(element, depth + 1);
        break;
      case ArrayClass::structure:
        putStructure(array, depth);
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
        put(static_cast<std::uint8_t>(array.isComplex()));
        putBytes(array.bytes());
    }
  }

  void putBytes(std::span<const std::byte> bytes) {
    out_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  }

  void putDimensions(const HostArray& array) {
    const host::Dimensions& dimensions = array.dimensions();
    if (dimensions.size() > kMostDimensions) refuse("it has too many dimensions");
    put(static_cast<std::uint8_t>(dimensions.size()));
    for (const std::size_t length : dimensions) put(static_cast<std::uint64_t>(length));
  }

  void putStructure(const HostArray& array, int depth) {
    put(static_cast<std::uint32_t>(array.fieldNames().size()));
    for (const std::string& name : array.fieldNames()) putText(name);
    for (std::size_t element = 0; element < array.size(); ++element) {
      for (const std::string& name : array.fieldNames()) {
        putArray(array.field(name, element), depth + 1);
      }
    }
  }

  void putEnumerationType(const host::EnumerationType& type) {
    putText(type.className);
    put(static_cast<std::uint32_t>(type.members.size()));
    for (const auto& [label, value] : type.members) {
      putText(label);
      put(value);
    }
  }

  void putFixedPointType(const host::FixedPointType& type) {
    put(static_cast<std::uint8_t>(type.isSigned));
    put(static_cast<std::int32_t>(type.wordLength));
    put(static_cast<std::uint8_t>(type.fractionLength.has_value()));
    put(static_cast<std::int32_t>(type.fractionLength.value_or(0)));
    put(type.slope);
    put(type.bias);
  }

  std::string out_;
};

[[noreturn]] void raiseCorrupt(const std::string& reason) {
  kodiag::raise(
      {"sqldb:ssdb", "Corrupt"},
      {{"Operation", "read an array"}, {"Location", "the repository"}, {"Reason", reason}});
}

/// Takes the stored bytes apart. Every length is checked against the bytes that are left before
/// anything is made from it.
class Decoder {
 public:
  explicit Decoder(std::span<const std::byte> stored) : left_(stored) {}

  HostArray decode() {
    const auto format = take<std::uint8_t>();
    if (format != kFormat && format != kFormatWithoutRank) {
      raiseCorrupt("the array has an unknown format");
    }
    hasRanks_ = format != kFormatWithoutRank;
    HostArray array = takeArray(0);
    if (!left_.empty()) raiseCorrupt("bytes are left behind the array");
    return array;
  }

 private:
  std::span<const std::byte> takeBytes(std::uint64_t count) {
    if (count > left_.size()) raiseCorrupt("the array is cut off");
    const std::span<const std::byte> bytes = left_.first(count);
    left_ = left_.subspan(count);
    return bytes;
  }
  template <class Number>
  Number take() {
    Number value;
    std::memcpy(&value, takeBytes(sizeof value).data(), sizeof value);
    return value;
  }
  std::string takeText() {
    const std::span<const std::byte> bytes = takeBytes(take<std::uint64_t>());
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

  /// The number of elements, each of which takes at least `bytesEach` of what is left.
  std::size_t countElements(const host::Dimensions& dimensions, std::size_t bytesEach) const {
    std::size_t count = 1;
    for (const std::size_t length : dimensions) {
      if (length == 0) return 0;
      if (__builtin_mul_overflow(count, length, &count)) raiseCorrupt("the array is cut off");
    }
    if (count > left_.size() / bytesEach) raiseCorrupt("the array is cut off");
    return count;
  }

  HostArray takeArray(int depth) {
    if (depth > kDeepest) raiseCorrupt("arrays are nested too deeply");
    const auto code = take<std::uint8_t>();
    if (code > static_cast<std::uint8_t>(ArrayClass::fixedPoint)) {
      raiseCorrupt("an array has the unknown class " + std::to_string(code));
    }
    const auto cls = static_cast<ArrayClass>(code);
    const unsigned rank = hasRanks_ ? take<std::uint8_t>() : 0;
    host::Dimensions dimensions(take<std::uint8_t>());
    for (std::size_t& length : dimensions) length = take<std::uint64_t>();
    HostArray array = takeContents(cls, std::move(dimensions), depth);
    return hasRanks_ ? std::move(array).withRank(rank) : array.withRank(formerRank(array));
  }

  /// The rank of an array that was stored without one.
  static unsigned formerRank(const HostArray& array) {
    const bool isSingle = array.isScalar() && (hasNumbers(array) || array.isStructure());
    return isSingle ? 0 : static_cast<unsigned>(array.dimensions().size());
  }

  HostArray takeContents(ArrayClass cls, host::Dimensions dimensions, int depth) {
    switch (cls) {
      case ArrayClass::character:
        return takeCharacters();
      case ArrayClass::cell:
        return takeCell(std::move(dimensions), depth);
      case ArrayClass::structure:
        return takeStructure(std::move(dimensions), depth);
      case ArrayClass::enumeration: {
        host::EnumerationType type = takeEnumerationType();
        return HostArray::enumeration(std::move(type), takeArray(depth + 1));
      }
      case ArrayClass::fixedPoint: {
        const host::FixedPointType type = takeFixedPointType();
        return HostArray::fixedPoint(type, takeArray(depth + 1));
      }
      default:
        return takeNumbers(cls, std::move(dimensions));
    }
  }

  HostArray takeNumbers(ArrayClass cls, host::Dimensions dimensions) {
    const bool isComplex = hasRanks_ && take<std::uint8_t>() != 0;
    const std::size_t bytesEach = host::elementBytes(cls) * (isComplex ? 2 : 1);
    const std::size_t count = countElements(dimensions, bytesEach);
    return HostArray::numeric(cls, std::move(dimensions), takeBytes(count * bytesEach),
                              isComplex ? host::Complexity::complex : host::Complexity::real);
  }

  host::EnumerationType takeEnumerationType() {
    host::EnumerationType type{takeText(), {}};
    for (auto count = take<std::uint32_t>(); count > 0; --count) {
      std::string label = takeText();
      type.members.emplace_back(std::move(label), take<std::int32_t>());
    }
    return type;
  }

  host::FixedPointType takeFixedPointType() {
    host::FixedPointType type;
    type.isSigned = take<std::uint8_t>() != 0;
    type.wordLength = take<std::int32_t>();
    const bool hasFractionLength = take<std::uint8_t>() != 0;
    const auto fractionLength = take<std::int32_t>();
    if (hasFractionLength) type.fractionLength = fractionLength;
    type.slope = take<double>();
    type.bias = take<double>();
    return type;
  }

  HostArray takeCharacters() {
    const bool wide = take<std::uint8_t>() != 0;
    std::string text = takeText();
    return wide ? HostArray::text(text::toWide(text)) : HostArray::text(std::move(text));
  }

  std::vector<HostArray> takeArrays(std::size_t count, int depth) {
    std::vector<HostArray> arrays;
    while (arrays.size() < count) arrays.push_back(takeArray(depth + 1));
    return arrays;
  }

  HostArray takeCell(host::Dimensions dimensions, int depth) {
    const std::size_t count = countElements(dimensions, 1);
    return HostArray::cell(std::move(dimensions), takeArrays(count, depth));
  }

  HostArray takeStructure(host::Dimensions dimensions, int depth) {
    std::vector<std::string> names;
    for (auto count = take<std::uint32_t>(); count > 0; --count) names.push_back(takeText());
    if (names.empty()) return HostArray::structureArray(std::move(dimensions), {}, {});
    const std::size_t count = countElements(dimensions, names.size()) * names.size();
    return HostArray::structureArray(std::move(dimensions), std::move(names),
                                     takeArrays(count, depth));
  }

  std::span<const std::byte> left_;
  bool hasRanks_ = true;
};

struct ToHostArray {
  HostArray operator()(UndefinedValue) const { return {}; }
  HostArray operator()(char value) const { return HostArray::text(std::string(1, value)); }
  template <host::ArrayElement Number>
  HostArray operator()(Number value) const {
    return HostArray::scalar(value);
  }
  HostArray operator()(const std::string& value) const { return HostArray::text(value); }
  HostArray operator()(const std::wstring& value) const { return HostArray::text(value); }
  HostArray operator()(const boost::posix_time::ptime& value) const {
    return HostArray::text(to_iso_extended_string(value));
  }
  HostArray operator()(const boost::uuids::uuid& value) const {
    return HostArray::text(to_string(value));
  }
  HostArray operator()(const HostArray* value) const { return value ? *value : HostArray(); }
  HostArray operator()(const const_BlobDescriptor& value) const {
    return HostArray::numeric(ArrayClass::uint8, {value.length(), 1}, value.bytes());
  }
};

}  // namespace

EntryValue convertHostArrayToEntryValue(const HostArray& array) {
  if (array.isText()) {
    if (array.isWideText()) return array.toWide();
    return array.toString();
  }
  if (!hasNumbers(array) || !array.isScalar() || array.isComplex()) return &array;
  return array.visitNumbers([](const auto& elements) -> EntryValue {
    using Element = std::remove_cvref_t<decltype(elements[0])>;
    // The entry value knows the 64-bit types by another name than the array.
    if constexpr (std::is_same_v<Element, std::int64_t>) {
      return static_cast<long long>(elements[0]);
    } else if constexpr (std::is_same_v<Element, std::uint64_t>) {
      return static_cast<unsigned long long>(elements[0]);
    } else {
      return elements[0];
    }
  });
}

HostArray convertEntryValueToHostArray(const EntryValue& value) {
  return std::visit(ToHostArray(), value);
}

std::string encodeHostArray(const HostArray& array) {
  return Encoder().encode(array);
}

HostArray decodeHostArray(std::span<const std::byte> stored) {
  if (stored.empty()) return {};
  try {
    return Decoder(stored).decode();
  } catch (const kodiag::except::ExceptionWithCauses& refusal) {
    if (refusal.message().id.key == "Corrupt") throw;
    raiseCorrupt(refusal.message().text());
  }
}

}  // namespace kodd
