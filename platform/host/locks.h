// Kernel locks on files: freed by the kernel when their holder dies, so none can be left
// behind.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace host {

enum class LockKind { shared, exclusive };

/// A file opened for locking bytes of it; the bytes need not exist.
///
/// Locks belong to this object: two objects on one file exclude each other, in one process as
/// in two. The file is made with mode 0600 where it is absent, never followed through a
/// symbolic link and never deleted. Threads: the calls are independent of each other; the
/// object itself is not guarded.
class FileLock {
 public:
  /// \param path  UTF-8
  /// \throws "KODD:kodd:IOError" when it cannot be opened, is no regular file, or belongs to
  ///         somebody else in a folder where everybody may create files
  explicit FileLock(const std::string& path);
  /// Opens the file for shared locks only, and makes none. \returns nothing when there is none
  /// or it may not be read
  static std::optional<FileLock> openForReading(const std::string& path);
  /// Frees every lock.
  ~FileLock();
  FileLock(FileLock&& other) noexcept;
  FileLock& operator=(FileLock&&) = delete;

  /// Locks one byte unless somebody else stands in the way. A byte locked here already changes
  /// its kind. \throws "KODD:kodd:IOError" when the kernel cannot lock this file
  bool tryLock(std::uint64_t offset, LockKind kind);
  /// tryLock again and again, at first every few ten microseconds, until `timeout` is over.
  /// \throws "KODD:kodd:Interrupted"
  bool lockWithin(std::uint64_t offset, LockKind kind, std::chrono::milliseconds timeout);
  void unlock(std::uint64_t offset) noexcept;
  /// Whether somebody else holds a lock on the byte.
  bool isHeldByAnother(std::uint64_t offset) const;
  /// The number kept in the file's 8 bytes from there on; 0 when there is none.
  std::uint64_t number(std::uint64_t offset) const;
  void setNumber(std::uint64_t offset, std::uint64_t value);
  /// Whether the path still names the file that was opened here.
  bool isStillAtPath() const;
  /// In a forked child: closes the inherited descriptor, which leaves the parent's locks alone.
  /// Every later call here fails.
  void closeAfterFork() noexcept;

 private:
  FileLock(std::string path, int descriptor) noexcept
      : path_(std::move(path)), descriptor_(descriptor) {}

  std::string path_;
  int descriptor_ = -1;
};

/// A machine-wide lock of this user by name, for the scope of the object. It is a file of that
/// name and the user's number in the temporary directory, so processes with another TMPDIR have
/// another lock.
class NamedLock {
 public:
  /// Waits for the lock. \throws "KODD:kodd:RepositoryBusy" after `timeout`; "IOError" as
  /// FileLock
  explicit NamedLock(const std::string& name,
                     std::chrono::milliseconds timeout = std::chrono::seconds(30));

 private:
  FileLock file_;
};

}  // namespace host
