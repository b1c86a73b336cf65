#include "kodd/datamodelrepository.h"

#include <cxxabi.h>

#include <exception>
#include <utility>

#include "kodd/integrity.h"
#include "kodd/objectselection.h"
#include "kodd/objectvalue.h"
#include "kodd/schemastore.h"
#include "kodd/session.h"
#include "kodd/storedvalue.h"
#include "kodiag/message.h"
#include "text/utf8.h"

namespace kodd {
namespace {

using kodiag::util::diagnostics;
using Access = sqldb::Database::Access;

[[noreturn]] void raiseTransactionActive(const char* operation) {
  kodiag::raise({"KODD:kodd", "TransactionActive"}, {{"Operation", operation}});
}

[[noreturn]] void raiseNoTransaction(const char* operation) {
  kodiag::raise({"KODD:kodd", "NoTransaction"}, {{"Operation", operation}});
}

bool isInsideFunction(const Session& session) {
  return session.isInside(UnitKind::dictionary) || session.isInside(UnitKind::readFunction);
}

/// A message that a unit of work failed, with the exception that is being handled as its cause.
kodiag::Message failedUnit(const char* key, const std::string& reason) {
  kodiag::Message message{{"KODD:kodd", key}, {{"Reason", reason}}, {}, nullptr};
  message.original = std::current_exception();
  return message;
}

/// Runs the function; whatever it throws ends up in the diagnostics, save the forced end of the
/// thread, which passes.
void callFunction(DictionaryFunction& fn, diagnostics& diag) {
  if (fn.empty()) {
    diag.add(failedUnit("DictFuncThrewStdException", "call to empty boost::function"));
    return;
  }
  try {
    fn(diag);
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const kodiag::except::ExceptionWithCauses& exception) {
    kodiag::Message message = failedUnit("DictFuncThrewException", exception.message().text());
    message.causes.push_back(exception.message());
    diag.add(std::move(message));
  } catch (const std::exception& exception) {
    diag.add(failedUnit("DictFuncThrewStdException", exception.what()));
  } catch (...) {
    diag.add(failedUnit("DictFuncThrewStdException", "unknown exception"));
  }
}

/// One unit around a caller's function, once begun: undone unless kept.
class FunctionUnit {
 public:
  explicit FunctionUnit(Session& session) : session_(session) {}
  ~FunctionUnit() {
    // The function may have closed the repository, which ends every unit, and a child that was
    // forked in it has no unit.
    if (!open_ || !session_.isOpen() || session_.isForked()) return;
    const SessionUse use(session_, Access::read, kOperation);
    session_.rollback();
  }
  FunctionUnit(const FunctionUnit&) = delete;
  FunctionUnit& operator=(const FunctionUnit&) = delete;

  void begin(Access access, UnitKind kind) {
    const SessionUse use(session_, access, kOperation);
    session_.database(kOperation);
    session_.begin(access, kind, kOperation);
    open_ = true;
  }
  bool tryBegin(UnitKind kind) {
    const SessionUse use(session_, Access::read, kOperation);
    session_.database(kOperation);
    open_ = session_.tryBegin(kind, kOperation);
    return open_;
  }
  void run(DictionaryFunction& fn, diagnostics& diag) {
    callFunction(fn, diag);
    if (diag.empty()) keep();
  }

 private:
  static constexpr const char* kOperation = "unit of work";

  void keep() {
    open_ = false;
    // The turn to write, where it is one that writes, came with the unit.
    const SessionUse use(session_, Access::read, kOperation);
    session_.database(kOperation);
    session_.commit();
  }

