// The stack of open units of work of one connection.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "sqldb/connection.h"
#include "sqldb/writeturn.h"

namespace sqldb {

/// The outermost level is a transaction. Inner levels become savepoints with the first write
/// inside them: until then there is nothing they could undo.
///
/// Invariant: of the levels 1 .. depth-1, the first `savepoints_` are savepoints of the engine.
class Levels {
 public:
  Levels(Connection& connection, WriteTurn& turn) : connection_(connection), turn_(turn) {}
  Levels(const Levels&) = delete;
  Levels& operator=(const Levels&) = delete;

  void begin(Database::Access access, std::string_view operation);
  void commit();
  void rollback() noexcept;

  /// Before a statement that writes: makes the transaction a writing one and every level a
  /// savepoint. Needs an open level.
  void prepareWrite();
  /// After a failed step: notices when the engine has dropped the whole transaction.
  void noteFailure(const Failure& failure);
  void refuseWhenLost(std::string_view operation) const;

  int depth() const { return static_cast<int>(depth_); }
  bool lost() const { return lost_; }
  /// What the innermost level is about; empty when none is open.
  std::string_view operation() const;
  void setListener(LevelListener* listener) { listener_ = listener; }
  /// Forgets all levels without touching the file.
  void forget() noexcept;

 private:
  bool isOutermost() const { return depth_ == 1; }
  bool innermostIsSavepoint() const { return savepoints_ == depth_ - 1; }
  void beginOutermost(Database::Access access, std::string_view operation);
  void turnIntoWriting(std::string_view operation);
  void undoInnermost() noexcept;
  void push(std::string_view operation);
  void pop() noexcept;

  Connection& connection_;
  WriteTurn& turn_;
  LevelListener* listener_ = nullptr;
  // Names of the levels; longer than the depth, so that a level costs no allocation.
  std::vector<std::string> operations_;
  std::size_t depth_ = 0;
  std::size_t savepoints_ = 0;
  bool writing_ = false;
  bool lost_ = false;
  std::string lostReason_;
};

}  // namespace sqldb
