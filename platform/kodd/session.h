// One opening of a repository: what all handles to its objects share, and the connections its
// threads work with.
#pragma once

#include <array>
#include <atomic>
#include <boost/function.hpp>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "kodd/datamodelrepository.h"
#include "kodd/idallocator.h"
#include "kodd/layout.h"
#include "kodd/metamodel.h"
#include "kodiag/diagnostics.h"
#include "sqldb/database.h"
#include "sqldb/enginegate.h"
#include "sqldb/repositorylock.h"

namespace kodd {

struct SessionLink;

/// Something that keeps a statement or blob open between calls, and with it the connection it
/// was opened on. It is told to let go before the unit it was opened in ends, before any unit
/// begins or ends when it writes (the engine does neither under an open writer), when any unit
/// is undone, and before the file is closed.
class Pin {
 public:
  virtual ~Pin() = default;
  Pin(const Pin&) = delete;
  Pin& operator=(const Pin&) = delete;

  /// Called by whoever uses the connection.
  virtual void letGo() noexcept = 0;

 protected:
  explicit Pin(std::shared_ptr<Session> session) : session_(std::move(session)) {}

  /// Registers this pin with the connection in use and the level that is open on it now.
  void hold(bool writes);
  /// Needs the connection it was registered with in use.
  void release() noexcept;
  const std::shared_ptr<Session>& session() const { return session_; }

 private:
  friend class Session;
  friend class SessionUse;
  friend struct SessionLink;
  std::shared_ptr<Session> session_;
  SessionLink* link_ = nullptr;  ///< the one it was last registered with
  int level_ = -1;               ///< depth it was opened at; -1 when not registered
  bool writes_ = false;
};

enum class UnitKind { single, explicitTransaction, dictionary, readFunction, readScope };

/// What a repository keeps from one opening to the next.
struct RepositoryHooks {
  boost::function<void(int level)> rollbackListener;
  sqldb::Database::TraceCallback trace;
  sqldb::Database::ProfileCallback profile;
};

/// One connection of a session, with the units and pins that live on it.
///
/// It is lent to one thread as long as that thread has a call, a unit or a pin on it. Another
/// thread that closes the thread's read scope, or uses its pin, comes in between two calls. The
/// members below the owner belong to whoever is inside the gate.
struct SessionLink final : sqldb::LevelListener {
  struct Level {
    UnitKind kind;
    std::size_t reservations;  ///< the allocator's mark; of levels that write
    bool startsWriting;
  };

  void levelOpened() override;
  void levelCommitted() override;
  void levelRolledBack() override;
  /// The pins of that level and deeper ones, and all that write.
  void letGoOf(int fromLevel) noexcept;
  void letGoOfWriters() noexcept;
  bool isIdle() const { return calls == 0 && levels.empty() && pins.empty(); }
  std::optional<UnitKind> innermost() const;

  Session* session = nullptr;
  std::shared_ptr<sqldb::EngineGate> gate;
  std::atomic<std::thread::id> owner{};  ///< none when it may be lent

  std::unique_ptr<sqldb::Database> database;  ///< null before the first use and once closed
  int calls = 0;
  std::vector<Level> levels;
  std::atomic<bool> isWriting{false};
  UnitKind opening = UnitKind::single;  ///< kind of the level about to be opened
  std::vector<Pin*> pins;
  unsigned long long readTicket = 0;
  int readScopes = 0;  ///< scopes that share the present read unit
};

/// Every opening is a session of its own, so that handles of an earlier one are told apart by
/// identity.
///
/// Threads: any number. Each works through SessionUse (see perform()), which lends it a
/// connection: the one its unit lives on, else the main one, else one of a small pool. A unit
/// belongs to the thread that began it. The members below open() need a SessionUse of this
/// thread and throw.
class Session final : public std::enable_shared_from_this<Session> {
 public:
  using Access = sqldb::Database::Access;

