#include "sqldb/writeaheadlog.h"

#include <sqlite3.h>

namespace sqldb {
namespace {

constexpr int kPagesBetweenCopies = 1000;
/// 64 MB of pages: a reader has stayed long enough to be asked to make room.
constexpr int kPagesOfALongLog = 4096;
constexpr int kLongLogWaitMilliseconds = 50;

/// Shortens the engine's wait for the duration of one checkpoint.
class EngineWait {
 public:
  EngineWait(sqlite3* handle, int milliseconds) : handle_(handle) {
    sqlite3_busy_timeout(handle, milliseconds);
  }
  ~EngineWait() { sqlite3_busy_timeout(handle_, kUsual); }
  EngineWait(const EngineWait&) = delete;
  EngineWait& operator=(const EngineWait&) = delete;

 private:
  static constexpr int kUsual = Connection::kEngineWaitMilliseconds;
  sqlite3* handle_;
};

int notePages(void* pages, sqlite3*, const char*, int pagesInLog) {
  *static_cast<int*>(pages) = pagesInLog;
  return SQLITE_OK;
}

}  // namespace

bool copyLog(Connection& connection, int waitMilliseconds) {
  const EngineWait wait(connection.handle(), waitMilliseconds);
  int inLog = -1;
  int copied = -1;
  const int code = sqlite3_wal_checkpoint_v2(connection.handle(), "main",
                                             SQLITE_CHECKPOINT_TRUNCATE, &inLog, &copied);
  if (code == SQLITE_OK) return true;
  if ((code & 0xff) != SQLITE_BUSY) connection.raise(code, "checkpoint");
  // Readers may keep the log from being emptied even when all of it has been copied.
  return inLog >= 0 && inLog == copied;
}

WriteAheadLog::WriteAheadLog(Connection& connection)
    : connection_(connection), nextCopy_(kPagesBetweenCopies) {
  sqlite3_wal_hook(connection.handle(), notePages, &pages_);
}

bool WriteAheadLog::isLong() {
  // Far below the mark: the log has begun anew, here or in another process.
  if (pages_ + kPagesBetweenCopies < nextCopy_) nextCopy_ = kPagesBetweenCopies;
  return pages_ >= nextCopy_;
}

void WriteAheadLog::copySome() {
  sqlite3* handle = connection_.handle();
  sqlite3_wal_checkpoint_v2(handle, "main", SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
  if (pages_ > kPagesOfALongLog) {
    const EngineWait wait(handle, kLongLogWaitMilliseconds);
    sqlite3_wal_checkpoint_v2(handle, "main", SQLITE_CHECKPOINT_RESTART, nullptr, nullptr);
  }
  // A reader may hold the log in place; trying again at every commit would cost more than it
  // gains.
  nextCopy_ = pages_ + kPagesBetweenCopies;
}

}  // namespace sqldb
