// The parts of one open repository file, put together.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "sqldb/connection.h"
#include "sqldb/database.h"
#include "sqldb/foreignstatements.h"
#include "sqldb/levels.h"
#include "sqldb/opening.h"
#include "sqldb/processstate.h"
#include "sqldb/repositorylock.h"
#include "sqldb/sidefiles.h"
#include "sqldb/statementcache.h"
#include "sqldb/tracing.h"
#include "sqldb/writeturn.h"

namespace sqldb {

struct Database::Impl final : ForkParticipant {
  Impl(OpenedFile openedFile, const OpenOptions& openOptions);
  ~Impl() override;

  /// \throws "ForkedProcess"
  void refuseInChild(std::string_view operation) const;
  /// \throws "ForkedProcess", "FileRemoved", "TransactionLost"
  void refuseUnlessUsable(std::string_view operation);

  /// One step of a prepared statement. A statement that writes outside every writing level
  /// takes a turn for itself, noted in `holdsTurn`, and gives it back with its last row or its
  /// failure; reading levels then see the state it left.
  bool step(sqlite3_stmt* handle, bool writes, bool& holdsTurn);
  void beginTurn(sqlite3_stmt* handle);
  void endTurn(bool& holdsTurn) noexcept;
  /// Notices a lost transaction, then throws.
  [[noreturn]] void fail(const Failure& failure, std::string_view operation);
  /// Runs one statement to its end and finalises it.
  void runToEnd(sqlite3_stmt* handle);
  /// The open unit and the kind of the statement, for messages.
  std::string describe(sqlite3_stmt* handle) const;

  void watchStep(bool& holdsTurn);
  void watchWrites(WriteCallback callback);
  static int beforeCommit(void* impl);

  void rollbackAll() noexcept;
  void copyLogOnClosing() noexcept;

  void prepareFork() noexcept override;
  void abandonInChild() noexcept override;
  bool makeWayInChild(FileIdentity file) noexcept override;

  /// What openBeside() does, up to the parts.
  OpenedFile openFileAgain() const;

  OpenedFile file;
  OpenOptions options;
  Connection& connection;
  RepositoryLock& lock;
  SideFiles sideFiles;
  WriteTurn turn;
  Levels levels;
  StatementCache cache;
  ForeignStatementGuard foreignStatements;
  Tracing tracing;
  WriteCallback beforeWrite;

  /// Leases, blobs and calls under way: while there are any, a fork cannot leave a clean
  /// handle.
  std::atomic<int> uses{0};
  bool isFirst = true;  ///< not made by openBeside()
  bool forked = false;
  bool restedAtFork = false;
};

/// Marks the database as in use.
class UseScope {
 public:
  explicit UseScope(std::atomic<int>& uses) : uses_(uses) { add(uses, 1); }
  ~UseScope() { add(uses_, -1); }
  UseScope(const UseScope&) = delete;
  UseScope& operator=(const UseScope&) = delete;

  /// One thread changes the count, another one may read it: no locked instruction is needed.
  static void add(std::atomic<int>& uses, int change) {
    uses.store(uses.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
  }

 private:
  std::atomic<int>& uses_;
};

}  // namespace sqldb
