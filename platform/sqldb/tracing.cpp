#include "sqldb/tracing.h"

#include <sqlite3.h>

#include <utility>

namespace sqldb {

Tracing::Step::Step(Tracing& tracing, sqlite3_stmt* statement)
    : tracing_(tracing.profile_ ? &tracing : nullptr), statement_(statement) {
  if (tracing_) tracing_->start(statement_);
}

Tracing::Step::~Step() {
  if (tracing_) tracing_->pause(statement_);
}

void Tracing::setTrace(Database::TraceCallback callback) {
  trace_ = std::move(callback);
  install();
}

void Tracing::setProfile(Database::ProfileCallback callback) {
  profile_ = std::move(callback);
  times_.clear();
  install();
}

void Tracing::install() {
  unsigned events = trace_ ? SQLITE_TRACE_STMT : 0U;
  if (profile_) events |= SQLITE_TRACE_STMT | SQLITE_TRACE_PROFILE;
  sqlite3_trace_v2(connection_.handle(), events, events == 0 ? nullptr : forward, this);
}

void Tracing::start(const void* statement) {
  Time& time = times_[statement];
  if (time.isRunning) return;
  time.isRunning = true;
  time.since = Clock::now();
}

void Tracing::pause(const void* statement) {
  const auto place = times_.find(statement);
  // Told and forgotten when it ended within this step.
  if (place == times_.end() || !place->second.isRunning) return;
  place->second.spent += Clock::now() - place->second.since;
  place->second.isRunning = false;
}

std::uint64_t Tracing::takeNanoseconds(const void* statement) {
  pause(statement);
  const Clock::duration spent = times_[statement].spent;
  times_.erase(statement);
  return static_cast<std::uint64_t>(std::chrono::nanoseconds(spent).count());
}

// The engine's own times have the grain of a millisecond.
int Tracing::forward(unsigned event, void* tracing, void* statement, void*) {
  auto& self = *static_cast<Tracing*>(tracing);
  const char* sql = sqlite3_sql(static_cast<sqlite3_stmt*>(statement));
  if (sql == nullptr) return 0;
  try {
    if (event == SQLITE_TRACE_STMT) {
      if (self.profile_) self.start(statement);
      if (self.trace_) self.trace_(sql);
    }
    if (event == SQLITE_TRACE_PROFILE) self.profile_(sql, self.takeNanoseconds(statement));
  } catch (...) {
    // The engine's C code is below: a watcher's failure must not unwind it, nor fail the
    // statement.
  }
  return 0;
}

}  // namespace sqldb
