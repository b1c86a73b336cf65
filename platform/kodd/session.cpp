#include "kodd/session.h"

#include <cxxabi.h>

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "kodd/schemastore.h"
#include "kodiag/message.h"

namespace kodd {

void Pin::hold(bool writes) {
  if (level_ < 0) session_->pins_.push_back(this);
  level_ = static_cast<int>(session_->levels_.size());
  writes_ = writes;
}

void Pin::release() noexcept {
  if (level_ < 0) return;
  std::erase(session_->pins_, this);
  level_ = -1;
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
  database_ = std::make_unique<sqldb::Database>(file, databaseOptions);
  try {
    installHooks();
    layout_ = prepareSchema(*database_, model, schemaFile);
    ids_.emplace(*database_, *layout_);
  } catch (...) {
    database_.reset();
    throw;
  }
  database_->setLevelListener(this);
}

void Session::close() noexcept {
  const std::scoped_lock lock(mutex_);
  if (!database_) return;
  letGoOf(0);
  while (database_->depth() > 0) database_->rollbackUnit();
  database_->setLevelListener(nullptr);
  database_.reset();
  ids_.reset();
  levels_.clear();
}

void Session::installHooks() {
  if (!database_) return;
  database_->setTraceCallback(hooks_.trace);
  database_->setProfileCallback(hooks_.profile);
}

bool Session::exists(const ClassInfo& cls, int id) {
  sqldb::Statement query = database_->statement(layout_->of(cls).exists);
  query.bind(1, id);
  return query.step();
}

void Session::begin(sqldb::Database::Access access, UnitKind kind, std::string_view operation) {
  opening_ = kind;
  try {
    database_->beginUnit(access, operation);
  } catch (...) {
    opening_ = UnitKind::single;
    throw;
  }
  opening_ = UnitKind::single;
}

void Session::commit() {
  letGoOf(static_cast<int>(levels_.size()));
  database_->commitUnit();
}

void Session::rollback() noexcept {
  letGoOf(0);
  database_->rollbackUnit();
}

bool Session::isInside(UnitKind kind) const {
  return std::ranges::any_of(levels_,
                             [kind](const Level& level) { return level.kind == kind; });
}

std::optional<UnitKind> Session::innermost() const {
  if (levels_.empty()) return std::nullopt;
  return levels_.back().kind;
}

unsigned long long Session::enterReadScope() {
  if (levels_.empty()) {
    begin(sqldb::Database::Access::read, UnitKind::readScope, "read");
    ++readTicket_;
    readScopes_ = 1;
    return readTicket_;
  }
  if (innermost() != UnitKind::readScope) return 0;
  ++readScopes_;
  return readTicket_;
}

void Session::leaveReadScope(unsigned long long ticket) noexcept {
  if (ticket != readTicket_ || readScopes_ == 0 || --readScopes_ > 0) return;
  try {
    endReadScopes();
  } catch (...) {
    // Only a unit that wrote can fail here; its level is closed then, and each of its writes
    // has reported its own outcome.
    readScopes_ = 0;
  }
}

void Session::endReadScopes() {
  readScopes_ = 0;
  if (innermost() == UnitKind::readScope) commit();
}

void Session::levelOpened() {
  letGoOfWriters();
  levels_.push_back({opening_, ids_->mark()});
}

void Session::letGoOfWriters() noexcept {
  letGoOf(std::numeric_limits<int>::max());
}

void Session::levelCommitted() {
  levels_.pop_back();
  if (levels_.empty()) ids_->committed();
}

void Session::levelRolledBack() {
  letGoOf(0);
  const int level = static_cast<int>(levels_.size());
  ids_->rolledBack(levels_.back().reservations);
  levels_.pop_back();
  if (!hooks_.rollbackListener) return;
  try {
    hooks_.rollbackListener(level);
  } catch (...) {
    // A listener cannot undo a rollback that has happened.
  }
}

void Session::letGoOf(int fromLevel) noexcept {
  std::erase_if(pins_, [fromLevel](Pin* pin) {
    if (pin->level_ < fromLevel && !pin->writes_) return false;
    pin->level_ = -1;
    pin->letGo();
    return true;
  });
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
