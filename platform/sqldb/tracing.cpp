#include "sqldb/tracing.h"

#include <sqlite3.h>

#include <utility>

namespace sqldb {

void Tracing::setTrace(Database::TraceCallback callback) {
  trace_ = std::move(callback);
  install();
}

void Tracing::setProfile(Database::ProfileCallback callback) {
  profile_ = std::move(callback);
  install();
}

void Tracing::install() {
  const unsigned events =
      (trace_ ? SQLITE_TRACE_STMT : 0U) | (profile_ ? SQLITE_TRACE_PROFILE : 0U);
  sqlite3_trace_v2(connection_.handle(), events, events == 0 ? nullptr : forward, this);
}

int Tracing::forward(unsigned event, void* tracing, void* statement, void* detail) {
  const auto& self = *static_cast<const Tracing*>(tracing);
  const char* sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
  if (sql == nullptr) return 0;
  try {
    if (event == SQLITE_TRACE_STMT) self.trace_(sql);
    if (event == SQLITE_TRACE_PROFILE) {
      self.profile_(sql, static_cast<std::uint64_t>(*static_cast<sqlite3_int64*>(detail)));
    }
  } catch (...) {
    // The engine's C code is below: a watcher's failure must not unwind it, nor fail the
    // statement.
  }
  return 0;
}

}  // namespace sqldb
