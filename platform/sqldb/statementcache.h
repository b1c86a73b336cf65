// Prepared statements, kept by their text.
#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sqldb/connection.h"

namespace sqldb {

/// The prepared statements of one text: those that rest here, and how many are out on lease.
struct CachedStatement {
  std::string_view sql;  // the key it is found by
  bool writes = false;
  std::size_t leased = 0;
  std::vector<sqlite3_stmt*> resting;
  std::list<CachedStatement*>::iterator place;
};

/// Lends prepared statements. A text in use is prepared again for a second lease, so that a
/// loop over a result may run the same statement inside.
class StatementCache {
 public:
  explicit StatementCache(Connection& connection, std::size_t capacity = 512)
      : connection_(connection), capacity_(capacity) {}
  ~StatementCache() { clear(); }
  StatementCache(const StatementCache&) = delete;
  StatementCache& operator=(const StatementCache&) = delete;

  struct Lease {
    CachedStatement* entry;
    sqlite3_stmt* handle;
  };

  /// \throws "InternalError" for text that is not exactly one statement
  Lease lease(std::string_view sql);
  void giveBack(Lease lease) noexcept;
  /// Finalises all resting statements.
  void clear() noexcept;

  /// Number of texts known.
  std::size_t size() const { return entries_.size(); }

 private:
  struct Hash : std::hash<std::string_view> {
    using is_transparent = void;
  };
  using Entries = std::unordered_map<std::string, CachedStatement, Hash, std::equal_to<>>;

  CachedStatement& entry(std::string_view sql);
  void evictOldest();

  Connection& connection_;
  std::size_t capacity_;
  Entries entries_;
  std::list<CachedStatement*> byUse_;  // most recent first
};

}  // namespace sqldb
