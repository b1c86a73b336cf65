// One stored blob, read and written in place without loading it whole.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

struct sqlite3_blob;

namespace sqldb {

class Database;

/// A blob of one row, opened for reading or for writing in place; its length is fixed while
/// open. Pins the transaction it was opened in: keep it for one operation only. Every failure
/// throws with the mapped message ID. Offsets and lengths are bytes; a range beyond the end is
/// refused.
class Blob {
 public:
  Blob(Blob&& other) noexcept;
  Blob& operator=(Blob&&) = delete;
  ~Blob();

  /// Length of the blob in bytes, fixed when the handle was opened.
  std::uint64_t size() const { return size_; }
  void read(std::uint64_t offset, std::span<std::byte> into) const;
  void write(std::uint64_t offset, std::span<const std::byte> bytes);
  /// Points this handle at the same column of another row; cheaper than opening again.
  void reopen(long long row);

 private:
  friend class Database;
  Blob(Database& database, sqlite3_blob* handle);
  void refuseBeyondEnd(std::uint64_t offset, std::uint64_t length, const char* operation) const;
  void check(int code, const char* operation) const;

  Database* database_;
  sqlite3_blob* handle_;
  std::uint64_t size_;
};

}  // namespace sqldb
