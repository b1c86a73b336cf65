// The hooks that show every statement as it runs.
#pragma once

#include <chrono>
#include <unordered_map>

#include "sqldb/connection.h"

struct sqlite3_stmt;

namespace sqldb {

/// Tells the text of every statement when it starts, and its time when it has ended: the time
/// spent in the engine, not that between two rows of a query. Statements of the connection
/// itself (transactions, settings) are told too.
class Tracing {
 public:
  explicit Tracing(Connection& connection) : connection_(connection) {}
  Tracing(const Tracing&) = delete;
  Tracing& operator=(const Tracing&) = delete;

  void setTrace(Database::TraceCallback callback);
  void setProfile(Database::ProfileCallback callback);

  /// One step of a statement; the time of its life counts.
  class Step {
   public:
    Step(Tracing& tracing, sqlite3_stmt* statement);
    ~Step();
    Step(const Step&) = delete;
    Step& operator=(const Step&) = delete;

   private:
    Tracing* tracing_;  ///< null when no times are wanted
    sqlite3_stmt* statement_;
  };

 private:
  using Clock = std::chrono::steady_clock;

  struct Time {
    Clock::duration spent{};
    Clock::time_point since{};  ///< start of the step that is running
    bool isRunning = false;
  };

  static int forward(unsigned event, void* tracing, void* statement, void* detail);
  void install();
  void start(const void* statement);
  void pause(const void* statement);
  std::uint64_t takeNanoseconds(const void* statement);

  Connection& connection_;
  Database::TraceCallback trace_;
  Database::ProfileCallback profile_;
  std::unordered_map<const void*, Time> times_;
};

}  // namespace sqldb
