// The lock file beside a repository: who has it open, who writes, which instances live.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include "host/locks.h"
#include "sqldb/repositoryfile.h"

namespace sqldb {

/// The place in `<path>-lock` of all connections that belong together (see
/// Database::openBeside).
///
/// The kernel frees every lock here when the process dies. The bytes are shared with other
/// processes of other versions: never renumber.
///
/// Threads: any number. The write lock belongs to the thread that took it; a connection that
/// is closed for another thread gives it back for that thread.
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

  /// Takes the write lock for this thread; nested calls count. \throws "RepositoryBusy", which
  /// names the operation of the thread or tells that another process is in the way
  void acquireWrite(std::string_view operation, Milliseconds timeout);
  /// Takes the write lock unless that takes longer than the timeout.
  bool tryAcquireWrite(std::string_view operation, Milliseconds timeout);
  void releaseWrite() noexcept;

  /// \throws "RepositoryBusy" when somebody else holds the instance
  void holdInstance(long long instanceID);
  void releaseInstance(long long instanceID);
  bool isInstanceAlive(long long instanceID) const;

  /// Gives the inherited descriptor back without freeing the parent's locks.
  void closeAfterFork() noexcept;

 private:
  RepositoryLock(const std::string& path, std::optional<host::FileLock> file);

  using Clock = std::chrono::steady_clock;

  bool isWriter() const;
  /// The turn among the threads of this process. \returns whether it came before the deadline
  bool waitForThreads(std::string_view operation, Clock::time_point deadline);
  void letNextThreadWrite() noexcept;
  bool waitForWrite(Milliseconds timeout);
  [[noreturn]] void raiseBusy(std::string_view operation, const std::string& reason) const;

  std::string path_;
  std::optional<host::FileLock> file_;  ///< none for a reader where there is none
  FileIdentity identity_;
  mutable std::mutex mutex_;  ///< guards what follows; never held while waiting for the file
  std::condition_variable writerLeft_;
  std::deque<std::thread::id> queue_;  ///< threads that wait to write, in the order they came
  std::thread::id writer_;
  int writeDepth_ = 0;
  std::string writing_;  ///< what the writer does
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
