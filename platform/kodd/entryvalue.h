// The entry value: any value a property can hold, for callers that do not know its kind.
#pragma once

#include <boost/date_time/posix_time/posix_time_types.hpp>
#include <boost/uuid/uuid.hpp>
#include <cstddef>
#include <span>
#include <string>
#include <variant>

namespace host {
class HostArray;
}

namespace kodd {

struct UndefinedValue {
  bool operator==(const UndefinedValue&) const = default;
};

using Boolean = bool;

/// A byte range for blob properties, read-only and not owned: it must outlive the call it is
/// given to.
class const_BlobDescriptor {
 public:
  const_BlobDescriptor() = default;
  const_BlobDescriptor(const void* data, std::size_t length)
      : bytes_(static_cast<const std::byte*>(data), length) {}

  const void* data() const { return bytes_.data(); }
  std::size_t length() const { return bytes_.size(); }
  std::span<const std::byte> bytes() const { return bytes_; }

 private:
  std::span<const std::byte> bytes_;
};

/// Receives a blob's length in bytes in queries.
struct BlobSizeInfo {
  std::size_t length = 0;
};

/// Receives a part of a blob in queries. Nothing is copied of a part that is not all there.
struct BlobPart {
  std::size_t offset = 0;
  std::size_t length = 0;
  void* into = nullptr;
  std::size_t blobLength = 0;  ///< what the whole blob has
};

using EntryValue =
    std::variant<UndefinedValue, Boolean, char, signed char, short, int, long long,
                 unsigned char, unsigned short, unsigned int, unsigned long long, float, double,
                 std::string, std::wstring, boost::posix_time::ptime, boost::uuids::uuid,
                 const host::HostArray*, const_BlobDescriptor>;

/// The alternatives of EntryValue, in its order.
enum class EntryValueType {
  undefined,
  boolean,
  character,
  int8,
  int16,
  int32,
  int64,
  uint8,
  uint16,
  uint32,
  uint64,
  real32,
  real64,
  string,
  wstring,
  time,
  uuid,
  hostArray,
  blob,
};

inline EntryValueType typeOfEntryValue(const EntryValue& value) {
  return static_cast<EntryValueType>(value.index());
}

}  // namespace kodd
