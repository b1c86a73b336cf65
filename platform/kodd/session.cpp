#include "kodd/session.h"

#include <cxxabi.h>

#include <algorithm>
#include <cassert>
#include <limits>
#include <new>
#include <utility>

#include "host/interrupt.h"
#include "kodd/schemastore.h"
#include "kodiag/message.h"
#include "sqldb/processstate.h"

namespace kodd {

namespace {

/// How long a wait for another thread goes on before the host is asked whether it should.
constexpr std::chrono::milliseconds kBetweenPolls{20};

/// The innermost use of a session by this thread.
thread_local SessionUse* currentUse = nullptr;

/// The sessions in which this thread may have left units open: undone when it ends.
class UnitsOfThread {
 public:
  ~UnitsOfThread() {
    for (const std::weak_ptr<Session>& each : sessions_) {
      if (const std::shared_ptr<Session> session = each.lock()) session->abandonThread();
    }
  }
  void note(const std::weak_ptr<Session>& session) {
    const auto isSame = [&](const std::weak_ptr<Session>& each) {
      return !each.owner_before(session) && !session.owner_before(each);
    };
    if (std::ranges::any_of(sessions_, isSame)) return;
    std::erase_if(sessions_, [](const std::weak_ptr<Session>& each) { return each.expired(); });
    sessions_.push_back(session);
  }

