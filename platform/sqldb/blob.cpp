#include "sqldb/blob.h"

#include <sqlite3.h>

#include <string>
#include <utility>

#include "kodiag/message.h"
#include "sqldb/databaseimpl.h"

namespace sqldb {

// The engine counts a blob's bytes in an int; every range checked against size_ fits.

Blob::Blob(Database& database, sqlite3_blob* handle)
    : database_(&database),
      handle_(handle),
      size_(static_cast<std::uint64_t>(sqlite3_blob_bytes(handle))) {
  UseScope::add(database.impl_->uses, 1);
}

Blob::Blob(Blob&& other) noexcept
    : database_(std::exchange(other.database_, nullptr)),
      handle_(other.handle_),
      size_(other.size_) {}

Blob::~Blob() {
  if (database_ == nullptr || database_->impl_->forked) return;
  const EngineGate::Scope gate(database_->impl_->connection.gate());
  sqlite3_blob_close(handle_);
  UseScope::add(database_->impl_->uses, -1);
}

void Blob::read(std::uint64_t offset, std::span<std::byte> into) const {
  const EngineGate::Scope gate(database_->impl_->connection.gate());
  database_->impl_->refuseUnlessUsable("read blob");
  refuseBeyondEnd(offset, into.size(), "read blob");
  if (into.empty()) return;
  check(sqlite3_blob_read(handle_, into.data(), static_cast<int>(into.size()),
                          static_cast<int>(offset)),
        "read blob");
}

void Blob::write(std::uint64_t offset, std::span<const std::byte> bytes) {
  const EngineGate::Scope gate(database_->impl_->connection.gate());
  database_->impl_->refuseUnlessUsable("write blob");
  refuseBeyondEnd(offset, bytes.size(), "write blob");
  if (bytes.empty()) return;
  // A level may have been opened since the blob was.
  database_->impl_->levels.prepareWrite();
  check(sqlite3_blob_write(handle_, bytes.data(), static_cast<int>(bytes.size()),
                           static_cast<int>(offset)),
        "write blob");
}

void Blob::reopen(long long row) {
  const EngineGate::Scope gate(database_->impl_->connection.gate());
  database_->impl_->refuseUnlessUsable("reopen blob");
  check(sqlite3_blob_reopen(handle_, row), "reopen blob");
  size_ = static_cast<std::uint64_t>(sqlite3_blob_bytes(handle_));
}

void Blob::refuseBeyondEnd(std::uint64_t offset, std::uint64_t length,
                           const char* operation) const {
  // Compared this way round so that no sum of the two can overflow.
  if (offset <= size_ && length <= size_ - offset) return;
  kodiag::raise({"nexstore:nex", "InternalError"},
                {{"Operation", operation},
                 {"Reason", std::to_string(length) + " bytes at " + std::to_string(offset) +
                                " of a blob of " + std::to_string(size_)}});
}

void Blob::check(int code, const char* operation) const {
  if (code == SQLITE_OK) return;
  database_->impl_->fail(database_->impl_->connection.failure(code), operation);
}

}  // namespace sqldb
