// One opening of a repository: what all handles to its objects share.
#pragma once

#include <boost/function.hpp>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kodd/datamodelrepository.h"
#include "kodd/idallocator.h"
#include "kodd/layout.h"
#include "kodd/metamodel.h"
#include "kodiag/diagnostics.h"
#include "sqldb/database.h"

namespace kodd {

/// Something that keeps a statement or blob open between calls. It is told to let go before
/// the unit it was opened in ends, before any unit begins or ends when it writes (the engine
/// does neither under an open writer), when any unit is undone, and before the file is closed.
class Pin {
 public:
  virtual ~Pin() = default;
  Pin(const Pin&) = delete;
  Pin& operator=(const Pin&) = delete;

  /// Called with the session's mutex held.
  virtual void letGo() noexcept = 0;

 protected:
  explicit Pin(std::shared_ptr<Session> session) : session_(std::move(session)) {}

  /// Registers this pin with the level that is open now; needs the session's mutex.
  void hold(bool writes);
  void release() noexcept;
  const std::shared_ptr<Session>& session() const { return session_; }

 private:
  friend class Session;
  std::shared_ptr<Session> session_;
  int level_ = -1;  ///< depth it was opened at; -1 when not registered
  bool writes_ = false;
};

enum class UnitKind { single, explicitTransaction, dictionary, readFunction, readScope };

/// What a repository keeps from one opening to the next.
struct RepositoryHooks {
  boost::function<void(int level)> rollbackListener;
  sqldb::Database::TraceCallback trace;
  sqldb::Database::ProfileCallback profile;
};

/// Every opening is a session of its own, so that handles of an earlier one are told apart by
/// identity. The members below open() need the mutex held and throw.
class Session final : private sqldb::LevelListener {
 public:
  explicit Session(RepositoryHooks hooks = {}) : hooks_(std::move(hooks)) {}
  ~Session() override;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  std::recursive_mutex& mutex() const { return mutex_; }

  void open(const std::string& file, const std::string& schemaFile,
            const DataModelRepository::Options& options);
  void close() noexcept;
  bool isOpen() const { return static_cast<bool>(database_); }
  const std::string& location() const { return location_; }
  /// Keeps why the repository is not open, for every later use.
  void rememberFailure(const kodiag::util::diagnostics& failure) {
    openFailure_ = failure.messages();
  }

  /// The database for an operation of the repository. \throws "RepositoryNotOpen"
  sqldb::Database& database(std::string_view operation) {
    if (!database_) [[unlikely]] {
      raiseNotOpen(operation);
    }
    return *database_;
  }
  sqldb::Database* databaseIfOpen() { return database_.get(); }
  /// The database for an operation on a handle. \throws "InvalidObject" when it is stale
  sqldb::Database& databaseOf(int objectID) {
    if (!database_) [[unlikely]] {
      raiseStale(objectID);
    }
    return *database_;
  }
  const Layout& layout() const { return *layout_; }
  IdAllocator& ids() { return *ids_; }

  /// Inserts one object: takes an ID, reserving a block for it when needed, and runs `insert`
  /// with it. Nothing is used up when that fails.
  template <class Insert>
  int create(const ClassInfo& cls, Insert&& insert);
  bool exists(const ClassInfo& cls, int id);

  void begin(sqldb::Database::Access access, UnitKind kind, std::string_view operation);
  /// Ends the innermost unit; when this fails it is undone and ended all the same.
  void commit();
  void rollback() noexcept;
  bool isInside(UnitKind kind) const;
  /// Kind of the innermost unit; none when none is open.
  std::optional<UnitKind> innermost() const;

  unsigned long long enterReadScope();
  void leaveReadScope(unsigned long long ticket) noexcept;
  /// Ends the unit of read scopes that are open now; they then keep nothing.
  void endReadScopes();

  RepositoryHooks& hooks() { return hooks_; }
  void installHooks();

 private:
  friend class Pin;

  struct Level {
    UnitKind kind;
    std::size_t reservations;
  };

  void levelOpened() override;
  void levelCommitted() override;
  void levelRolledBack() override;
  /// The pins of that level and deeper ones, and all that write.
  void letGoOf(int fromLevel) noexcept;
  void letGoOfWriters() noexcept;
  [[noreturn]] void raiseNotOpen(std::string_view operation) const;
  [[noreturn]] void raiseStale(int objectID) const;

  mutable std::recursive_mutex mutex_;
  RepositoryHooks hooks_;
  std::string location_;
  std::vector<kodiag::Message> openFailure_;
  std::unique_ptr<sqldb::Database> database_;
  std::shared_ptr<const Layout> layout_;
  std::optional<IdAllocator> ids_;
  std::vector<Level> levels_;
  UnitKind opening_ = UnitKind::single;  ///< kind of the level about to be opened
  std::vector<Pin*> pins_;
  unsigned long long readTicket_ = 0;
  int readScopes_ = 0;  ///< scopes that share the present read unit
};

/// A unit of the store's own for one operation of several statements: undone unless committed.
class OperationUnit {
 public:
  OperationUnit(Session& session, std::string_view operation) : session_(session) {
    session_.begin(sqldb::Database::Access::write, UnitKind::single, operation);
  }
  ~OperationUnit() {
    if (open_) session_.rollback();
  }
  OperationUnit(const OperationUnit&) = delete;
  OperationUnit& operator=(const OperationUnit&) = delete;

  void commit() {
    open_ = false;
    session_.commit();
  }

 private:
  Session& session_;
  bool open_ = true;
};

template <class Insert>
int Session::create(const ClassInfo& cls, Insert&& insert) {
  const auto insertNext = [&] {
    const int id = ids_->next(cls);
    insert(id);
    ids_->take(cls);
    return id;
  };
  if (ids_->hasFree(cls)) return insertNext();
  OperationUnit unit(*this, "create an object");
  ids_->reserve(cls);
  const int id = insertNext();
  unit.commit();
  return id;
}

/// Adds what is being thrown right now to the diagnostics: a message with its causes, or an
/// internal error standing for a foreign exception. Lets a thread's forced end pass.
void reportException(std::string_view operation, kodiag::util::diagnostics& diag);

/// Runs one operation of the store under the session's mutex; what it throws is left in the
/// diagnostics. \returns whether it succeeded
template <class Body>
bool perform(const Session& session, std::string_view operation,
             kodiag::util::diagnostics& diag, Body&& body) {
  const std::scoped_lock lock(session.mutex());
  try {
    body();
    return true;
  } catch (...) {
    reportException(operation, diag);
    return false;
  }
}

[[noreturn]] void raiseInvalidObject(const std::string& operand, const std::string& reason);

}  // namespace kodd
