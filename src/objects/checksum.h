// CRC-32 over texts and numbers, as stored in "CheckSum" properties.
#pragma once

#include <boost/crc.hpp>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace vela {

/// The standard CRC-32: polynomial 0x04C11DB7, reflected, initial value and final complement of
/// all ones. Numbers count with their bytes in little-endian order.
class CheckSum {
 public:
  CheckSum& add(std::string_view bytes) {
    crc_.process_bytes(bytes.data(), bytes.size());
    return *this;
  }
  CheckSum& add(int number) { return addBytes(static_cast<std::uint32_t>(number)); }
  CheckSum& add(double number) {
    std::uint64_t bits;
    std::memcpy(&bits, &number, sizeof bits);
    return addBytes(bits);
  }
  int value() const { return static_cast<int>(crc_.checksum()); }

 private:
  template <class Unsigned>
  CheckSum& addBytes(Unsigned bits) {
    for (std::size_t i = 0; i < sizeof bits; ++i) {
      crc_.process_byte(static_cast<unsigned char>(bits >> (8 * i)));
    }
    return *this;
  }

  boost::crc_32_type crc_;
};

}  // namespace vela
