// Being known to use a repository file without having it open.
#pragma once

#include <memory>
#include <string>

namespace sqldb {

/// Counts as a process that has the file open, for as long as it lives: the file is neither
/// moved away nor taken for a leftover. A forked child does not inherit it.
class Presence {
 public:
  /// Makes the lock file beside the repository where it is absent.
  /// \throws "IOError" when it cannot be made; "RepositoryBusy" when the file is being removed
  explicit Presence(const std::string& location);
  ~Presence();
  Presence(const Presence&) = delete;
  Presence& operator=(const Presence&) = delete;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

/// Deletes a repository file that nobody has open, with all its side files, the lock file too.
/// What is missing is no error. \returns false when somebody has it open: nothing is deleted
/// then
bool removeUnusedFile(const std::string& location);

}  // namespace sqldb
