#include "sqldb/databaseimpl.h"

#include <sqlite3.h>

#include <utility>

#include "kodiag/message.h"

namespace sqldb {
namespace {

/// Closing must not hang on another process's long unit; what stays in the log is safe there.
constexpr std::chrono::milliseconds kClosingWait{1000};
constexpr int kClosingReadersWaitMilliseconds = 50;

}  // namespace

Database::Impl::Impl(OpenedFile openedFile, const OpenOptions& openOptions)
    : file(std::move(openedFile)),
      options(openOptions),
      connection(*file.connection),
      lock(*file.lock),
      sideFiles(connection, lock),
      turn(connection, lock, sideFiles, options.busyTimeout),
      levels(connection, turn),
      cache(connection),
      foreignStatements(connection, options.durability),
      tracing(connection) {
  joinForks(*this);
}

OpenedFile Database::Impl::openFileAgain() const {
  OpenedFile again{file.path, file.identity, file.lock, nullptr};
  again.connection = std::make_unique<Connection>(connection, options);
  return again;
}

Database::Impl::~Impl() {
  leaveForks(*this);
  if (forked) {
    if (!makeWayInChild(file.identity)) {
      markUnusableAfterFork(file.identity);
      connection.leak();
    }
    return;
  }
  const EngineGate::Scope gate(connection.gate());
  rollbackAll();
  if (!connection.isReadOnly()) copyLogOnClosing();
  cache.clear();
  if (!connection.isReadOnly()) touchFiles(file.path);
}

void Database::Impl::copyLogOnClosing() noexcept {
  if (connection.wasMoved()) return;
  if (!isFirst && !turn.log().hasWritten()) return;
  try {
    const auto wait = turn.log().hasWritten() ? kClosingWait : std::chrono::milliseconds(0);
    if (!turn.takeWithin(wait, "close")) return;
    try {
      turn.log().copyAll(kClosingReadersWaitMilliseconds);
    } catch (...) {
      turn.give();
      throw;
    }
    turn.give();
  } catch (const std::exception&) {
    // The log keeps what could not be copied; the next one to open the file finds it there.
  }
}

void Database::Impl::refuseInChild(std::string_view operation) const {
  if (!forked) return;
  kodiag::raise({"KODD:kodd", "ForkedProcess"},
                {{"Operation", std::string(operation)}, {"Location", file.path}});
}

void Database::Impl::refuseUnlessUsable(std::string_view operation) {
  refuseInChild(operation);
  if (connection.wasMoved()) connection.raiseMoved(operation);
  levels.refuseWhenLost(operation);
}

bool Database::Impl::step(sqlite3_stmt* handle, bool writes, bool& holdsTurn) {
  const EngineGate::Scope gate(connection.gate());
  refuseUnlessUsable("statement");
  if (writes && !holdsTurn) {
    if (levels.isWriting()) {
      levels.prepareWrite();
    } else {
      beginTurn(handle);
      holdsTurn = true;
    }
  }
  if (writes && beforeWrite) [[unlikely]] {
    watchStep(holdsTurn);
  }
  const int code = [&] {
    const Tracing::Step timed(tracing, handle);
    return sqlite3_step(handle);
  }();
  if (code == SQLITE_ROW) return true;
  if (code == SQLITE_DONE) {
    endTurn(holdsTurn);
    return false;
  }
  const Failure failure = connection.failure(code);
  sqlite3_reset(handle);
  endTurn(holdsTurn);
  fail(failure, describe(handle));
}

void Database::Impl::beginTurn(sqlite3_stmt* handle) {
  turn.take(sqlite3_sql(handle));
  try {
    levels.pauseReading("statement");
  } catch (...) {
    turn.give();
    throw;
  }
}

void Database::Impl::watchStep(bool& holdsTurn) {
  try {
    beforeWrite();
  } catch (...) {
    endTurn(holdsTurn);
    throw;
  }
}

void Database::Impl::watchWrites(WriteCallback callback) {
  beforeWrite = std::move(callback);
  sqlite3_commit_hook(connection.handle(), beforeWrite ? beforeCommit : nullptr, this);
}

int Database::Impl::beforeCommit(void* impl) {
  try {
    static_cast<Impl*>(impl)->beforeWrite();
    return 0;
  } catch (...) {
    // The engine's C code is below; what is not 0 makes it fail the commit.
    return 1;
  }
}

void Database::Impl::endTurn(bool& holdsTurn) noexcept {
  if (!holdsTurn) return;
  holdsTurn = false;
  turn.give();
  levels.resumeReading();
}

void Database::Impl::fail(const Failure& failure, std::string_view operation) {
  levels.noteFailure(failure);
  connection.raise(failure, operation);
}

void Database::Impl::runToEnd(sqlite3_stmt* handle) {
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  const std::unique_ptr<sqlite3_stmt, Finalize> statement(handle);
  bool holdsTurn = false;
  while (step(handle, sqlite3_stmt_readonly(handle) == 0, holdsTurn)) {
  }
}

std::string Database::Impl::describe(sqlite3_stmt* handle) const {
  constexpr std::size_t kEnoughToKnowIt = 60;
  const std::string_view sql = sqlite3_sql(handle);
  const std::string_view unit = levels.operation();
  std::string text(unit.empty() ? "statement" : unit);
  text.append(" [").append(sql.substr(0, kEnoughToKnowIt)).append("]");
  return text;
}

void Database::Impl::rollbackAll() noexcept {
  while (levels.depth() > 0) levels.rollback();
}

void Database::Impl::prepareFork() noexcept {
  restedAtFork = !forked && uses.load(std::memory_order_relaxed) == 0;
}

void Database::Impl::abandonInChild() noexcept {
  forked = true;
  lock.closeAfterFork();
  levels.forget();
}

bool Database::Impl::makeWayInChild(FileIdentity wanted) noexcept {
  if (!forked || wanted != file.identity) return true;
  if (connection.handle() == nullptr) return true;
  if (!restedAtFork) return false;
  // No transaction was open and no call under way, the log stays and no checkpoint is made on
  // closing: this gives back memory and descriptors and writes nothing.
  cache.clear();
  connection.close();
  return true;
}

}  // namespace sqldb
