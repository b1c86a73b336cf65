#include "sqldb/connection.h"

#include <sqlite3.h>

#include <limits>
#include <system_error>
#include <thread>
#include <utility>

#include "host/interrupt.h"
#include "kodiag/diagnostics.h"
#include "sqldb/error.h"
#include "sqldb/repositoryfile.h"

namespace sqldb {
namespace {

constexpr std::size_t kTextInMessages = 200;

/// Twice the length at which the log is copied: cutting it shorter at every new start would
/// cost a third of all writing, since its blocks are then allocated again and again.
constexpr const char* kLogLimit = "PRAGMA journal_size_limit = 33554432";

/// Every allocation of the engine would take one lock of the whole process for them. Has no
/// effect once another module has begun to use the engine.
void leaveOutMemoryStatistics() {
  static const int result = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
  static_cast<void>(result);
}

/// Steps of the engine's machine, a few microseconds' worth.
constexpr int kStepsBetweenPolls = 250;

constexpr const char* kControlTexts[] = {"BEGIN",           "BEGIN IMMEDIATE", "COMMIT",
                                         "ROLLBACK",        "SAVEPOINT unit",  "RELEASE unit",
                                         "ROLLBACK TO unit"};

}  // namespace

Connection::Connection(const std::string& path, const OpenOptions& options, View view)
    : path_(path), durability_(options.durability), access_(options.access), movedFile_(path) {
  const EngineGate::Scope gate(EngineGate::ofOpening());
  leaveOutMemoryStatistics();
  const int access = isReadOnly() ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
  const int flags = access | SQLITE_OPEN_URI | SQLITE_OPEN_NOFOLLOW | SQLITE_OPEN_NOMUTEX |
                    SQLITE_OPEN_EXRESCODE;
  const std::string name = view == View::unchanged ? immutableUri(path) : path;
  const int code = sqlite3_open_v2(name.c_str(), &handle_, flags, nullptr);
  try {
    if (code != SQLITE_OK) raise(code, "open");
    if (!isReadOnly() && sqlite3_db_readonly(handle_, "main") != 0) {
      raise({SQLITE_READONLY, "no permission to write"}, "open");
    }
    configure();
    prepareControls();
    applyDurability();
  } catch (...) {
    close();
    throw;
  }
}

Connection::Connection(const Connection& first, const OpenOptions& options)
    : Connection(first.path_, options) {
  moved_ = first.moved_;
  if (findMoved()) raiseMoved("open");
  run("PRAGMA cache_size = -2048");
}

Connection::~Connection() {
  close();
}

void Connection::configure() {
  sqlite3_busy_timeout(handle_, kEngineWaitMilliseconds);
  sqlite3_progress_handler(
      handle_, kStepsBetweenPolls,
      [](void* context) -> int {
        auto& gate = *static_cast<EngineGate*>(context);
        if (!gate.isOnlyOneEntered()) return 0;  // opening, which is short
        const EngineGate::Aside aside(gate);
        return host::isInterrupted();
      },
      gate_.get());
  set(SQLITE_DBCONFIG_DEFENSIVE, 1);
  set(SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0);
  set(SQLITE_DBCONFIG_ENABLE_TRIGGER, 0);
  set(SQLITE_DBCONFIG_ENABLE_VIEW, 0);
  set(SQLITE_DBCONFIG_DQS_DML, 0);
  set(SQLITE_DBCONFIG_DQS_DDL, 0);
  set(SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1);
  sqlite3_limit(handle_, SQLITE_LIMIT_ATTACHED, 0);
  int keepLog = 1;
  check(sqlite3_file_control(handle_, "main", SQLITE_FCNTL_PERSIST_WAL, &keepLog), "open");
  for (const char* pragma :
       {"PRAGMA cell_size_check = ON", "PRAGMA mmap_size = 0", "PRAGMA secure_delete = OFF",
        "PRAGMA cache_size = -16384", kLogLimit, "PRAGMA wal_autocheckpoint = 0"}) {
    run(pragma);
  }
}

void Connection::prepareControls() {
  for (std::size_t i = 0; i < controls_.size(); ++i) {
    controls_[i] = prepareOnly(kControlTexts[i], true);
  }
}

void Connection::applyDurability() {
  run(durability_ == Durability::durable ? "PRAGMA synchronous = NORMAL"
                                         : "PRAGMA synchronous = OFF");
}

bool Connection::isEmpty() {
  return queryText("PRAGMA page_count") == "0";
}

void Connection::layOut(std::int32_t applicationId) {
  // A header that a power cut tears makes the path unusable, not only the newest work lost.
  run("PRAGMA synchronous = FULL");
  run("PRAGMA page_size = 16384");
  // In one step: a file without the ID would look like another program's to whoever comes by.
  run("BEGIN");
  run("PRAGMA auto_vacuum = INCREMENTAL");
  run("PRAGMA application_id = " + std::to_string(applicationId));
  run("COMMIT");
  applyDurability();
}

void Connection::set(int option, int value) {
  check(sqlite3_db_config(handle_, option, value, nullptr), "open");
}

void Connection::check(int code, std::string_view operation) {
  if (code != SQLITE_OK) raise(code, operation);
}

bool Connection::usesLog() {
  hasLog_ = queryText("PRAGMA journal_mode") == "wal";
  return hasLog_;
}

void Connection::turnOnLog(std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    try {
      hasLog_ = queryText("PRAGMA journal_mode = WAL") == "wal";
      if (hasLog_) return;
      break;
    } catch (const kodiag::except::ExceptionWithCauses& e) {
      // The engine answers "busy" here without waiting when another process opens at the same
      // time.
      const bool busy = e.message().id.key == "RepositoryBusy";
      if (!busy || std::chrono::steady_clock::now() >= deadline) throw;
    }
    host::stopIfInterrupted("open");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  if (queryText("PRAGMA journal_mode = PERSIST") != "persist") {
    raise({SQLITE_CANTOPEN, "it can be opened neither with a log nor with a journal"}, "open");
  }
}

sqlite3_stmt* Connection::prepare(std::string_view sql, bool keep, std::string_view& rest) {
  const EngineGate::Scope gate(*gate_);
  if (sql.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    raise({SQLITE_TOOBIG, "the statement is too long"}, "prepare");
  }
  sqlite3_stmt* statement = nullptr;
  const char* tail = nullptr;
  const int code = sqlite3_prepare_v3(handle_, sql.data(), static_cast<int>(sql.size()),
                                      keep ? SQLITE_PREPARE_PERSISTENT : 0U, &statement, &tail);
  if (code != SQLITE_OK)
    raise(code, "prepare \"" + std::string(sql.substr(0, kTextInMessages)) + "\"");
  rest = sql.substr(static_cast<std::size_t>(tail - sql.data()));
  return statement;
}

sqlite3_stmt* Connection::prepareOnly(std::string_view sql, bool keep) {
  std::string_view rest;
  sqlite3_stmt* statement = prepare(sql, keep, rest);
  if (statement == nullptr || rest.find_first_not_of(" \t\r\n;") != std::string_view::npos) {
    sqlite3_finalize(statement);
    raise({SQLITE_MISUSE, "not exactly one statement"}, sql.substr(0, kTextInMessages));
  }
  return statement;
}

void Connection::run(const std::string& sql) {
  queryText(sql);
}

std::string Connection::queryText(const std::string& sql) {
  const EngineGate::Scope gate(*gate_);
  std::string_view rest;
  sqlite3_stmt* statement = prepare(sql, false, rest);
  std::string text;
  const int code = sqlite3_step(statement);
  if (code == SQLITE_ROW) {
    const auto* first = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
    if (first != nullptr) text = first;
  }
  const Failure found = failure(code);
  sqlite3_finalize(statement);
  if (code != SQLITE_ROW && code != SQLITE_DONE) raise(found, sql);
  return text;
}

int Connection::control(Control which) {
  const EngineGate::Scope gate(*gate_);
  const host::Uninterruptible whole;
  sqlite3_stmt* statement = controls_[static_cast<std::size_t>(which)];
  const int code = sqlite3_step(statement);
  sqlite3_reset(statement);  // repeats the code of the step
  return code == SQLITE_DONE ? SQLITE_OK : code;
}

bool Connection::inTransaction() const {
  return sqlite3_get_autocommit(handle_) == 0;
}

bool Connection::inWritingTransaction() const {
  return sqlite3_txn_state(handle_, "main") == SQLITE_TXN_WRITE;
}

bool Connection::findMoved() {
  const EngineGate::Scope gate(*gate_);
  int moved = 0;
  if (sqlite3_file_control(handle_, "main", SQLITE_FCNTL_HAS_MOVED, &moved) == SQLITE_OK) {
    if (moved != 0) moved_->store(true, std::memory_order_relaxed);
  }
  return wasMoved();
}

void Connection::giveUp(std::string file, std::string reason) {
  moved_->store(true, std::memory_order_relaxed);
  movedFile_ = std::move(file);
  movedReason_ = std::move(reason);
}

void Connection::raiseMoved(std::string_view operation) {
  moved_->store(true, std::memory_order_relaxed);
  throw kodiag::except::ExceptionWithCauses(
      errorMessage(SQLITE_READONLY_DBMOVED, operation, movedFile_, movedReason_));
}

Failure Connection::failure(int code) const {
  Failure failure{code, handle_ == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(handle_)};
  const int kind = code & 0xff;
  if (handle_ != nullptr && (kind == SQLITE_IOERR || kind == SQLITE_CANTOPEN)) {
    if (const int errnoValue = sqlite3_system_errno(handle_); errnoValue != 0) {
      failure.text += ": " + std::generic_category().message(errnoValue);
    }
  }
  return failure;
}

void Connection::raise(const Failure& failure, std::string_view operation) {
  if (failure.code == SQLITE_READONLY_DBMOVED) moved_->store(true, std::memory_order_relaxed);
  throw kodiag::except::ExceptionWithCauses(
      errorMessage(failure.code, operation, path_, failure.text));
}

void Connection::close() noexcept {
  if (handle_ == nullptr) return;
  const EngineGate::Scope gate(EngineGate::ofOpening());
  for (sqlite3_stmt*& each : controls_) {
    sqlite3_finalize(each);
    each = nullptr;
  }
  sqlite3_close_v2(handle_);
  handle_ = nullptr;
}

}  // namespace sqldb
