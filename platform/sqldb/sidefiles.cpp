#include "sqldb/sidefiles.h"

#include <sqlite3.h>

#include <array>
#include <chrono>
#include <cstring>

#include "kodiag/message.h"
#include "sqldb/processstate.h"
#include "sqldb/writeaheadlog.h"

namespace sqldb {
namespace {

constexpr std::chrono::milliseconds kPatience{1000};
constexpr int kReadersWaitMilliseconds = 1000;

// Offsets in the index and in the log, as the engine's published file format has them.
constexpr std::size_t kIndexFrames = 16;
constexpr std::size_t kIndexSalt = 32;
constexpr std::size_t kIndexCopiedFrames = 96;
constexpr std::size_t kLogSalt = 16;
constexpr int kIndexRegionBytes = 32768;

using Salt = std::array<char, 8>;

/// What the index says of the log it belongs to.
struct IndexedLog {
  std::uint32_t frames = 0;
  std::uint32_t copiedFrames = 0;
  Salt salt{};
};

sqlite3_file* engineFile(sqlite3* handle, int which) {
  sqlite3_file* file = nullptr;
  const int code = sqlite3_file_control(handle, "main", which, &file);
  return code == SQLITE_OK && file != nullptr && file->pMethods != nullptr ? file : nullptr;
}

/// The engine has the index mapped, so asking for the place of it changes nothing.
std::optional<IndexedLog> readIndex(sqlite3* handle) {
  sqlite3_file* file = engineFile(handle, SQLITE_FCNTL_FILE_POINTER);
  if (file == nullptr || file->pMethods->iVersion < 2) return std::nullopt;
  void volatile* region = nullptr;
  const int code = file->pMethods->xShmMap(file, 0, kIndexRegionBytes, 0, &region);
  if (code != SQLITE_OK || region == nullptr) return std::nullopt;
  const auto* bytes = const_cast<const char*>(static_cast<char volatile*>(region));
  IndexedLog log;
  std::memcpy(&log.frames, bytes + kIndexFrames, sizeof log.frames);
  std::memcpy(&log.copiedFrames, bytes + kIndexCopiedFrames, sizeof log.copiedFrames);
  std::memcpy(log.salt.data(), bytes + kIndexSalt, log.salt.size());
  return log;
}

std::optional<Salt> saltOfLog(sqlite3* handle) {
  sqlite3_file* file = engineFile(handle, SQLITE_FCNTL_JOURNAL_POINTER);
  Salt salt{};
  if (file == nullptr ||
      file->pMethods->xRead(file, salt.data(), salt.size(), kLogSalt) != SQLITE_OK) {
    return std::nullopt;
  }
  return salt;
}

[[noreturn]] void raiseRemoved(const std::string& path, const char* reason) {
  kodiag::raise({"KODD:kodd", "FileRemoved"},
                {{"Operation", "open"}, {"Location", path}, {"Reason", reason}});
}

}  // namespace

SideFiles::SideFiles(Connection& connection, const RepositoryLock& lock)
    : connection_(connection),
      lock_(lock),
      main_(fileIdentity(connection.path()).value_or(FileIdentity{})),
      log_{connection.path() + kLogSuffix, {}},
      index_{connection.path() + kIndexSuffix, {}},
      lockPath_(connection.path() + kLockSuffix) {
  if (!connection.usesLog()) return;
  log_.identity = fileIdentity(log_.path);
  index_.identity = fileIdentity(index_.path);
  if (!log_.identity) raiseRemoved(log_.path, "while it was being opened");
  if (!index_.identity) raiseRemoved(index_.path, "while it was being opened");
  if (!useIndex(main_, *index_.identity)) {
    raiseRemoved(index_.path, "another connection of this process still uses the former one");
  }
}

SideFiles::~SideFiles() {
  if (index_.identity) giveBackIndex(main_);
}

bool SideFiles::areInPlace() const {
  return log_.isInPlace() && index_.isInPlace() && lock_.isInPlace();
}

void SideFiles::refuseUnlessInPlace(std::string_view operation) {
  if (areInPlace()) return;
  const std::string gone = missing();
  const bool isKept = log_.isInPlace() || !logHoldsWork() || bringBack(operation);
  connection_.giveUp(gone, isKept ? "all that was committed is kept; open the repository anew"
                                  : "the newest committed work is lost, since another process "
                                    "went on without it; open the repository anew");
  connection_.raiseMoved(operation);
}

void SideFiles::giveUp(std::string_view operation) {
  connection_.giveUp(missing(), "open the repository anew");
  connection_.raiseMoved(operation);
}

const std::string& SideFiles::missing() const {
  if (!log_.isInPlace()) return log_.path;
  return index_.isInPlace() ? lockPath_ : index_.path;
}

bool SideFiles::logHoldsWork() const {
  const auto indexed = readIndex(connection_.handle());
  if (!indexed || indexed->copiedFrames >= indexed->frames) return false;
  // Another process that lost the same log may have brought its work back, and the index then
  // tells of the log that came after it.
  return saltOfLog(connection_.handle()) == indexed->salt;
}

bool SideFiles::bringBack(std::string_view operation) {
  std::optional<RepositoryLock> ofNewcomers;
  if (!lock_.isInPlace()) {
    ofNewcomers.emplace(connection_.path(), kPatience);
    ofNewcomers->acquireWrite(operation, kPatience);
  }
  if (!index_.isInPlace() && fileIdentity(log_.path)) return false;
  if (!copyLog(connection_, kReadersWaitMilliseconds)) {
    kodiag::raise({"KODD:kodd", "RepositoryBusy"},
                  {{"Operation", std::string(operation)},
                   {"Location", connection_.path()},
                   {"Reason", "its log was removed, and readers keep it from being copied"}});
  }
  // Tells newcomers that nothing is missing.
  if (!fileIdentity(log_.path)) createEmptyFile(log_.path);
  return true;
}

}  // namespace sqldb
