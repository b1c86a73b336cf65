#include "sqldb/statement.h"

#include <sqlite3.h>

#include <cmath>
#include <limits>
#include <utility>

#include "sqldb/databaseimpl.h"

namespace sqldb {
namespace {

/// What an empty value points at: a null pointer would be bound as NULL.
constexpr char kNothing[] = "";

}  // namespace

Statement::Statement(Database& database, std::string_view sql) : database_(&database) {
  Database::Impl& impl = *database.impl_;
  const EngineGate::Scope gate(impl.connection.gate());
  UseScope use(impl.uses);
  const StatementCache::Lease lease = impl.cache.lease(sql);
  entry_ = lease.entry;
  handle_ = lease.handle;
  UseScope::add(impl.uses, 1);
}

Statement::Statement(Statement&& other) noexcept
    : database_(std::exchange(other.database_, nullptr)),
      entry_(other.entry_),
      handle_(other.handle_),
      holdsWriteLock_(std::exchange(other.holdsWriteLock_, false)) {}

Statement::~Statement() {
  if (database_ == nullptr || database_->impl_->forked) return;
  Database::Impl& impl = *database_->impl_;
  const EngineGate::Scope gate(impl.connection.gate());
  impl.cache.giveBack({entry_, handle_});
  impl.endTurn(holdsWriteLock_);
  UseScope::add(impl.uses, -1);
}

void Statement::bindNull(int parameter) {
  check(sqlite3_bind_null(handle_, parameter));
}

void Statement::bind(int parameter, int value) {
  check(sqlite3_bind_int(handle_, parameter, value));
}

void Statement::bind(int parameter, long long value) {
  check(sqlite3_bind_int64(handle_, parameter, value));
}

void Statement::bind(int parameter, double value) {
  if (std::isnan(value)) return bindNull(parameter);
  check(sqlite3_bind_double(handle_, parameter, value));
}

void Statement::bindText(int parameter, std::string_view utf8) {
  check(sqlite3_bind_text64(handle_, parameter, utf8.data() == nullptr ? kNothing : utf8.data(),
                            utf8.size(), SQLITE_STATIC, SQLITE_UTF8));
}

void Statement::bindBlob(int parameter, std::span<const std::byte> bytes) {
  const void* data =
      bytes.data() == nullptr ? static_cast<const void*>(kNothing) : bytes.data();
  check(sqlite3_bind_blob64(handle_, parameter, data, bytes.size(), SQLITE_STATIC));
}

void Statement::bindZeroBlob(int parameter, std::uint64_t byteCount) {
  check(sqlite3_bind_zeroblob64(handle_, parameter, byteCount));
}

bool Statement::step() {
  return database_->impl_->step(handle_, entry_->writes, holdsWriteLock_);
}

long long Statement::run() {
  sqlite3* connection = database_->impl_->connection.handle();
  const sqlite3_int64 before = connection == nullptr ? 0 : sqlite3_total_changes64(connection);
  while (step()) {
  }
  return sqlite3_total_changes64(connection) - before;
}

void Statement::reset() {
  Database::Impl& impl = *database_->impl_;
  const EngineGate::Scope gate(impl.connection.gate());
  impl.refuseUnlessUsable("reset");
  const int code = sqlite3_reset(handle_);
  impl.endTurn(holdsWriteLock_);
  check(code);
}

bool Statement::isNull(int column) const {
  return sqlite3_column_type(handle_, column) == SQLITE_NULL;
}

long long Statement::int64(int column) const {
  return sqlite3_column_int64(handle_, column);
}

double Statement::real(int column) const {
  return isNull(column) ? std::numeric_limits<double>::quiet_NaN()
                        : sqlite3_column_double(handle_, column);
}

std::string_view Statement::text(int column) const {
  const auto* data = reinterpret_cast<const char*>(sqlite3_column_text(handle_, column));
  if (data == nullptr) return {};
  return {data, static_cast<std::size_t>(sqlite3_column_bytes(handle_, column))};
}

std::span<const std::byte> Statement::blob(int column) const {
  const auto* data = static_cast<const std::byte*>(sqlite3_column_blob(handle_, column));
  if (data == nullptr) return {};
  return {data, static_cast<std::size_t>(sqlite3_column_bytes(handle_, column))};
}

void Statement::check(int code) const {
  if (code == SQLITE_OK) return;
  Database::Impl& impl = *database_->impl_;
  impl.fail(impl.connection.failure(code), impl.describe(handle_));
}

}  // namespace sqldb
