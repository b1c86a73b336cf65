// The lock file beside a repository: who has it open, who writes, which instances live.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "host/locks.h"
#include "sqldb/repositoryfile.h"

namespace sqldb {

/// One connection's place in `<path>-lock`.
///
/// The kernel frees every lock here when the process dies. The bytes are shared with other
/// processes of other versions: never renumber. Threads: as Database.
class RepositoryLock {
 public:
  using Milliseconds = std::chrono::milliseconds;

  /// Opens the lock file, creating it, and announces that the repository is open here.
  /// \throws "RepositoryBusy" when somebody is moving the repository away
  RepositoryLock(const std::string& path, Milliseconds timeout);
  /// The same for one that only reads: makes no lock file where there is none or it cannot be
  /// written, and is then known to nobody. It can take no lock but that.
  static std::unique_ptr<RepositoryLock> forReading(const std::string& path,
                                                    Milliseconds timeout);
  ~RepositoryLock();
  RepositoryLock(const RepositoryLock&) = delete;
  RepositoryLock& operator=(const RepositoryLock&) = delete;

  /// Announces that this connection uses the log.
  void noteConnected();
  /// Whether another connection uses a log.
  bool areOthersConnected() const;
  /// Whether newcomers still find this lock file.
  bool isInPlace() const { return !file_ || file_->isStillAtPath(); }

  /// A number in the lock file, which no rollback takes back. Needs the write lock.
  std::uint64_t notedNumber() const;
  void noteNumber(std::uint64_t number);

  /// Takes the write lock; nested calls count. \throws "RepositoryBusy"
  void acquireWrite(std::string_view operation, Milliseconds timeout);
  /// Takes the write lock unless that takes longer than the timeout.
  bool tryAcquireWrite(Milliseconds timeout);
  void releaseWrite() noexcept;

  /// \throws "RepositoryBusy" when somebody else holds the instance
  void holdInstance(long long instanceID);
  void releaseInstance(long long instanceID);
  bool isInstanceAlive(long long instanceID) const;

  /// Gives the inherited descriptor back without freeing the parent's locks.
  void closeAfterFork() noexcept;

 private:
  RepositoryLock(const std::string& path, std::optional<host::FileLock> file);

  bool waitForWrite(Milliseconds timeout);
  [[noreturn]] void raiseBusy(std::string_view operation, const std::string& reason) const;

  std::string path_;
  std::optional<host::FileLock> file_;  ///< none for a reader where there is none
  FileIdentity identity_;
  int writeDepth_ = 0;
  std::set<std::uint64_t> instanceBytes_;
};

/// Whether nobody has the repository open; if so nobody can open it while this object lives.
class ExclusivePresence {
 public:
  explicit ExclusivePresence(const std::string& path);
  ~ExclusivePresence();
  ExclusivePresence(const ExclusivePresence&) = delete;
  ExclusivePresence& operator=(const ExclusivePresence&) = delete;

  explicit operator bool() const { return granted_; }

 private:
  host::FileLock file_;
  bool granted_;
};

}  // namespace sqldb
