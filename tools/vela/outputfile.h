// The files a verb writes: what they may replace, and how they get into place.
#pragma once

#include <CLI/App.hpp>
#include <string>
#include <string_view>

namespace vela::tool {

/// A kind of file that a verb writes; only its like is replaced without being asked to.
struct OutputKind {
  std::string_view name;                   ///< "a file of saved runs"
  bool (*isLike)(std::string_view begin);  ///< judges by the first bytes
};

/// \throws "VELA:vela:CannotWriteFile", with the path as given, for what no file may be written
/// over
///         (see whyNotToWrite) and, without `force`, for a file of another kind
void requireReplaceable(const std::string& path, const OutputKind& kind, bool force);

/// --force, for verbs that write a file.
void addForceOption(CLI::App& command, bool& force);

/// A file that is there whole or not at all.
///
/// Holds a place beside the file, so that a place that cannot be written is known before the
/// work starts; what stood at the path stays until publish().
class OutputFile {
 public:
  /// \throws as requireReplaceable(); so does publish()
  OutputFile(const std::string& path, const OutputKind& kind, bool force);
  /// Leaves nothing behind unless the file was published.
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  /// Puts a file with this content at the path. Once.
  void publish(std::string_view content);

 private:
  [[noreturn]] void refuse(int error) const;

  std::string path_;
  OutputKind kind_;
  bool force_;
  std::string temporary_;  ///< empty once it is published
  int file_;
};

}  // namespace vela::tool
