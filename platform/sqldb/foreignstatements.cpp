#include "sqldb/foreignstatements.h"

#include <sqlite3.h>
#include <strings.h>

#include <algorithm>
#include <iterator>

namespace sqldb {
namespace {

template <std::size_t N>
bool contains(const char* const (&names)[N], const char* name) {
  return std::any_of(std::begin(names), std::end(names),
                     [&](const char* each) { return strcasecmp(each, name) == 0; });
}

/// Pragmas that may be given a value: they ask about something, or concern this connection
/// alone.
constexpr const char* kHarmlessWithValue[] = {
    "temp_store", "cache_size",  "table_info",       "table_xinfo",     "index_list",
    "index_info", "index_xinfo", "foreign_key_list", "integrity_check", "quick_check"};

/// Pragmas that act without a value.
constexpr const char* kActing[] = {"wal_checkpoint", "incremental_vacuum", "optimize"};

}  // namespace

ForeignStatementGuard::ForeignStatementGuard(Connection& connection, Durability durability)
    : durability_(durability) {
  // Installed once: every installation makes the engine prepare all statements anew.
  sqlite3_set_authorizer(connection.handle(), authorize, this);
}

int ForeignStatementGuard::authorize(void* guard, int action, const char* first,
                                     const char* second, const char*, const char*) {
  const auto& self = *static_cast<const ForeignStatementGuard*>(guard);
  return self.awake_ ? self.judge(action, first, second) : SQLITE_OK;
}

int ForeignStatementGuard::judge(int action, const char* first, const char* second) const {
  switch (action) {
    case SQLITE_PRAGMA:
      // Ignoring makes the statement do nothing, without an error.
      return mayRunPragma(first, second) ? SQLITE_OK : SQLITE_IGNORE;
    case SQLITE_ATTACH:
    case SQLITE_DETACH:
    case SQLITE_TRANSACTION:
    case SQLITE_SAVEPOINT:
      return SQLITE_DENY;
    case SQLITE_FUNCTION:
      return strcasecmp(second, "load_extension") == 0 ? SQLITE_DENY : SQLITE_OK;
    default:
      return SQLITE_OK;
  }
}

bool ForeignStatementGuard::mayRunPragma(const char* name, const char* value) const {
  if (value == nullptr) return !contains(kActing, name);
  if (strcasecmp(name, "synchronous") == 0) return durability_ == Durability::fast;
  return contains(kHarmlessWithValue, name);
}

}  // namespace sqldb