  Session& session_;
  bool open_ = false;
};

/// `begin` opens the unit, or tells that it cannot be had now. \returns whether it ran
template <class Begin>
bool performFunction(const std::shared_ptr<Session>& session, DictionaryFunction& fn,
                     diagnostics& diag, Begin&& begin) {
  // Its own, so that errors from before do not undo good work.
  diagnostics own;
  try {
    FunctionUnit unit(*session);
    if (!begin(unit)) return false;
    unit.run(fn, own);
  } catch (...) {
    reportException("unit of work", own);
  }
  diag.append(own);
  return true;
}

/// A number made from the selected objects, whose table is "s0".
long long aggregate(Session& session, const std::string& expression,
                    const Selection& selection) {
  sqldb::Database& database = session.database("count objects");
  const Layout& layout = session.layout();
  BoundSql sql{
      "SELECT " + expression + " FROM " + tableAsSearched(layout, selection.cls()) + " WHERE ",
      {},
      {}};
  appendConditions(sql, layout, selection);
  sqldb::Statement query = database.statement(sql.text);
  sql.bind(query);
  query.step();
  return query.int64(0);
}

}  // namespace

DataModelRepository::DataModelRepository() : session_(std::make_shared<Session>()) {}

DataModelRepository::~DataModelRepository() {
  close();
}

void DataModelRepository::open(const std::wstring& file, const std::wstring& schemaFile,
                               const Options& options, diagnostics& diag) {
  const std::shared_ptr<Session> previous = session_;
  performRead(*previous, "open", diag, [&] {
    if (isInsideFunction(*previous)) raiseTransactionActive("open");
    previous->close();
    session_ = std::make_shared<Session>(previous->hooks());
  });
  if (session_ == previous) return;
  diagnostics failure;
  performRead(*session_, "open", failure,
              [&] { session_->open(text::toUtf8(file), text::toUtf8(schemaFile), options); });
  if (!failure.empty()) session_->rememberFailure(failure);
  diag.append(failure);
}

void DataModelRepository::close() {
  session_->close();
}

void DataModelRepository::closeInTurn(diagnostics& diag) {
  std::shared_ptr<sqldb::RepositoryLock> turn;
  try {
    if (isOpen() && !session_->isForked()) turn = session_->takeTurn("close");
  } catch (...) {
    return reportException("close", diag);
  }
  close();
  if (turn) turn->releaseWrite();
}

bool DataModelRepository::isOpen() const {
  return session_->isOpen();
}

std::wstring DataModelRepository::location() const {
  return text::toWide(session_->location());
}

MetamodelRef DataModelRepository::metamodel(diagnostics& diag) {
  try {
    // Needs no connection: the schema is in memory.
    session_->requireOpen("metamodel");
    return MetamodelRef(&session_->layout().model());
  } catch (...) {
    reportException("metamodel", diag);
    return {};
  }
}

std::string DataModelRepository::databaseID(diagnostics& diag) {
  std::string id;
  performRead(*session_, "databaseID", diag,
              [&] { id = kodd::databaseID(session_->database("databaseID")); });
  return id;
}

ObjectRef DataModelRepository::createObject(const ClassRef& cls, diagnostics& diag) {
  ObjectRef object;
  performWrite(*session_, "create an object", diag, [&] {
    sqldb::Database& database = session_->database("create an object");
    const ClassLayout& layout = session_->layout().of(cls);
    const int id = session_->create(*cls.info(), [&](int next) {
      sqldb::Statement insert = database.statement(layout.create);
      insert.bind(1, next);
      insert.run();
    });
    object = ObjectRef(session_, cls, id);
  });
  return object;
}

ObjectRef DataModelRepository::getObjectRef(int id, const ClassRef& cls, diagnostics& diag) {
  ObjectRef object;
  performRead(*session_, "find an object", diag, [&] {
    session_->database("find an object");
    session_->layout().of(cls);
    if (session_->exists(*cls.info(), id)) object = ObjectRef(session_, cls, id);
  });
  return object;
}

ObjectRef DataModelRepository::getObjectRef(int id, diagnostics& diag) {
  ObjectRef object;
  performRead(*session_, "find an object", diag, [&] {
    session_->database("find an object");
    object = objectWithID(session_, id);
  });
  return object;
}

void DataModelRepository::findObjects(const ClassRef& cls, const MatchConstraints& constraints,
                                      std::vector<ObjectRef>& results, diagnostics& diag) {
  performRead(*session_, "find objects", diag, [&] {
    session_->database("find objects");
    appendMatches(session_, cls, constraints, results);
  });
}

long long DataModelRepository::countObjects(const Selection& selection, diagnostics& diag) {
  long long count = 0;
  performRead(*session_, "count objects", diag,
              [&] { count = aggregate(*session_, "count(*)", selection); });
  return count;
}

std::vector<int> DataModelRepository::selectIDs(const Selection& selection,
                                                const PropertyRef& orderBy, diagnostics& diag) {
  std::vector<int> ids;
  performRead(*session_, "find objects", diag, [&] {
    sqldb::Database& database = session_->database("find objects");
    const Layout& layout = session_->layout();
    if (orderBy.isValid()) checkProperty(orderBy, selection.cls());
    BoundSql sql{
        "SELECT s0.id FROM " + tableAsSearched(layout, selection.cls()) + " WHERE ", {}, {}};
    appendConditions(sql, layout, selection);
    sql.text += " ORDER BY ";
    if (orderBy.isValid()) sql.text += "s0." + layout.of(*orderBy.info()).name + ",";
    sql.text += "s0.id";
    sqldb::Statement query = database.statement(sql.text);
    sql.bind(query);
    while (query.step()) ids.push_back(static_cast<int>(query.int64(0)));
  });
  return ids;
}

std::uint64_t DataModelRepository::countBlobBytes(const Selection& selection,
                                                  diagnostics& diag) {
  long long bytes = 0;
  performRead(*session_, "count bytes", diag, [&] {
    const Layout& layout = session_->layout();
    layout.of(selection.cls());
    for (const auto& property : selection.cls().info()->properties) {
      if (!isBytes(property->kind)) continue;
      const std::string column = "s0." + layout.of(*property).name;
      bytes += aggregate(*session_, "coalesce(sum(length(" + column + ")),0)", selection);
    }
  });
  return static_cast<std::uint64_t>(bytes);
}

void DataModelRepository::beginTransaction(diagnostics& diag) {
  performWrite(*session_, "begin a transaction", diag, [&] {
    session_->database("begin a transaction");
    if (isInsideFunction(*session_) || session_->isInside(UnitKind::explicitTransaction)) {
      raiseTransactionActive("begin a transaction");
    }
    // The transaction may outlive the scopes that are reading now.
    session_->endReadScopes();
    session_->begin(Access::write, UnitKind::explicitTransaction, "transaction");
    session_->noteUnitOfThread();
  });
}

void DataModelRepository::commitTransaction(diagnostics& diag) {
  performRead(*session_, "commit a transaction", diag, [&] {
    session_->database("commit a transaction");
    if (session_->innermost() != UnitKind::explicitTransaction) {
      raiseNoTransaction("commit a transaction");
    }
    session_->commit();
  });
}

void DataModelRepository::rollbackTransaction(diagnostics& diag) {
  performRead(*session_, "roll back a transaction", diag, [&] {
    session_->database("roll back a transaction");
    if (session_->innermost() != UnitKind::explicitTransaction) {
      raiseNoTransaction("roll back a transaction");
    }
    session_->rollback();
  });
}

void DataModelRepository::performDictionaryFunction(DictionaryFunction& fn, diagnostics& diag) {
  performFunction(session_, fn, diag, [](FunctionUnit& unit) {
    unit.begin(Access::write, UnitKind::dictionary);
    return true;
  });
}

bool DataModelRepository::tryDictionaryFunction(DictionaryFunction& fn, diagnostics& diag) {
  return performFunction(session_, fn, diag, [](FunctionUnit& unit) {
    return unit.tryBegin(UnitKind::dictionary);
  });
}

void DataModelRepository::performReadFunction(DictionaryFunction& fn, diagnostics& diag) {
  performFunction(session_, fn, diag, [](FunctionUnit& unit) {
    unit.begin(Access::read, UnitKind::readFunction);
    return true;
  });
}

DataModelRepository::ReadScope::ReadScope(DataModelRepository& repository)
    : session_(repository.session_) {
  diagnostics ignored;  // what cannot be read will say so itself
  performRead(*session_, "read", ignored, [this] {
    if (!session_->isOpen()) return;
    ticket_ = session_->enterReadScope();
    link_ = &session_->link();
  });
}

DataModelRepository::ReadScope::~ReadScope() {
  if (ticket_ == 0) return;
  diagnostics ignored;  // nothing is written in a unit that reads
  try {
    const SessionUse use(*session_, *link_);
    if (session_->isOpen() && !session_->isForked()) session_->leaveReadScope(ticket_);
  } catch (...) {
    reportException("read", ignored);
  }
}

int DataModelRepository::depth() const {
  return session_->depth();
}

void DataModelRepository::setRollbackListener(boost::function<void(int level)> listener) {
  session_->setRollbackListener(std::move(listener));
}

void DataModelRepository::setTraceCallback(sqldb::Database::TraceCallback callback) {
  diagnostics ignored;  // a database that takes no hooks says why at its next use
  performRead(*session_, "trace", ignored, [&] { session_->setTrace(std::move(callback)); });
}

void DataModelRepository::setProfileCallback(sqldb::Database::ProfileCallback callback) {
  diagnostics ignored;
  performRead(*session_, "profile", ignored,
              [&] { session_->setProfile(std::move(callback)); });
}

sqldb::Database* DataModelRepository::getDB() {
  return session_->mainDatabase();
}

void DataModelRepository::checkFile(const std::wstring& file, diagnostics& diag) {
  Session none;
  performRead(none, "check a file", diag, [&] {
    const std::string location = text::toUtf8(file);
    if (sqldb::Database::identify(location, kApplicationId) != sqldb::FileKind::foreign) return;
    kodiag::raise({"KODD:kodd", "NotARepository"},
                  {{"Location", location}, {"Reason", "it was made by another program"}});
  });
}

std::vector<std::string> DataModelRepository::integrityProblems(diagnostics& diag) {
  std::vector<std::string> problems;
  performRead(*session_, "check the repository", diag, [&] {
    problems =
        findIntegrityProblems(session_->database("check the repository"), session_->layout());
  });
  return problems;
}

void DataModelRepository::checkpoint(diagnostics& diag) {
  performWrite(*session_, "checkpoint", diag,
               [&] { session_->database("checkpoint").checkpoint(); });
}

void DataModelRepository::releaseFreePages(int pages, diagnostics& diag) {
  performWrite(*session_, "releaseFreePages", diag,
               [&] { session_->database("releaseFreePages").releaseFreePages(pages); });
}

void DataModelRepository::compact(diagnostics& diag) {
  performWrite(*session_, "compact", diag, [&] { session_->database("compact").compact(); });
}

sqldb::FileSpace DataModelRepository::space(diagnostics& diag) {
  sqldb::FileSpace found;
  performRead(*session_, "measure the file", diag,
              [&] { found = session_->database("measure the file").space(); });
  return found;
}

}  // namespace kodd
