// What statements of others may do on our connection.
#pragma once

#include "sqldb/connection.h"

namespace sqldb {

/// Guards the preparing of statements; asleep unless a Scope is alive.
class ForeignStatementGuard {
 public:
  ForeignStatementGuard(Connection& connection, Durability durability);
  ForeignStatementGuard(const ForeignStatementGuard&) = delete;
  ForeignStatementGuard& operator=(const ForeignStatementGuard&) = delete;

  /// While alive, statements being prepared are somebody else's.
  class Scope {
   public:
    explicit Scope(ForeignStatementGuard& guard) : guard_(guard) { guard_.awake_ = true; }
    ~Scope() { guard_.awake_ = false; }
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    ForeignStatementGuard& guard_;
  };

 private:
  static int authorize(void* guard, int action, const char* first, const char* second,
                       const char* database, const char* trigger);
  int judge(int action, const char* first, const char* second) const;
  bool mayRunPragma(const char* name, const char* value) const;

  Durability durability_;
  bool awake_ = false;
};

}  // namespace sqldb