  explicit Session(RepositoryHooks hooks = {});
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void open(const std::string& file, const std::string& schemaFile,
            const DataModelRepository::Options& options);
  /// Undoes the units of every thread; their next calls find the handles dead. Waits for calls
  /// under way, not for units.
  void close() noexcept;
  bool isOpen() const { return isOpen_.load(std::memory_order_acquire); }
  /// \throws "RepositoryNotOpen"
  void requireOpen(std::string_view operation) const {
    if (!isOpen()) raiseNotOpen(operation);
  }
  const std::string& location() const { return location_; }
  /// Keeps why the repository is not open, for every later use.
  void rememberFailure(const kodiag::util::diagnostics& failure) {
    openFailure_ = failure.messages();
  }
  /// The main connection, for what concerns the file as a whole; null when not open.
  sqldb::Database* mainDatabase();

  /// The turn to write for this thread, around units; nested turns count. Given back by
  /// releaseWrite(). \returns nothing when the session is not open, or open only for reading
  /// \throws "RepositoryBusy"
  std::shared_ptr<sqldb::RepositoryLock> takeTurn(std::string_view operation);

  /// Number of open units of this thread.
  int depth() const;
  /// To be called when this thread has begun a unit that a call leaves open.
  void noteUnitOfThread();
  /// Undoes the units of this thread, which is about to end.
  void abandonThread() noexcept;

  void setRollbackListener(boost::function<void(int level)> listener);
  void setTrace(sqldb::Database::TraceCallback callback);
  void setProfile(sqldb::Database::ProfileCallback callback);
  const RepositoryHooks& hooks() const { return hooks_; }

  /// The database for an operation of the repository. \throws "RepositoryNotOpen"
  sqldb::Database& database(std::string_view operation) {
    sqldb::Database* const lent = lentDatabase();
    if (!lent) [[unlikely]] {
      raiseNotOpen(operation);
    }
    return *lent;
  }
  /// The database for an operation on a handle. \throws "InvalidObject" when it is stale
  sqldb::Database& databaseOf(int objectID) {
    sqldb::Database* const lent = lentDatabase();
    if (!lent) [[unlikely]] {
      raiseStale(objectID);
    }
    return *lent;
  }
  const Layout& layout() const { return *layout_; }
  IdAllocator& ids() { return *ids_; }

  /// Inserts one object: takes an ID, reserving a block for it when needed, and runs `insert`
  /// with it. Nothing is used up when that fails. Needs the turn to write.
  template <class Insert>
  int create(const ClassInfo& cls, Insert&& insert);
  bool exists(const ClassInfo& cls, int id);

  void begin(Access access, UnitKind kind, std::string_view operation);
  /// A unit that writes what has been read in the reading ones below it, unless somebody else
  /// is writing now. \returns whether it was begun
  bool tryBegin(UnitKind kind, std::string_view operation);
  /// Ends the innermost unit; when this fails it is undone and ended all the same.
  void commit();
  void rollback() noexcept;
  bool isInside(UnitKind kind) const;
  bool isWriting() const { return link().isWriting; }
  /// Kind of the innermost unit; none when none is open.
  std::optional<UnitKind> innermost() const { return link().innermost(); }

  unsigned long long enterReadScope();
  void leaveReadScope(unsigned long long ticket);
  /// Ends the unit of read scopes that are open now; they then keep nothing.
  void endReadScopes();

  /// The connection this thread uses now.
  SessionLink& link() const { return *lentLink(); }

  /// Whether this process is the child of a fork made since the opening.
  bool isForked() const;

 private:
  friend class SessionUse;
  friend struct SessionLink;

  /// Reading threads share the main connection and four more; with all of them taken by readers
  /// there is one more for the thread that writes.
  static constexpr std::size_t kMost = 6;
  static constexpr std::size_t kMostForReading = 5;

  void refuseInChild(std::string_view operation) const;
  std::shared_ptr<sqldb::RepositoryLock> lockIfOpen();

