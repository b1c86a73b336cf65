#include "formats/bytesource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <system_error>

#include "formats/encoding.h"
#include "host/interrupt.h"
#include "kodiag/message.h"

namespace formats {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 18;

[[noreturn]] void raiseCannotRead(const std::string& name, const std::string& reason) {
  kodiag::raise({"VELA:vela", "CannotReadFile"}, {{"FileName", name}, {"Reason", reason}});
}

std::uint64_t sizeOfRegularFile(const std::filesystem::path& path, const std::string& name) {
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(path, error);
  if (status.type() == std::filesystem::file_type::not_found) {
    raiseCannotRead(name, "there is no such file");
  }
  if (error) raiseCannotRead(name, error.message());
  if (std::filesystem::is_directory(status)) raiseCannotRead(name, "it is a directory");
  if (!std::filesystem::is_regular_file(status)) raiseCannotRead(name, "it is no regular file");
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error) raiseCannotRead(name, error.message());
  return size;
}

/// A byte more than a small file needs, so that its end is seen by the first read.
std::size_t bufferBytes(std::uint64_t size) {
  return static_cast<std::size_t>(std::min<std::uint64_t>(size + 1, kBufferBytes));
}

}  // namespace

ByteSource::ByteSource(const std::filesystem::path& path)
    : name_(displayName(path)), size_(sizeOfRegularFile(path, name_)) {
  if (path.native().find('\0') != std::string::npos) {
    raiseCannotRead(name_, "the file name holds a character 0");
  }
  errno = 0;
  stream_ = std::make_unique<std::ifstream>(path, std::ios::binary);
  if (!*stream_) raiseCannotRead(name_, std::strerror(errno));
  sum_.emplace();
  buffer_.resize(bufferBytes(size_));
}

ByteSource::ByteSource(std::string name, std::string bytes)
    : name_(std::move(name)),
      stream_(std::make_unique<std::istringstream>(std::move(bytes), std::ios::binary)),
      size_(static_cast<std::istringstream&>(*stream_).view().size()) {
  buffer_.resize(bufferBytes(size_));
}

bool ByteSource::fill() {
  if (at_ < end_) return true;
  if (!stream_->good()) return false;
  host::stopIfInterrupted("read \"" + name_ + "\"");
  stream_->read(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
  if (stream_->bad()) raiseReadError();
  at_ = 0;
  end_ = static_cast<std::size_t>(stream_->gcount());
  if (sum_) sum_->add({buffer_.data(), end_});
  return end_ > 0;
}

void ByteSource::raiseReadError() const {
  raiseCannotRead(name_, "reading failed at byte " + std::to_string(offset_));
}

ByteSource::Line ByteSource::readLine(std::string& line) {
  line.clear();
  if (!fill()) return Line::kEnd;
  ++line_;
  do {
    const char* const start = buffer_.data() + at_;
    const auto* const newline = static_cast<const char*>(std::memchr(start, '\n', end_ - at_));
    const std::size_t count = newline ? static_cast<std::size_t>(newline - start) : end_ - at_;
    if (line.size() + count > kMaxLineBytes) return Line::kTooLong;
    line.append(start, count);
    at_ += count + (newline ? 1 : 0);
    offset_ += count + (newline ? 1 : 0);
    if (newline) break;
  } while (fill());
  if (line.ends_with('\r')) line.pop_back();
  return Line::kRead;
}

std::size_t ByteSource::read(std::span<char> bytes) {
  std::size_t done = 0;
  while (done < bytes.size() && fill()) {
    const std::size_t count = std::min(bytes.size() - done, end_ - at_);
    std::memcpy(bytes.data() + done, buffer_.data() + at_, count);
    at_ += count;
    done += count;
  }
  offset_ += done;
  return done;
}

Content ByteSource::readToEnd() {
  while (fill()) {
    offset_ += end_ - at_;
    at_ = end_;
  }
  return {offset_, sum_.value().hexadecimal()};
}

std::string displayName(const std::filesystem::path& path) {
  return utf8FromBytes(path.native());
}

}  // namespace formats
