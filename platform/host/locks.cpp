#include "host/locks.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <thread>
#include <utility>

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

[[noreturn]] void raiseIO(const std::string& operation, const std::string& path) {
  kodiag::raise(
      {"KODD:kodd", "IOError"},
      {{"Operation", operation}, {"Location", path}, {"Reason", std::strerror(errno)}});
}

}  // namespace

FileLock::FileLock(const std::string& path)
    : path_(path),
      descriptor_(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600)) {
  if (descriptor_ < 0) raiseIO("open the lock file", path);
}

FileLock::~FileLock() {
  closeAfterFork();
}

FileLock::FileLock(FileLock&& other) noexcept
    : path_(std::move(other.path_)), descriptor_(std::exchange(other.descriptor_, -1)) {}

bool FileLock::tryLock(std::uint64_t offset, LockKind kind) {
  struct flock range = byteRange(offset, lockType(kind));
  if (fcntl(descriptor_, F_OFD_SETLK, &range) == 0) return true;
  if (errno == EAGAIN || errno == EACCES || errno == EINTR) return false;
  raiseIO("lock", path_);
}

bool FileLock::lockWithin(std::uint64_t offset, LockKind kind,
                          std::chrono::milliseconds timeout) {
  using std::chrono::microseconds;
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  microseconds pause(20);
  while (!tryLock(offset, kind)) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
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
  if (fcntl(descriptor_, F_OFD_GETLK, &range) != 0) raiseIO("look at a lock", path_);
  return range.l_type != F_UNLCK;
}

void FileLock::closeAfterFork() noexcept {
  if (descriptor_ >= 0) close(std::exchange(descriptor_, -1));
}

NamedLock::NamedLock(const std::string& name, std::chrono::milliseconds timeout)
    : file_((systemTempDirectory() / (name + "_" + std::to_string(getuid()))).string()) {
  if (!file_.lockWithin(0, LockKind::exclusive, timeout)) {
    kodiag::raise(
        {"KODD:kodd", "RepositoryBusy"},
        {{"Operation", "wait for the lock \"" + name + "\""},
         {"Location", name},
         {"Reason", "it was not freed within " + std::to_string(timeout.count()) + " ms"}});
  }
}

}  // namespace host
