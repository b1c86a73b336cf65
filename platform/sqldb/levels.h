// The stack of open units of work of one connection.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "sqldb/connection.h"
#include "sqldb/writeturn.h"

namespace sqldb {

/// Reading levels come first: together they are one reading transaction. The first writing
/// level above them is a transaction of its own, kept or undone when it ends; the reading
/// levels below then see the state it left. Levels inside the writing one become savepoints
/// with the first write inside them: until then there is nothing they could undo.
///
/// Invariant: of the levels above the outermost writing one, the first `savepoints_` are
/// savepoints of the engine.
class Levels {
 public:
  Levels(Connection& connection, WriteTurn& turn) : connection_(connection), turn_(turn) {}
  Levels(const Levels&) = delete;
  Levels& operator=(const Levels&) = delete;

  void begin(Database::Access access, std::string_view operation);
  /// Database::tryBeginWriting().
  bool tryBeginWriting(std::string_view operation);
  void commit();
  void rollback() noexcept;

  /// Before a statement that writes: makes every level a savepoint. Needs isWriting().
  void prepareWrite();
  /// Ends what the reading levels see, for a statement that writes by itself; resumeReading()
  /// shows them the newest state. Both do nothing without levels.
  void pauseReading(std::string_view operation);
  void resumeReading() noexcept;
  /// After a failed step: notices when the engine has dropped the whole transaction.
  void noteFailure(const Failure& failure);
  void refuseWhenLost(std::string_view operation) const;

  /// Whether a transaction that writes is open.
  bool isWriting() const { return writing_; }
  int depth() const { return static_cast<int>(depth_); }
  bool lost() const { return lost_; }
  /// What the innermost level is about; empty when none is open.
  std::string_view operation() const;
  void setListener(LevelListener* listener) { listener_ = listener; }
  /// Forgets all levels without touching the file.
  void forget() noexcept;

 private:
  /// Whether the transaction ends with the innermost level.
  bool isOutermost() const { return depth_ == (writing_ ? readingBelow_ + 1 : 1); }
  /// Whether the transaction of the outermost writing level is that of the reading levels below
  /// it, since nothing was written.
  bool hasOnlyRead() const {
    return writing_ && readingBelow_ > 0 && !connection_.inWritingTransaction();
  }
  bool innermostIsSavepoint() const {
    return writing_ && savepoints_ + readingBelow_ + 1 == depth_;
  }
  void beginReading(std::string_view operation);
  void beginWriting(std::string_view operation);
  void undoInnermost() noexcept;
  void push(std::string_view operation);
  void pop() noexcept;
  /// After the listener has heard of the level's end: gives the turn back when it was the
  /// outermost writing one.
  void finishWriting() noexcept;

  Connection& connection_;
  WriteTurn& turn_;
  LevelListener* listener_ = nullptr;
  // Names of the levels; longer than the depth, so that a level costs no allocation.
  std::vector<std::string> operations_;
  std::size_t depth_ = 0;
  std::size_t readingBelow_ = 0;  ///< reading levels below the outermost writing one
  std::size_t savepoints_ = 0;
  bool writing_ = false;
  bool paused_ = false;
  bool lost_ = false;
  std::string lostReason_;
};

}  // namespace sqldb
