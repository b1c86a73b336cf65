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

constexpr std::uint8_t kFormat = 1;  // Stored; never renumber.
constexpr int kDeepest = 64;

bool hasNumbers(const HostArray& array) {
  return array.isNumeric() || array.isLogical();
}

class Encoder {
 public:
  std::string encode(const HostArray& array) {
    put(kFormat);
    putArray(array);
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

  void putArray(const HostArray& array) {
    put(static_cast<std::uint8_t>(array.arrayClass()));
    put(static_cast<std::uint8_t>(array.dimensions().size()));
    for (const std::size_t length : array.dimensions()) put(static_cast<std::uint64_t>(length));
    if (hasNumbers(array)) {
      const std::span<const std::byte> bytes = array.bytes();
      out_.append(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    } else if (array.isText()) {
      put(static_cast<std::uint8_t>(array.isWideText()));
      putText(array.toString());
    } else if (array.isCell()) {
      for (const HostArray& element : array.cells()) putArray(element);
    } else {
      putStructure(array);
    }
  }

  void putStructure(const HostArray& array) {
    put(static_cast<std::uint32_t>(array.fieldNames().size()));
    for (const std::string& name : array.fieldNames()) putText(name);
    for (std::size_t element = 0; element < array.size(); ++element) {
      for (const std::string& name : array.fieldNames()) putArray(array.field(name, element));
    }
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
    if (take<std::uint8_t>() != kFormat) raiseCorrupt("the array has an unknown format");
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
    if (code > static_cast<std::uint8_t>(ArrayClass::structure)) {
      raiseCorrupt("an array has the unknown class " + std::to_string(code));
    }
    const auto cls = static_cast<ArrayClass>(code);
    host::Dimensions dimensions(take<std::uint8_t>());
    for (std::size_t& length : dimensions) length = take<std::uint64_t>();
    if (cls == ArrayClass::character) return takeCharacters();
    if (cls == ArrayClass::cell) return takeCell(std::move(dimensions), depth);
    if (cls == ArrayClass::structure) return takeStructure(std::move(dimensions), depth);
    const std::size_t bytesEach = host::elementBytes(cls);
    const std::size_t count = countElements(dimensions, bytesEach);
    return HostArray::numeric(cls, std::move(dimensions), takeBytes(count * bytesEach));
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
  if (!hasNumbers(array) || !array.isScalar()) return &array;
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
