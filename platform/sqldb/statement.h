// A prepared statement on lease from the statement cache.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

struct sqlite3_stmt;

namespace sqldb {

class Database;
struct CachedStatement;

/// A prepared statement for the time of one use. Goes back to the cache, reset and cleared,
/// when destroyed; a result row's text and blobs are valid until the next step() or that
/// moment.
///
/// Parameters count from 1, columns from 0, as in SQL. Bound text and blobs are not copied:
/// they must live until the lease ends or reset(). Every failure throws `ExceptionWithCauses`
/// with the mapped message ID.
class Statement {
 public:
  Statement(Statement&& other) noexcept;
  Statement& operator=(Statement&&) = delete;
  ~Statement();

  void bindNull(int parameter);
  void bind(int parameter, int value);
  void bind(int parameter, long long value);
  /// NaN is bound as NULL.
  void bind(int parameter, double value);
  void bindText(int parameter, std::string_view utf8);
  void bindBlob(int parameter, std::span<const std::byte> bytes);
  void bindZeroBlob(int parameter, std::uint64_t byteCount);

  /// Runs to the next row: true when there is one. A statement that writes takes the write lock
  /// of the file for itself when no unit of work is open (see Database).
  bool step();
  /// step() until done, rows dropped. \returns the number of rows changed
  long long run();
  /// Makes the statement ready for another run; keeps the bindings.
  void reset();

  bool isNull(int column) const;
  long long int64(int column) const;
  /// NULL reads as NaN.
  double real(int column) const;
  std::string_view text(int column) const;
  std::span<const std::byte> blob(int column) const;

 private:
  friend class Database;
  Statement(Database& database, std::string_view sql);
  void check(int code) const;

  Database* database_;
  CachedStatement* entry_;
  sqlite3_stmt* handle_;
  bool holdsWriteLock_ = false;
};

}  // namespace sqldb
