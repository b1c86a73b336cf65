#include "sqldb/database.h"

#include <sqlite3.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "kodiag/diagnostics.h"
#include "sqldb/databaseimpl.h"

namespace sqldb {
namespace {

constexpr int kReadersWaitMilliseconds = 500;

}  // namespace

Database::Database(std::string location, const OpenOptions& options)
    : location_(std::move(location)),
      impl_(std::make_unique<Impl>(openFile(location_, options), options)) {}

Database::Database(std::string location, std::unique_ptr<Impl> impl)
    : location_(std::move(location)), impl_(std::move(impl)) {}

Database::~Database() = default;

std::unique_ptr<Database> Database::openBeside() const {
  if (impl_->forked) impl_->refuseUnlessUsable("open");
  auto impl = std::make_unique<Impl>(impl_->openFileAgain(), impl_->options);
  impl->isFirst = false;
  return std::unique_ptr<Database>(new Database(location_, std::move(impl)));
}

bool Database::allowsSeveral() const {
  return impl_->connection.hasLog();
}

FileKind Database::identify(const std::string& location, std::int32_t applicationId) {
  const std::string path = resolvedPath(location, LastLink::follow);
  const Finding found = inspectFile(path, applicationId);
  if (!found.truncation.empty()) raiseDamaged(path, found.truncation);
  return found.kind;
}

bool Database::isReadOnly() const {
  return impl_->connection.isReadOnly();
}

Statement Database::statement(std::string_view sql) {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable("prepare");
  return Statement(*this, sql);
}

void Database::execute(std::string_view sql) {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable("execute");
  const UseScope use(impl_->uses);
  while (!sql.empty()) {
    if (sqlite3_stmt* handle = impl_->connection.prepare(sql, false, sql)) {
      impl_->runToEnd(handle);
    }
  }
}

void Database::executeStatement(const std::string& sql) {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable("executeStatement");
  const UseScope use(impl_->uses);
  impl_->runToEnd([&] {
    const ForeignStatementGuard::Scope foreign(impl_->foreignStatements);
    return impl_->connection.prepareOnly(sql, false);
  }());
}

std::string Database::queryText(std::string_view sql) {
  Statement query = statement(sql);
  if (!query.step() || query.isNull(0)) return {};
  return std::string(query.text(0));
}

Blob Database::blob(const std::string& table, const std::string& column, long long row,
                    Access access) {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable("open blob");
  if (access == Access::write) {
    if (!isWriting()) {
      kodiag::raise({"KODD:kodd", "NoTransaction"}, {{"Operation", "write a blob in place"}});
    }
    impl_->levels.prepareWrite();
  }
  sqlite3_blob* handle = nullptr;
  const int code =
      sqlite3_blob_open(impl_->connection.handle(), "main", table.c_str(), column.c_str(), row,
                        access == Access::write ? 1 : 0, &handle);
  if (code != SQLITE_OK) {
    impl_->fail(impl_->connection.failure(code), "open blob " + table + "." + column);
  }
  return Blob(*this, handle);
}

void Database::beginUnit(Access access, std::string_view operation) {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable(operation);
  impl_->levels.begin(access, operation);
  UseScope::add(impl_->uses, 1);
}

bool Database::tryBeginWriting(std::string_view operation) {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable(operation);
  if (!impl_->levels.tryBeginWriting(operation)) return false;
  UseScope::add(impl_->uses, 1);
  return true;
}

void Database::commitUnit() {
  const EngineGate::Scope gate(impl_->connection.gate());
  if (impl_->forked) impl_->refuseUnlessUsable("commit");
  const int before = depth();
  struct CountLevels {
    ~CountLevels() { UseScope::add(impl.uses, impl.levels.depth() - before); }
    Impl& impl;
    int before;
  } count{*impl_, before};
  impl_->levels.commit();
}

void Database::rollbackUnit() noexcept {
  const EngineGate::Scope gate(impl_->connection.gate());
  if (depth() == 0) return;
  impl_->levels.rollback();
  UseScope::add(impl_->uses, -1);
}

int Database::depth() const {
  return impl_->levels.depth();
}

bool Database::isWriting() const {
  return impl_->levels.isWriting();
}

bool Database::transactionLost() const {
  return impl_->levels.lost();
}

void Database::setLevelListener(LevelListener* listener) {
  impl_->levels.setListener(listener);
}

const std::shared_ptr<RepositoryLock>& Database::lock() const {
  return impl_->file.lock;
}

const std::shared_ptr<EngineGate>& Database::gate() const {
  return impl_->connection.sharedGate();
}

bool Database::checkpoint() {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable("checkpoint");
  if (depth() > 0) {
    kodiag::raise({"KODD:kodd", "TransactionActive"}, {{"Operation", "checkpoint"}});
  }
  const UseScope use(impl_->uses);
  const WriteTurnScope turn(impl_->turn, "checkpoint");
  return impl_->turn.log().copyAll(kReadersWaitMilliseconds);
}

void Database::releaseFreePages(int pages) {
  if (depth() > 0) return;
  execute("PRAGMA incremental_vacuum(" + std::to_string(pages) + ")");
}

void Database::compact() {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable("compact");
  if (depth() > 0) {
    kodiag::raise({"KODD:kodd", "TransactionActive"}, {{"Operation", "compact"}});
  }
  const UseScope use(impl_->uses);
  const WriteTurnScope turn(impl_->turn, "compact");
  execute("PRAGMA incremental_vacuum");
  impl_->turn.log().copyAll(kReadersWaitMilliseconds);
}

FileSpace Database::space() {
  const auto bytes = [this](const char* pages) {
    return std::stoull(queryText(pages)) * std::stoull(queryText("PRAGMA page_size"));
  };
  FileSpace found;
  found.file = bytes("PRAGMA page_count");
  found.free = bytes("PRAGMA freelist_count");
  std::error_code none;
  const std::uintmax_t log = std::filesystem::file_size(impl_->file.path + "-wal", none);
  if (!none) found.log = log;
  return found;
}

std::vector<std::string> Database::integrityProblems() {
  std::vector<std::string> problems;
  try {
    Statement check = statement("PRAGMA integrity_check");
    while (check.step()) problems.emplace_back(check.text(0));
  } catch (const kodiag::except::ExceptionWithCauses& e) {
    if (e.message().id.key != "Corrupt") throw;
    problems.emplace_back(e.what());
  }
  if (problems == std::vector<std::string>{"ok"}) problems.clear();
  return problems;
}

std::uint64_t Database::notedNumber() const {
  impl_->refuseUnlessUsable("read the noted number");
  return impl_->lock.notedNumber();
}

void Database::noteNumber(std::uint64_t number) {
  impl_->refuseUnlessUsable("note a number");
  impl_->lock.noteNumber(number);
}

void Database::holdInstance(long long instanceID) {
  impl_->refuseInChild("hold instance");
  impl_->lock.holdInstance(instanceID);
}

void Database::releaseInstance(long long instanceID) {
  if (!impl_->forked) impl_->lock.releaseInstance(instanceID);
}

bool Database::isInstanceAlive(long long instanceID) const {
  impl_->refuseInChild("look for instance");
  return impl_->lock.isInstanceAlive(instanceID);
}

void Database::setTraceCallback(TraceCallback callback) {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable("trace");
  impl_->tracing.setTrace(std::move(callback));
}

void Database::setProfileCallback(ProfileCallback callback) {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable("profile");
  impl_->tracing.setProfile(std::move(callback));
}

void Database::setWriteCallback(WriteCallback callback) {
  const EngineGate::Scope gate(impl_->connection.gate());
  impl_->refuseUnlessUsable("watch writes");
  impl_->watchWrites(std::move(callback));
}

}  // namespace sqldb
