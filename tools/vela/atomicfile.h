// A file that is there whole or not at all.
#pragma once

#include <string>
#include <string_view>

namespace vela::tool {

/// Holds a place beside the file, so that a place that cannot be written is known before the
/// work starts; what stood at the path stays until publish().
class AtomicFile {
 public:
  /// \throws "VELA:vela:CannotWriteFile"; so does publish()
  explicit AtomicFile(const std::string& path);
  /// Leaves nothing behind unless the file was published.
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  /// Puts a file with this content at the path. Once.
  void publish(std::string_view content);

 private:
  [[noreturn]] void refuse(int error) const;

  std::string path_;       ///< as it was given
  std::string target_;     ///< with links followed
  std::string temporary_;  ///< empty once it is published
  int file_;
};

}  // namespace vela::tool
