#include "sqldb/repositorylock.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "host/interrupt.h"
#include "kodiag/message.h"
#include "sqldb/processstate.h"

namespace sqldb {
namespace {

using host::LockKind;

/// How long a wait for another thread goes on before the host is asked whether it should.
constexpr std::chrono::milliseconds kBetweenPolls{20};

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
/// This thread's place in a queue.
class Place {
 public:
  Place(std::deque<std::thread::id>& queue, std::condition_variable& changed)
      : queue_(queue), changed_(changed) {
    queue_.push_back(std::this_thread::get_id());
  }
  ~Place() {
    std::erase(queue_, std::this_thread::get_id());
    changed_.notify_all();
  }
  Place(const Place&) = delete;
  Place& operator=(const Place&) = delete;

  bool isFirst() const { return queue_.front() == std::this_thread::get_id(); }

 private:
  std::deque<std::thread::id>& queue_;
  std::condition_variable& changed_;
};

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

bool RepositoryLock::isWriter() const {
  return writeDepth_ > 0 && writer_ == std::this_thread::get_id();
}

void RepositoryLock::acquireWrite(std::string_view operation, Milliseconds timeout) {
  if (tryAcquireWrite(operation, timeout)) return;
  if (isWrittenByThisThread(identity_)) {
    raiseBusy(operation, "this thread is writing to it through another connection");
  }
  const std::string late = "did not end within " + std::to_string(timeout.count()) + " ms";
  std::string reason = "it " + late;
  {
    const std::lock_guard guard(mutex_);
    if (writeDepth_ > 0) reason = "\"" + writing_ + "\" of another thread " + late;
  }
  raiseBusy(operation, reason);
}

bool RepositoryLock::tryAcquireWrite(std::string_view operation, Milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  {
    const std::lock_guard guard(mutex_);
    if (isWriter()) {
      ++writeDepth_;
      return true;
    }
  }
  if (isWrittenByThisThread(identity_)) return false;
  if (!waitForThreads(operation, deadline)) return false;
  const auto rest = std::chrono::duration_cast<Milliseconds>(deadline - Clock::now());
  try {
    if (waitForWrite(rest)) {
      setWriter(identity_);
      return true;
    }
  } catch (...) {
    letNextThreadWrite();
    throw;
  }
  letNextThreadWrite();
  return false;
}

bool RepositoryLock::waitForThreads(std::string_view operation, Clock::time_point deadline) {
  std::unique_lock guard(mutex_);
  if (writeDepth_ > 0 || !queue_.empty()) {
    // First come, first served: a thread that writes in a tight loop would take the turn again
    // long before a sleeper sees it free.
    const Place place(queue_, writerLeft_);
    while (writeDepth_ > 0 || !place.isFirst()) {
      if (Clock::now() >= deadline) return false;
      writerLeft_.wait_until(guard, std::min(deadline, Clock::now() + kBetweenPolls));
      host::stopIfInterrupted("wait for another thread");
    }
  }
  writer_ = std::this_thread::get_id();
  writeDepth_ = 1;
  writing_.assign(operation);
  return true;
}

void RepositoryLock::letNextThreadWrite() noexcept {
  {
    const std::lock_guard guard(mutex_);
    writeDepth_ = 0;
    writer_ = {};
  }
  writerLeft_.notify_all();
}

bool RepositoryLock::waitForWrite(Milliseconds timeout) {
  if (!file_) return true;  // read only: the connections refuse to write
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
  {
    const std::lock_guard guard(mutex_);
    if (writeDepth_ > 1) {
      --writeDepth_;
      return;
    }
  }
  clearWriter(identity_);
  if (file_) file_->unlock(kWriteByte);
  letNextThreadWrite();
}

void RepositoryLock::holdInstance(long long instanceID) {
  const std::uint64_t byte = instanceByte(instanceID);
  if (!file_->tryLock(byte, LockKind::exclusive)) {
    raiseBusy("hold instance " + std::to_string(instanceID), "another process holds it");
  }
  const std::lock_guard guard(mutex_);
  instanceBytes_.insert(byte);
}

void RepositoryLock::releaseInstance(long long instanceID) {
  const std::uint64_t byte = instanceByte(instanceID);
  const std::lock_guard guard(mutex_);
  if (instanceBytes_.erase(byte) > 0) file_->unlock(byte);
}

bool RepositoryLock::isInstanceAlive(long long instanceID) const {
  const std::uint64_t byte = instanceByte(instanceID);
  {
    const std::lock_guard guard(mutex_);
    if (instanceBytes_.contains(byte)) return true;
  }
  return file_ && file_->isHeldByAnother(byte);
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
