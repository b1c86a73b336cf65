// A file that is read several times and has to hold the same every time.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "formats/bytesource.h"
#include "kodiag/message.h"

namespace formats {

/// Notes at its construction which file lies at the path, and at the first pass what it holds.
class SteadyFile {
 public:
  /// \throws ExceptionWithCauses "VELA:vela:CannotReadFile"
  explicit SteadyFile(std::filesystem::path path);

  const std::filesystem::path& path() const { return path_; }
  /// For one pass over the file.
  ByteSource open() const { return ByteSource(path_); }
  /// Ends a pass: reads what is left of it.
  /// \throws ExceptionWithCauses "VELA:vela:SourceChanged" if an earlier pass read other bytes
  void endPass(ByteSource& source);
  /// What every pass has read. \pre a pass has ended
  const Content& content() const { return *content_; }

  /// \param causes  what went wrong meanwhile
  /// \throws ExceptionWithCauses "VELA:vela:SourceChanged" if another file lies at the path
  /// now,
  ///         or its size or time of change is another
  void refuseIfChanged(std::vector<kodiag::Message> causes = {}) const;
  [[noreturn]] void raiseChanged(const std::string& reason,
                                 std::vector<kodiag::Message> causes = {}) const;

 private:
  struct Stamp {
    std::uint64_t device = 0;
    std::uint64_t file = 0;
    std::uint64_t bytes = 0;
    std::int64_t seconds = 0;
    std::int64_t nanoseconds = 0;
  };
  Stamp stampNow() const;

  std::filesystem::path path_;
  Stamp stamp_;
  std::optional<Content> content_;
};

}  // namespace formats
