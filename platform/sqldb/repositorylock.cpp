#include "sqldb/repositorylock.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "kodiag/message.h"
#include "sqldb/processstate.h"

namespace sqldb {
namespace {

using Clock = std::chrono::steady_clock;
using host::LockKind;

// Bytes of the lock file. // Stored; never renumber.
constexpr std::uint64_t kWriteByte = 0;
constexpr std::uint64_t kPresenceByte = 1;
constexpr std::uint64_t kQueueByte = 2;
constexpr std::uint64_t kConnectedByte = 3;
constexpr std::uint64_t kFirstInstanceByte = 16;

// Where the number lies. // Stored; never change.
constexpr std::uint64_t kNumberOffset = 8;

/// How long the head of the queue may keep others from trying the write lock themselves: a
/// stopped process at the head must not stop everybody.
constexpr std::chrono::milliseconds kQueueCourtesy{20};

std::uint64_t instanceByte(long long instanceID) {
  // Offsets end where signed 64-bit numbers end.
  constexpr auto kPlaces =
      static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) - kFirstInstanceByte;
  return kFirstInstanceByte + static_cast<std::uint64_t>(instanceID) % kPlaces;
}

/// The head of the queue for the write lock, while it lives and if it was free in time.
class QueuePlace {
 public:
  QueuePlace(host::FileLock& file, std::chrono::milliseconds timeout)
      : file_(file), taken_(file.lockWithin(kQueueByte, LockKind::exclusive, timeout)) {}
  ~QueuePlace() {
    if (taken_) file_.unlock(kQueueByte);
  }
  QueuePlace(const QueuePlace&) = delete;
  QueuePlace& operator=(const QueuePlace&) = delete;

 private:
  host::FileLock& file_;
  bool taken_;
};

[[noreturn]] void raiseBusyFile(const std::string& path, std::string_view operation,
                                const std::string& reason) {
  kodiag::raise(
      {"KODD:kodd", "RepositoryBusy"},
      {{"Operation", std::string(operation)}, {"Location", path}, {"Reason", reason}});
}

/// A lock file as opened by the given function, with the presence announced in it.
template <class Open>
std::optional<host::FileLock> announced(const std::string& path,
                                        std::chrono::milliseconds timeout, Open open) {
  while (true) {
    std::optional<host::FileLock> file = open();
    if (!file) return file;
    if (!file->lockWithin(kPresenceByte, LockKind::shared, timeout)) {
      raiseBusyFile(path, "open", "it is being moved away");
    }
    // Whoever removed the repository while we waited took the lock file along.
    if (file->isStillAtPath()) return file;
  }
}

}  // namespace

RepositoryLock::RepositoryLock(const std::string& path, Milliseconds timeout)
    : RepositoryLock(path, announced(path, timeout, [&] {
                       return std::optional<host::FileLock>(path + kLockSuffix);
                     })) {}

std::unique_ptr<RepositoryLock> RepositoryLock::forReading(const std::string& path,
                                                           Milliseconds timeout) {
  return std::unique_ptr<RepositoryLock>(new RepositoryLock(
      path, announced(path, timeout,
                      [&] { return host::FileLock::openForReading(path + kLockSuffix); })));
}

RepositoryLock::RepositoryLock(const std::string& path, std::optional<host::FileLock> file)
    : path_(path), file_(std::move(file)) {
  identity_ = fileIdentity(path + kLockSuffix).value_or(FileIdentity{});
}

RepositoryLock::~RepositoryLock() {
  if (!file_) return;
  // Freed one by one: a child forked a moment ago may still have the descriptor, which keeps
  // alive whatever is not freed before it is closed.
  if (writeDepth_ > 0) {
    writeDepth_ = 1;
    releaseWrite();
  }
  for (const std::uint64_t byte : instanceBytes_) file_->unlock(byte);
  file_->unlock(kConnectedByte);
  file_->unlock(kPresenceByte);
}

void RepositoryLock::acquireWrite(std::string_view operation, Milliseconds timeout) {
  if (writeDepth_ == 0 && isWrittenByThisThread(identity_)) {
    raiseBusy(operation, "this thread is writing to it through another connection");
  }
  if (!tryAcquireWrite(timeout)) {
    raiseBusy(operation, "it did not end within " + std::to_string(timeout.count()) + " ms");
  }
}

bool RepositoryLock::tryAcquireWrite(Milliseconds timeout) {
  if (writeDepth_ == 0) {
    if (isWrittenByThisThread(identity_) || !waitForWrite(timeout)) return false;
    setWriter(identity_);
  }
  ++writeDepth_;
  return true;
}

bool RepositoryLock::waitForWrite(Milliseconds timeout) {
  if (!file_->isHeldByAnother(kQueueByte) && file_->tryLock(kWriteByte, LockKind::exclusive)) {
    return true;
  }
  // Whoever waits stands in a queue that everybody looks at before writing; without it, a
  // process that writes in a tight loop would take the lock again long before a sleeper sees it
  // free.
  const auto deadline = Clock::now() + timeout;
  const QueuePlace place(*file_, std::min(timeout, kQueueCourtesy));
  const auto rest = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
  return file_->lockWithin(kWriteByte, LockKind::exclusive, rest);
}

void RepositoryLock::releaseWrite() noexcept {
  if (--writeDepth_ > 0) return;
  clearWriter(identity_);
  file_->unlock(kWriteByte);
}

void RepositoryLock::holdInstance(long long instanceID) {
  const std::uint64_t byte = instanceByte(instanceID);
  if (!file_->tryLock(byte, LockKind::exclusive)) {
    raiseBusy("hold instance " + std::to_string(instanceID), "another process holds it");
  }
  instanceBytes_.insert(byte);
}

void RepositoryLock::releaseInstance(long long instanceID) {
  const std::uint64_t byte = instanceByte(instanceID);
  if (instanceBytes_.erase(byte) > 0) file_->unlock(byte);
}

bool RepositoryLock::isInstanceAlive(long long instanceID) const {
  const std::uint64_t byte = instanceByte(instanceID);
  return instanceBytes_.contains(byte) || (file_ && file_->isHeldByAnother(byte));
}

void RepositoryLock::closeAfterFork() noexcept {
  if (file_) file_->closeAfterFork();
  writeDepth_ = 0;
}

void RepositoryLock::noteConnected() {
  if (file_) file_->tryLock(kConnectedByte, LockKind::shared);  // nobody locks it exclusively
}

bool RepositoryLock::areOthersConnected() const {
  return file_ && file_->isHeldByAnother(kConnectedByte);
}

std::uint64_t RepositoryLock::notedNumber() const {
  return file_->number(kNumberOffset);
}

void RepositoryLock::noteNumber(std::uint64_t number) {
  file_->setNumber(kNumberOffset, number);
}

void RepositoryLock::raiseBusy(std::string_view operation, const std::string& reason) const {
  raiseBusyFile(path_, operation, reason);
}

ExclusivePresence::ExclusivePresence(const std::string& path)
    : file_(path + kLockSuffix), granted_(file_.tryLock(kPresenceByte, LockKind::exclusive)) {}

ExclusivePresence::~ExclusivePresence() {
  file_.unlock(kPresenceByte);
}

}  // namespace sqldb
