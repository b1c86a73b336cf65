// The right to change the file, from taking the write lock to giving it back.
#pragma once

#include <chrono>
#include <string_view>

#include "sqldb/connection.h"
#include "sqldb/repositorylock.h"
#include "sqldb/sidefiles.h"
#include "sqldb/writeaheadlog.h"

namespace sqldb {

/// Every change of the file happens between take() and give(); the pairs may nest.
class WriteTurn {
 public:
  WriteTurn(Connection& connection, RepositoryLock& lock, SideFiles& sideFiles,
            std::chrono::milliseconds timeout)
      : connection_(connection),
        lock_(lock),
        sideFiles_(sideFiles),
        log_(connection),
        timeout_(timeout) {}

  /// \throws "ReadOnly", "RepositoryBusy"; "FileRemoved" when the path no longer leads to the
  /// open file, or
  ///         one beside it was deleted
  void take(std::string_view operation);
  /// As take(), but gives up without an error when the lock is not free in time.
  bool takeWithin(std::chrono::milliseconds timeout, std::string_view operation);
  /// Before a state of the file is read: takes a turn, which raises, when a file beside it was
  /// deleted.
  void refuseLostFiles(std::string_view operation);
  /// Ends the turn; keeps the log short on the way.
  void give() noexcept;

  WriteAheadLog& log() { return log_; }

 private:
  void refuseReadOnly(std::string_view operation);
  void refuseUnlessInPlace(std::string_view operation);

  Connection& connection_;
  RepositoryLock& lock_;
  SideFiles& sideFiles_;
  WriteAheadLog log_;
  std::chrono::milliseconds timeout_;
};

/// A turn for a scope.
class WriteTurnScope {
 public:
  WriteTurnScope(WriteTurn& turn, std::string_view operation) : turn_(turn) {
    turn.take(operation);
  }
  ~WriteTurnScope() { turn_.give(); }
  WriteTurnScope(const WriteTurnScope&) = delete;
  WriteTurnScope& operator=(const WriteTurnScope&) = delete;

 private:
  WriteTurn& turn_;
};

}  // namespace sqldb
