#include "kodd/hostarraycodec.h"

#include <boost/date_time/posix_time/posix_time.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cstdint>
#include <cstring>

#include "host/arraycodec.h"
#include "kodiag/diagnostics.h"
#include "kodiag/message.h"

namespace kodd {
namespace {

using host::HostArray;

// Stored; never renumber.
constexpr char kFormat = 2;
constexpr char kFormatWithoutRank = 1;

bool hasNumbers(const HostArray& array) {
  return array.isNumeric() || array.isLogical();
}

[[noreturn]] void raiseCorrupt(const std::string& reason) {
  kodiag::raise(
      {"sqldb:ssdb", "Corrupt"},
      {{"Operation", "read an array"}, {"Location", "the repository"}, {"Reason", reason}});
}

class BytesInMemory : public host::ByteSource {
 public:
  explicit BytesInMemory(std::span<const std::byte> bytes) : left_(bytes) {}

  std::uint64_t left() const override { return left_.size(); }
  void take(void* into, std::size_t count) override {
    std::memcpy(into, left_.data(), count);
    left_ = left_.subspan(count);
  }

 private:
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
    return HostArray::numeric(host::ArrayClass::uint8, {value.length(), 1}, value.bytes())
        .withRank(1);
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
  std::string bytes(1, kFormat);
  host::ArrayEncoder(bytes).put(array);
  return bytes;
}

HostArray decodeHostArray(std::span<const std::byte> stored) {
  if (stored.empty()) return {};
  const char format = static_cast<char>(stored.front());
  if (format != kFormat && format != kFormatWithoutRank) {
    raiseCorrupt("the array has an unknown format");
  }
  BytesInMemory source(stored.subspan(1));
  try {
    HostArray array = host::ArrayDecoder(source, format != kFormatWithoutRank).take();
    if (source.left() > 0) raiseCorrupt("bytes are left behind the array");
    return array;
  } catch (const kodiag::except::ExceptionWithCauses& refusal) {
    if (refusal.message().id.key == "Corrupt") throw;
    raiseCorrupt(refusal.message().text());
  }
}

}  // namespace kodd
