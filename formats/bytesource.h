// Reads a file front to back, by lines or by bytes, and knows where it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <istream>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "formats/sha256.h"

namespace formats {

/// All that a file held while it was read.
struct Content {
  std::uint64_t bytes = 0;
  std::string sha256;  ///< 64 lower-case hexadecimal digits

  bool operator==(const Content&) const = default;
};

class ByteSource {
 public:
  static constexpr std::size_t kMaxLineBytes = std::size_t{16} << 20;
  enum class Line { kRead, kEnd, kTooLong };

  /// \throws ExceptionWithCauses "VELA:vela:CannotReadFile" unless it is a regular file we may
  /// read
  explicit ByteSource(const std::filesystem::path& path);
  /// Reads `bytes` as if they were the content of a file of that name.
  ByteSource(std::string name, std::string bytes);

  /// The name for messages.
  const std::string& name() const { return name_; }
  std::uint64_t size() const { return size_; }
  /// Byte read next.
  std::uint64_t offset() const { return offset_; }
  /// Number of the line last read; bytes taken by read() count for none.
  std::uint64_t line() const { return line_; }

  /// The next line without its end ("\n" or "\r\n"). After kTooLong the source is of no further
  /// use.
  Line readLine(std::string& line);
  /// Fills `bytes` as far as the file goes; the number of bytes read.
  std::size_t read(std::span<char> bytes);
  /// Passes over what is left; what all bytes from the first were. Once, of a file.
  Content readToEnd();

 private:
  bool fill();
  [[noreturn]] void raiseReadError() const;

  std::string name_;
  std::unique_ptr<std::istream> stream_;
  std::uint64_t size_ = 0;
  std::uint64_t offset_ = 0;
  std::uint64_t line_ = 0;
  std::optional<Sha256> sum_;  ///< of a file: all bytes that ever were in buffer_
  std::string buffer_;
  std::size_t at_ = 0;   ///< next byte in buffer_
  std::size_t end_ = 0;  ///< end of what buffer_ holds
};

/// The file's name as UTF-8, for messages.
std::string displayName(const std::filesystem::path& path);

}  // namespace formats
