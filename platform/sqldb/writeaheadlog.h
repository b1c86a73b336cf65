// When and how the log is copied into the main file.
#pragma once

#include "sqldb/connection.h"

namespace sqldb {

/// Watches how long the log of one connection's file gets, and keeps it short.
///
/// The engine's own automatic checkpoint is off: between processes it can meet another one's
/// write and damage the file. Every function but the constructor is called with the write lock
/// held.
class WriteAheadLog {
 public:
  explicit WriteAheadLog(Connection& connection);
  WriteAheadLog(const WriteAheadLog&) = delete;
  WriteAheadLog& operator=(const WriteAheadLog&) = delete;

  /// After a commit: copies the log when it has become long. Failures are left for the next
  /// time, since the commit itself is done.
  void afterCommit();
  /// Copies all of the log and empties it. \returns false when readers keep part of it from the
  /// file
  bool copyAll(int waitMilliseconds);
  /// Whether this connection has committed anything.
  bool hasWritten() const { return pages_ > 0; }

 private:
  Connection& connection_;
  int pages_ = 0;
  int nextCopy_;
};

}  // namespace sqldb
