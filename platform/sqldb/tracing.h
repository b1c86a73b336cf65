// The hooks that show every statement as it runs.
#pragma once

#include "sqldb/connection.h"

namespace sqldb {

class Tracing {
 public:
  explicit Tracing(Connection& connection) : connection_(connection) {}
  Tracing(const Tracing&) = delete;
  Tracing& operator=(const Tracing&) = delete;

  void setTrace(Database::TraceCallback callback);
  void setProfile(Database::ProfileCallback callback);

 private:
  static int forward(unsigned event, void* tracing, void* statement, void* detail);
  void install();

  Connection& connection_;
  Database::TraceCallback trace_;
  Database::ProfileCallback profile_;
};

}  // namespace sqldb
