#include "host/locks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <thread>
#include <utility>

#include "host/interrupt.h"
#include "host/names.h"
#include "kodiag/message.h"

namespace host {
namespace {

struct flock byteRange(std::uint64_t offset, short type) {
  struct flock range = {};
  range.l_type = type;
  range.l_whence = SEEK_SET;
  range.l_start = static_cast<off_t>(offset);
  range.l_len = 1;
  return range;
}

short lockType(LockKind kind) {
  return kind == LockKind::shared ? F_RDLCK : F_WRLCK;
}

[[noreturn]] void raiseIO(const std::string& operation, const std::string& path,
                          const std::string& reason) {
  kodiag::raise({"KODD:kodd", "IOError"},
                {{"Operation", operation}, {"Location", path}, {"Reason", reason}});
}

int openOrCreate(const std::string& path) {
  constexpr int kFlags = O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
  // Creating comes second: in folders like /tmp the kernel refuses O_CREAT on a file that is
  // there and belongs to another user. Another process may create or remove it in between.
  for (int attempt = 0; attempt < 100; ++attempt) {
    int descriptor = open(path.c_str(), kFlags);
    if (descriptor >= 0 || errno != ENOENT) return descriptor;
    descriptor = open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0600);
    if (descriptor >= 0 || errno != EEXIST) return descriptor;
  }
  return -1;
}

bool everybodyMayCreateBeside(const std::string& path) {
  const std::string folder = std::filesystem::path(path).parent_path().string();
  struct stat status {};
  return stat(folder.empty() ? "." : folder.c_str(), &status) != 0 ||
         (status.st_mode & S_IWOTH) != 0;
}

void requireTrustworthy(int descriptor, const std::string& path) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0)
    raiseIO("open the lock file", path, std::strerror(errno));
  if (!S_ISREG(status.st_mode)) raiseIO("open the lock file", path, "it is no regular file");
  if (status.st_uid != geteuid() && everybodyMayCreateBeside(path)) {
    raiseIO("open the lock file", path, "it belongs to another user");
  }
}

FileLock lockedFile(const std::string& name, std::chrono::milliseconds timeout) {
  const std::string path =
      (systemTempDirectory() / (name + "_" + std::to_string(geteuid()))).string();
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (true) {
    FileLock file(path);
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (!file.lockWithin(0, LockKind::exclusive, left)) {
      kodiag::raise(
          {"KODD:kodd", "RepositoryBusy"},
          {{"Operation", "wait for the lock \"" + name + "\""},
           {"Location", path},
           {"Reason", "it was not freed within " + std::to_string(timeout.count()) + " ms"}});
    }
    // Whoever cleans the temporary directory may have taken the file away while we waited; the
    // lock on it then excludes nobody.
    if (file.isStillAtPath()) return file;
  }
}

}  // namespace

FileLock::FileLock(const std::string& path) : path_(path), descriptor_(openOrCreate(path)) {
  if (descriptor_ < 0) raiseIO("open the lock file", path, std::strerror(errno));
  try {
    requireTrustworthy(descriptor_, path);
  } catch (...) {
    close(descriptor_);
    throw;
  }
}

std::optional<FileLock> FileLock::openForReading(const std::string& path) {
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (descriptor < 0) return std::nullopt;
  return FileLock(path, descriptor);
}

FileLock::~FileLock() {
  closeAfterFork();
}

FileLock::FileLock(FileLock&& other) noexcept
    : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1)) {}

bool FileLock::tryLock(std::uint64_t offset, LockKind kind) {
  struct flock range = byteRange(offset, lockType(kind));
  if (fcntl(descriptor_, F_OFD_SETLK, &range) == 0) return true;
  if (errno == EAGAIN || errno == EACCES) return false;
  raiseIO("lock", path_, std::strerror(errno));
}

bool FileLock::lockWithin(std::uint64_t offset, LockKind kind,
                          std::chrono::milliseconds timeout) {
  using std::chrono::microseconds;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  microseconds pause(20);
  while (!tryLock(offset, kind)) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    stopIfInterrupted("wait for a lock");
    std::this_thread::sleep_for(pause);
    pause = std::min(2 * pause, microseconds(1000));
  }
  return true;
}

void FileLock::unlock(std::uint64_t offset) noexcept {
  struct flock range = byteRange(offset, F_UNLCK);
  fcntl(descriptor_, F_OFD_SETLK, &range);  // freeing a byte of an open file cannot fail
}

bool FileLock::isHeldByAnother(std::uint64_t offset) const {
  struct flock range = byteRange(offset, F_WRLCK);
  if (fcntl(descriptor_, F_OFD_GETLK, &range) != 0) {
    raiseIO("look at a lock", path_, std::strerror(errno));
  }
  return range.l_type != F_UNLCK;
}

std::uint64_t FileLock::number(std::uint64_t offset) const {
  std::uint64_t value = 0;
  const ssize_t got = pread(descriptor_, &value, sizeof value, static_cast<off_t>(offset));
  if (got < 0) raiseIO("read the lock file", path_, std::strerror(errno));
  return got == sizeof value ? value : 0;
}

void FileLock::setNumber(std::uint64_t offset, std::uint64_t value) {
  const ssize_t put = pwrite(descriptor_, &value, sizeof value, static_cast<off_t>(offset));
  if (put != sizeof value) {
    raiseIO("write the lock file", path_, std::strerror(put < 0 ? errno : ENOSPC));
  }
}

bool FileLock::isStillAtPath() const {
  struct stat opened {
  }, named{};
  return fstat(descriptor_, &opened) == 0 && lstat(path_.c_str(), &named) == 0 &&
         opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

void FileLock::closeAfterFork() noexcept {
  if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
}

NamedLock::NamedLock(const std::string& name, std::chrono::milliseconds timeout)
    : file_(lockedFile(name, timeout)) {}

}  // namespace host
