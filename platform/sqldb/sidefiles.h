// The files beside a repository that all who have it open share, and what to do when they
// vanish.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sqldb/connection.h"
#include "sqldb/repositorylock.h"

namespace sqldb {

/// The log, its index and the lock file of one open repository.
///
/// A process whose file was deleted or replaced goes on with the old one, while newcomers make
/// another: two groups that do not see each other damage the repository. So the files are
/// looked at before every unit, and a connection that has lost one is given up: what only a
/// deleted log holds is copied into the repository file first, as long as nobody has gone on
/// without it.
///
/// To that end newcomers make an index only under the write lock, and no log while somebody is
/// connected: see openFile(). Threads: as Database.
class SideFiles {
 public:
  /// Remembers which files they are; the engine has opened its own.
  /// \throws "FileRemoved" when another connection of this process uses an index that was
  ///         deleted: the engine would use it here as well
  SideFiles(Connection& connection, const RepositoryLock& lock);
  ~SideFiles();
  SideFiles(const SideFiles&) = delete;
  SideFiles& operator=(const SideFiles&) = delete;

  /// Whether all of them are still those that were opened.
  bool areInPlace() const;
  /// Gives the connection up when one is not. Needs the write lock.
  ///
  /// \throws "FileRemoved", then and at every later call, which tells whether committed work is
  ///         lost; "RepositoryBusy" when it cannot be brought back at this moment
  void refuseUnlessInPlace(std::string_view operation);
  /// Gives up a connection that only reads, as it needs no lock. \throws "FileRemoved"
  [[noreturn]] void giveUp(std::string_view operation);

 private:
  struct File {
    std::string path;
    /// None when the engine needs no such file here.
    std::optional<FileIdentity> identity;

    bool isInPlace() const { return !identity || fileIdentity(path) == identity; }
  };

  const std::string& missing() const;
  bool logHoldsWork() const;
  bool bringBack(std::string_view operation);

  Connection& connection_;
  const RepositoryLock& lock_;
  FileIdentity main_;
  File log_;
  File index_;
  std::string lockPath_;
};

}  // namespace sqldb
