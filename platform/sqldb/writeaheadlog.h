// When and how the log is copied into the main file.
#pragma once

#include "sqldb/connection.h"

namespace sqldb {

/// Copies all of the log into the file and empties it; needs the write lock. \returns false
/// when readers keep part of it from the file
bool copyLog(Connection& connection, int waitMilliseconds);

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

  /// Whether it is time to copy the log, after a commit.
  bool isLong();
  /// Copies what readers do not need. Failures are left for the next time, since the commit
  /// itself is done.
  void copySome();
  bool copyAll(int waitMilliseconds) { return copyLog(connection_, waitMilliseconds); }
  /// Whether this connection has committed anything.
  bool hasWritten() const { return pages_ > 0; }

 private:
  Connection& connection_;
  int pages_ = 0;
  int nextCopy_;
};

}  // namespace sqldb