  template <class Open>
  bool openLevel(UnitKind kind, Open&& open);
  SessionLink* lentLink() const;
  sqldb::Database* lentDatabase() const;
  /// The connection that this thread has a unit, a pin or a call on.
  SessionLink* linkOfThread() const;
  /// A connection for this thread, with the gate entered and the call counted.
  SessionLink& lend(Access access, std::string_view operation);
  SessionLink& lendFromPool(Access access, std::string_view operation);
  bool tryLend(SessionLink& link);
  void openLink(SessionLink& link);
  /// Ends a call.
  void leave(SessionLink& link) noexcept;
  void free(SessionLink& link) noexcept;
  void closeLink(SessionLink& link) noexcept;
  template <class Install>
  void forEachDatabase(Install&& install);
  [[noreturn]] void raiseNotOpen(std::string_view operation) const;
  [[noreturn]] void raiseStale(int objectID) const;

  std::string location_;
  std::vector<kodiag::Message> openFailure_;
  std::chrono::milliseconds busyTimeout_{};
  unsigned forkGeneration_ = 0;
  std::shared_ptr<const Layout> layout_;
  std::optional<IdAllocator> ids_;
  bool allowsSeveral_ = false;
  bool isReadOnly_ = false;
  std::atomic<bool> isOpen_{false};

  mutable std::array<SessionLink, kMost> links_;  ///< the first one is the main connection
  std::atomic<int> lentFromPool_{0};
  std::atomic<int> waiting_{0};
  std::mutex mutex_;  ///< guards what follows, the opening of connections and the wait for one
  std::condition_variable freed_;
  RepositoryHooks hooks_;
  std::shared_ptr<sqldb::RepositoryLock> lock_;
};

/// A connection lent to this thread for one call; none when the session is not open. Inside
/// another use of the session by this thread it is the same connection.
class SessionUse {
 public:
  /// Writing takes the turn to write as well. \throws "RepositoryBusy", "ForkedProcess"
  SessionUse(Session& session, sqldb::Database::Access access, std::string_view operation);
  /// The connection of a read scope or a thread that ends.
  SessionUse(Session& session, SessionLink& link);
  /// The connection of a pin, whichever thread it is lent to; none when the pin has been told
  /// to let go, so that a use inside this one has a connection lent.
  explicit SessionUse(const Pin& pin);
  ~SessionUse();
  SessionUse(const SessionUse&) = delete;
  SessionUse& operator=(const SessionUse&) = delete;

 private:
  friend class Session;
  /// The innermost use of the session by this thread.
  static SessionUse* of(const Session& session);
  void enter(SessionLink& link);

  Session& session_;
  SessionUse* outer_;
  SessionLink* link_ = nullptr;
  bool isLent_ = false;
  std::shared_ptr<sqldb::RepositoryLock> turn_;
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

/// Runs one operation of the store on a connection lent to this thread; what it throws is left
/// in the diagnostics. \returns whether it succeeded
template <class Body>
bool perform(Session& session, sqldb::Database::Access access, std::string_view operation,
             kodiag::util::diagnostics& diag, Body&& body) {
  try {
    const SessionUse use(session, access, operation);
    body();
    return true;
  } catch (...) {
    reportException(operation, diag);
    return false;
  }
}

template <class Body>
bool performRead(Session& session, std::string_view operation, kodiag::util::diagnostics& diag,
                 Body&& body) {
  return perform(session, sqldb::Database::Access::read, operation, diag,
                 std::forward<Body>(body));
}

template <class Body>
bool performWrite(Session& session, std::string_view operation, kodiag::util::diagnostics& diag,
                  Body&& body) {
  return perform(session, sqldb::Database::Access::write, operation, diag,
                 std::forward<Body>(body));
}

[[noreturn]] void raiseInvalidObject(const std::string& operand, const std::string& reason);

}  // namespace kodd
