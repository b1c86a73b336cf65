#include "datafile/seal.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <vector>

#include "datafile/datafile.h"

namespace datafile {
namespace {

static_assert(std::endian::native == std::endian::little, "numbers are stored as they lie");

/// How a data file begins. Line ends of both kinds show what a transfer as text does to it.
constexpr std::string_view kMagic = "vela data file\r\n";
constexpr std::uint32_t kFormat = 1;  // Stored.

constexpr std::size_t kFormatOffset = 16;
constexpr std::size_t kChecksumOffset = 20;
constexpr std::size_t kLengthOffset = 24;
constexpr std::size_t kStepBytes = std::size_t{1} << 20;

using Block = std::array<char, kSealBytes>;

template <class Number>
void put(Block& block, std::size_t offset, Number value) {
  std::memcpy(block.data() + offset, &value, sizeof value);
}

Block blockOf(std::uint32_t checksum, std::uint64_t length) {
  Block block{};
  std::ranges::copy(kMagic, block.begin());
  put(block, kFormatOffset, kFormat);
  put(block, kChecksumOffset, checksum);
  put(block, kLengthOffset, length);
  return block;
}

/// Reads or writes all of a buffer. \returns how many bytes it came to; errno tells the rest
template <class Call, class Buffer>
std::size_t transfer(Call call, int descriptor, Buffer* buffer, std::size_t size,
                     std::uint64_t offset) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count =
        call(descriptor, buffer + done, size - done, static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

std::uint64_t lengthOf(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || status.st_size < 0) return 0;
  return static_cast<std::uint64_t>(status.st_size);
}

/// CRC-32 of everything behind the block.
std::uint32_t checksumOf(int descriptor, std::uint64_t length,
                         const std::function<void()>& working) {
  uLong checksum = crc32_z(0, nullptr, 0);
  std::vector<char> step(kStepBytes);
  for (std::uint64_t offset = kSealBytes; offset < length;) {
    const auto wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(kStepBytes, length - offset));
    const std::size_t count = transfer(pread, descriptor, step.data(), wanted, offset);
    checksum = crc32_z(checksum, reinterpret_cast<const Bytef*>(step.data()), count);
    if (count < wanted) break;
    offset += count;
    if (working) working();
  }
  return static_cast<std::uint32_t>(checksum);
}

}  // namespace

bool beginsLikeADataFile(std::string_view begin) {
  return begin.starts_with(kMagic);
}

int seal(int descriptor) {
  const std::uint64_t length = lengthOf(descriptor);
  const Block block = blockOf(checksumOf(descriptor, length, {}), length);
  errno = 0;
  if (transfer(pwrite, descriptor, block.data(), block.size(), 0) == block.size()) return 0;
  return errno != 0 ? errno : EIO;
}

std::string brokenSeal(int descriptor, const std::function<void()>& working) {
  Block found{};
  const std::size_t count = transfer(pread, descriptor, found.data(), found.size(), 0);
  if (!beginsLikeADataFile({found.data(), count})) {
    return "it is no data file";
  }
  std::uint32_t format = 0;
  std::memcpy(&format, found.data() + kFormatOffset, sizeof format);
  if (count == kSealBytes && format > kFormat) {
    return "it has the format " + std::to_string(format) + ", this program reads " +
           std::to_string(kFormat);
  }
  const std::uint64_t length = lengthOf(descriptor);
  if (found != blockOf(checksumOf(descriptor, length, working), length)) {
    return "it is damaged: length or checksum is not what was written";
  }
  return {};
}

}  // namespace datafile
