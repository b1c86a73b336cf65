// The file of a manager that was given none: temporary, and gone with its manager.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>

#include "sqldb/presence.h"

namespace vela {

/// A repository file reserved in the temporary directory under a name that no person gives;
/// exit() removes it too. A forked child leaves it to the process it was forked from.
class PrivateFile {
 public:
  /// Removes what killed processes have left, then reserves a file.
  /// \throws "KODD:kodd:IOError" when none can be made
  PrivateFile();
  /// Removes the file.
  ~PrivateFile();
  PrivateFile(const PrivateFile&) = delete;
  PrivateFile& operator=(const PrivateFile&) = delete;

  /// UTF-8
  const std::string& location() const { return location_; }
  /// Deletes the file with its side files. What cannot be deleted stays behind.
  void remove() noexcept;

 private:
  std::string location_;
  pid_t owner_;
  std::unique_ptr<sqldb::Presence> presence_;
};

/// Deletes the private files of this user that no process uses any more and that are older than
/// a minute. What cannot be deleted stays.
void sweepPrivateFiles() noexcept;

}  // namespace vela