 private:
  std::vector<std::weak_ptr<Session>> sessions_;
};
thread_local UnitsOfThread unitsOfThread;

}  // namespace

void Pin::hold(bool writes) {
  if (level_ >= 0) release();
  link_ = &session_->link();
  link_->pins.push_back(this);
  level_ = static_cast<int>(link_->levels.size());
  writes_ = writes;
}

void Pin::release() noexcept {
  if (level_ < 0) return;
  std::erase(link_->pins, this);
  level_ = -1;
}

std::optional<UnitKind> SessionLink::innermost() const {
  if (levels.empty()) return std::nullopt;
  return levels.back().kind;
}

void SessionLink::levelOpened() {
  letGoOfWriters();
  const bool writes = database->isWriting();
  const bool startsWriting = writes && !isWriting;
  isWriting = writes;
  levels.push_back({opening, writes ? session->ids().mark() : 0, startsWriting});
}

void SessionLink::levelCommitted() {
  const Level ended = levels.back();
  levels.pop_back();
  if (!ended.startsWriting) return;
  isWriting = false;
  session->ids().committed();
}

void SessionLink::levelRolledBack() {
  letGoOf(0);
  const int level = static_cast<int>(levels.size());
  const Level ended = levels.back();
  if (isWriting) session->ids().rolledBack(ended.reservations);
  if (ended.startsWriting) isWriting = false;
  levels.pop_back();
  if (!session->hooks().rollbackListener) return;
  try {
    session->hooks().rollbackListener(level);
  } catch (...) {
    // A listener cannot undo a rollback that has happened.
  }
}

void SessionLink::letGoOf(int fromLevel) noexcept {
  std::erase_if(pins, [fromLevel](Pin* pin) {
    if (pin->level_ < fromLevel && !pin->writes_) return false;
    pin->level_ = -1;
    pin->letGo();
    return true;
  });
}

void SessionLink::letGoOfWriters() noexcept {
  letGoOf(std::numeric_limits<int>::max());
}

SessionUse::SessionUse(Session& session, sqldb::Database::Access access,
                       std::string_view operation)
    : session_(session), outer_(currentUse) {
  if (SessionUse* const within = of(session)) {
    link_ = within->link_;
  } else if (session.isOpen()) {
    session.refuseInChild(operation);
    if (access == sqldb::Database::Access::write) {
      const SessionLink* own = session.linkOfThread();
      if (own == nullptr || !own->isWriting) turn_ = session.takeTurn(operation);
    }
    try {
      link_ = &session.lend(access, operation);
    } catch (...) {
      if (turn_) turn_->releaseWrite();
      throw;
    }
    isLent_ = true;
  }
  currentUse = this;
}

SessionUse::SessionUse(Session& session, SessionLink& link)
    : session_(session), outer_(currentUse) {
  if (!session.isForked()) enter(link);
}

SessionUse::SessionUse(const Pin& pin) : session_(*pin.session_), outer_(currentUse) {
  if (pin.link_ == nullptr || session_.isForked()) return;
  const sqldb::EngineGate::Scope gate(*pin.link_->gate);
  if (pin.level_ >= 0) enter(*pin.link_);
}

void SessionUse::enter(SessionLink& link) {
  link.gate->enter();
  ++link.calls;
  link_ = &link;
  isLent_ = true;
  currentUse = this;
}

SessionUse::~SessionUse() {
  currentUse = outer_;
  if (isLent_) session_.leave(*link_);
  if (turn_) turn_->releaseWrite();
}

SessionUse* SessionUse::of(const Session& session) {
  for (SessionUse* use = currentUse; use != nullptr; use = use->outer_) {
    if (&use->session_ == &session) return use;
  }
  return nullptr;
}

Session::Session(RepositoryHooks hooks) : hooks_(std::move(hooks)) {
  for (SessionLink& each : links_) each.session = this;
}

Session::~Session() {
  close();
}

void Session::open(const std::string& file, const std::string& schemaFile,
                   const DataModelRepository::Options& options) {
  location_ = file;
  const Metamodel& model = Metamodel::load(schemaFile);
  sqldb::OpenOptions databaseOptions;
  databaseOptions.applicationId = kApplicationId;
  databaseOptions.durability = options.durability;
  databaseOptions.busyTimeout = options.busyTimeout;
  databaseOptions.createIfAbsent = options.createIfAbsent;
  databaseOptions.access = options.access;
  databaseOptions.followLink = options.followLink;
  auto database = std::make_unique<sqldb::Database>(file, databaseOptions);
  database->setTraceCallback(hooks_.trace);
  database->setProfileCallback(hooks_.profile);
  layout_ = prepareSchema(*database, model, schemaFile);
  ids_.emplace([this]() -> sqldb::Database& { return this->database("give an ID"); }, *layout_);
  busyTimeout_ = options.busyTimeout;
  forkGeneration_ = sqldb::forkGeneration();
  isReadOnly_ = options.access == sqldb::FileAccess::read;
  allowsSeveral_ = database->allowsSeveral();
  lock_ = database->lock();
  SessionLink& main = links_.front();
  main.gate = database->gate();
  database->setLevelListener(&main);
  main.database = std::move(database);
  isOpen_.store(true, std::memory_order_release);
}

void Session::close() noexcept {
  if (!isOpen()) return;
  {
    // A child of a fork is alone, and may have inherited the mutex locked.
    std::unique_lock guard(mutex_, std::defer_lock);
    if (!isForked()) guard.lock();
    isOpen_.store(false, std::memory_order_release);
    lock_.reset();
  }
  // The main connection last: it writes the log into the file.
  for (std::size_t i = kMost; i-- > 0;) closeLink(links_[i]);
}

void Session::closeLink(SessionLink& link) noexcept {
  if (!link.gate) return;
  std::unique_ptr<sqldb::Database> closing;
  {
    const sqldb::EngineGate::Scope gate(*link.gate);
    if (!link.database) return;
    link.letGoOf(0);
    while (link.database->depth() > 0) link.database->rollbackUnit();
    link.database->setLevelListener(nullptr);
    link.levels.clear();
    link.isWriting = false;
    link.readScopes = 0;
    closing = std::move(link.database);
  }
}

sqldb::Database* Session::mainDatabase() {
  return isOpen() ? links_.front().database.get() : nullptr;
}

bool Session::isForked() const {
  return forkGeneration_ != sqldb::forkGeneration();
}

void Session::refuseInChild(std::string_view operation) const {
  if (!isForked()) return;
  kodiag::raise({"KODD:kodd", "ForkedProcess"},
                {{"Operation", std::string(operation)}, {"Location", location_}});
}

std::shared_ptr<sqldb::RepositoryLock> Session::lockIfOpen() {
  const std::lock_guard guard(mutex_);
  return lock_;
}

std::shared_ptr<sqldb::RepositoryLock> Session::takeTurn(std::string_view operation) {
  if (isReadOnly_) return nullptr;
  std::shared_ptr<sqldb::RepositoryLock> lock = lockIfOpen();
  if (lock) lock->acquireWrite(operation, busyTimeout_);
  return lock;
}

SessionLink* Session::linkOfThread() const {
  const std::thread::id self = std::this_thread::get_id();
  if (links_.front().owner.load(std::memory_order_relaxed) == self) return &links_.front();
  if (lentFromPool_.load(std::memory_order_relaxed) == 0) return nullptr;
  for (SessionLink& each : links_) {
    if (each.owner.load(std::memory_order_relaxed) == self) return &each;
  }
  return nullptr;
}

bool Session::tryLend(SessionLink& link) {
  std::thread::id none;
  if (!link.owner.compare_exchange_strong(none, std::this_thread::get_id())) return false;
  if (&link != &links_.front()) ++lentFromPool_;
  return true;
}

SessionLink& Session::lend(Access access, std::string_view operation) {
  for (;;) {
    SessionLink* link = linkOfThread();
    if (link == nullptr) {
      link = tryLend(links_.front()) ? &links_.front() : &lendFromPool(access, operation);
    }
    link->gate->enter();
    if (link->owner.load(std::memory_order_relaxed) == std::this_thread::get_id()) {
      ++link->calls;
      return *link;
    }
    // Another thread closed the scope that this one still had it for.
    link->gate->leave();
  }
}

SessionLink& Session::lendFromPool(Access access, std::string_view operation) {
  const std::size_t count =
      allowsSeveral_ ? (access == Access::read ? kMostForReading : kMost) : 1;
  const auto deadline = std::chrono::steady_clock::now() + busyTimeout_;
  SessionLink* lent = nullptr;
  std::unique_lock guard(mutex_);
  ++waiting_;
  const auto find = [&] {
    const auto end = links_.begin() + static_cast<std::ptrdiff_t>(count);
    const auto found =
        std::find_if(links_.begin(), end, [this](SessionLink& each) { return tryLend(each); });
    lent = found == end ? nullptr : &*found;
    return lent != nullptr;
  };
  bool isStopped = false;
  while (!find() && !isStopped && std::chrono::steady_clock::now() < deadline) {
    freed_.wait_for(guard, kBetweenPolls);
    isStopped = host::isInterrupted();
  }
  --waiting_;
  if (isStopped) {
    if (lent) free(*lent);
    kodiag::raise({"KODD:kodd", "Interrupted"}, {{"Operation", std::string(operation)}});
  }
  if (lent == nullptr) {
    kodiag::raise(
        {"KODD:kodd", "RepositoryBusy"},
        {{"Operation", std::string(operation)},
         {"Location", location_},
         {"Reason", "units of other threads kept all " + std::to_string(count) +
                        " connections for " + std::to_string(busyTimeout_.count()) + " ms"}});
  }
  try {
    if (!lent->gate) openLink(*lent);
  } catch (...) {
    free(*lent);
    throw;
  }
  return *lent;
}

void Session::openLink(SessionLink& link) {
  if (!isOpen()) raiseNotOpen("open another connection");
  std::unique_ptr<sqldb::Database> database = links_.front().database->openBeside();
  database->setTraceCallback(hooks_.trace);
  database->setProfileCallback(hooks_.profile);
  database->setLevelListener(&link);
  link.gate = database->gate();
  link.database = std::move(database);
}

void Session::leave(SessionLink& link) noexcept {
  --link.calls;
  const bool isFreed = link.isIdle();
  if (isFreed) free(link);
  link.gate->leave();
  if (!isFreed || waiting_.load() == 0 || isForked()) return;
  const std::lock_guard guard(mutex_);
  freed_.notify_all();
}

void Session::free(SessionLink& link) noexcept {
  if (link.owner.exchange({}) == std::thread::id()) return;
  if (&link != &links_.front()) --lentFromPool_;
}

int Session::depth() const {
  const SessionLink* own = linkOfThread();
  if (own == nullptr) return 0;
  const sqldb::EngineGate::Scope gate(*own->gate);
  return static_cast<int>(own->levels.size());
}

void Session::abandonThread() noexcept {
  SessionLink* own = linkOfThread();
  if (own == nullptr || isForked()) return;
  const SessionUse use(*this, *own);
  own->readScopes = 0;
  while (!own->levels.empty()) rollback();
}

void Session::noteUnitOfThread() {
  unitsOfThread.note(weak_from_this());
}

void Session::setRollbackListener(boost::function<void(int level)> listener) {
  const std::lock_guard guard(mutex_);
  hooks_.rollbackListener = std::move(listener);
}

void Session::setTrace(sqldb::Database::TraceCallback callback) {
  {
    const std::lock_guard guard(mutex_);
    hooks_.trace = callback;
  }
  forEachDatabase([&](sqldb::Database& each) { each.setTraceCallback(callback); });
}

void Session::setProfile(sqldb::Database::ProfileCallback callback) {
  {
    const std::lock_guard guard(mutex_);
    hooks_.profile = callback;
  }
  forEachDatabase([&](sqldb::Database& each) { each.setProfileCallback(callback); });
}

template <class Install>
void Session::forEachDatabase(Install&& install) {
  for (SessionLink& each : links_) {
    std::shared_ptr<sqldb::EngineGate> gate;
    {
      const std::lock_guard guard(mutex_);
      gate = each.gate;
    }
    if (!gate) continue;
    const sqldb::EngineGate::Scope inside(*gate);
    if (each.database) install(*each.database);
  }
}

SessionLink* Session::lentLink() const {
  const SessionUse* use = SessionUse::of(*this);
  return use == nullptr ? nullptr : use->link_;
}

sqldb::Database* Session::lentDatabase() const {
  const SessionLink* lent = lentLink();
  return lent == nullptr ? nullptr : lent->database.get();
}

bool Session::exists(const ClassInfo& cls, int id) {
  sqldb::Statement query = database("find an object").statement(layout_->of(cls).exists);
  query.bind(1, id);
  return query.step();
}

void Session::begin(Access access, UnitKind kind, std::string_view operation) {
  openLevel(kind, [&] {
    database(operation).beginUnit(access, operation);
    return true;
  });
}

bool Session::tryBegin(UnitKind kind, std::string_view operation) {
  return openLevel(kind, [&] { return database(operation).tryBeginWriting(operation); });
}

template <class Open>
bool Session::openLevel(UnitKind kind, Open&& open) {
  struct Opening {
    Opening(SessionLink& link, UnitKind kind) : on(link) { on.opening = kind; }
    ~Opening() { on.opening = UnitKind::single; }
    SessionLink& on;
  } opening(link(), kind);
  return open();
}

void Session::commit() {
  SessionLink& on = link();
  on.letGoOf(static_cast<int>(on.levels.size()));
  database("commit").commitUnit();
}

void Session::rollback() noexcept {
  SessionLink& on = link();
  on.letGoOf(0);
  if (on.database) on.database->rollbackUnit();
}

bool Session::isInside(UnitKind kind) const {
  const SessionLink* on = lentLink();
  return on != nullptr &&
         std::ranges::any_of(on->levels, [kind](const SessionLink::Level& level) {
           return level.kind == kind;
         });
}

unsigned long long Session::enterReadScope() {
  SessionLink& on = link();
  if (on.levels.empty()) {
    begin(Access::read, UnitKind::readScope, "read");
    noteUnitOfThread();
    ++on.readTicket;
    on.readScopes = 1;
    return on.readTicket;
  }
  if (on.innermost() != UnitKind::readScope) return 0;
  ++on.readScopes;
  return on.readTicket;
}

void Session::leaveReadScope(unsigned long long ticket) {
  SessionLink& on = link();
  if (ticket != on.readTicket || on.readScopes == 0 || --on.readScopes > 0) return;
  endReadScopes();
}

void Session::endReadScopes() {
  link().readScopes = 0;
  if (innermost() == UnitKind::readScope) commit();
}

void Session::raiseNotOpen(std::string_view operation) const {
  kodiag::raise({"KODD:kodd", "RepositoryNotOpen"},
                {{"Operation", std::string(operation)},
                 {"Location", location_},
                 {"Reason", openFailure_.empty() ? "" : openFailure_.front().text()}},
                openFailure_);
}

void Session::raiseStale(int objectID) const {
  raiseInvalidObject("Object " + std::to_string(objectID),
                     "the repository \"" + location_ + "\" it came from was closed");
}

void reportException(std::string_view operation, kodiag::util::diagnostics& diag) {
  kodiag::Message message;
  try {
    throw;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const kodiag::except::ExceptionWithCauses& exception) {
    message = exception.message();
  } catch (const std::bad_alloc&) {
    message.id = {"KODD:kodd", "OutOfMemory"};
    message.arguments = {{"Operation", std::string(operation)}, {"Reason", "in this process"}};
    message.original = std::current_exception();
  } catch (const std::exception& exception) {
    message.id = {"nexstore:nex", "InternalError"};
    message.arguments = {{"Operation", std::string(operation)}, {"Reason", exception.what()}};
    message.original = std::current_exception();
  } catch (...) {
    message.id = {"nexstore:nex", "InternalError"};
    message.arguments = {{"Operation", std::string(operation)},
                         {"Reason", "unknown exception"}};
    message.original = std::current_exception();
  }
  diag.add(std::move(message));
}

void raiseInvalidObject(const std::string& operand, const std::string& reason) {
  kodiag::raise({"KODD:kodd", "InvalidObject"}, {{"Operand", operand}, {"Reason", reason}});
}

}  // namespace kodd
