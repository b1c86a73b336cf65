#include "kodd/objectquery.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "kodd/datamodelrepository.h"
#include "kodd/objectvalue.h"
#include "kodd/queryshape.h"
#include "kodd/session.h"
#include "kodiag/diagnostics.h"
#include "text/utf8.h"

namespace kodd {
namespace {

using kodiag::util::diagnostics;

/// Copies one column of a row into the caller's variable.
class RowReader {
 public:
  RowReader(const std::shared_ptr<Session>& session, const sqldb::Statement& row)
      : session_(session), row_(row) {}

  void read(const QueryResult& result, int column) {
    result_ = &result;
    column_ = column;
    std::visit(*this, result.destination);
  }

  void operator()(int* value) const { *value = storedInt(*session_, row_.int64(column_)); }
  void operator()(long long* value) const { *value = row_.int64(column_); }
  void operator()(double* value) const { *value = row_.real(column_); }
  void operator()(std::string* value) const { *value = row_.text(column_); }
  void operator()(std::wstring* value) const { *value = text::toWide(row_.text(column_)); }
  void operator()(BlobSizeInfo* value) const {
    value->length = static_cast<std::size_t>(row_.int64(column_));
  }
  void operator()(BlobPart* value) const {
    const std::span<const std::byte> bytes = row_.blob(column_);
    value->blobLength = bytes.size();
    const bool isThere =
        value->offset <= bytes.size() && value->length <= bytes.size() - value->offset;
    if (isThere && value->length > 0) {
      std::memcpy(value->into, bytes.data() + value->offset, value->length);
    }
  }
  void operator()(std::vector<char>* value) const {
    const std::span<const std::byte> bytes = row_.blob(column_);
    const char* first = reinterpret_cast<const char*>(bytes.data());
    value->assign(first, first + bytes.size());
  }
  void operator()(const RawBuffer& value) const {
    const std::span<const std::byte> bytes = row_.blob(column_);
    *value.length = storedInt(*session_, static_cast<long long>(bytes.size()));
    const int copied = std::min(*value.length, value.capacity);
    if (copied > 0) std::memcpy(value.buffer, bytes.data(), static_cast<std::size_t>(copied));
  }
  void operator()(ObjectRef* value) const {
    const int id = storedInt(*session_, row_.int64(column_));
    if (id == 0) {
      value->clear();
    } else if (result_->objectClass.isValid()) {
      *value = ObjectRef(session_, result_->objectClass, id);
    } else {
      *value = objectWithID(session_, id);
    }
  }

 private:
  const std::shared_ptr<Session>& session_;
  const sqldb::Statement& row_;
  const QueryResult* result_ = nullptr;
  int column_ = 0;
};

/// Starts one run: the statement with its values bound.
sqldb::Statement startRun(Session& session, QueryShape& shape, const QueryValues& values,
                          int limit) {
  sqldb::Statement statement =
      session.database("query").statement(shape.sql(session.layout(), values.partialTerms()));
  const int bound = values.bind(statement);
  if (!shape.isCountOnly()) statement.bind(bound + 1, limit);
  return statement;
}

bool readRow(const std::shared_ptr<Session>& session, const QueryShape& shape,
             sqldb::Statement& statement) {
  if (!statement.step()) return false;
  RowReader reader(session, statement);
  for (std::size_t i = 0; i < shape.results.size(); ++i) {
    reader.read(shape.results[i], static_cast<int>(i));
  }
  return true;
}

}  // namespace

struct ResultIterator::Impl final : Pin {
  Impl(std::shared_ptr<Session> owner, std::shared_ptr<const QueryShape> queryShape,
       QueryValues queryValues)
      : Pin(std::move(owner)), shape(std::move(queryShape)), values(std::move(queryValues)) {}
  ~Impl() override { finishHere(); }

  void letGo() noexcept override { statement.reset(); }
  /// Needs the connection it runs on in use.
  void finish() noexcept {
    release();
    statement.reset();
  }
  void finishHere() noexcept {
    const SessionUse use(*this);
    finish();
  }

  std::shared_ptr<const QueryShape> shape;
  QueryValues values;
  std::optional<sqldb::Statement> statement;

  using Pin::hold;
  using Pin::session;
};

struct ObjectQuery::Impl {
  std::shared_ptr<Session> session;
  std::shared_ptr<QueryShape> shape = std::make_shared<QueryShape>();

  /// Changes the shape; an iterator that still uses the present one keeps it.
  template <class Change>
  void edit(Change&& change) {
    if (shape.use_count() > 1) shape = std::make_shared<QueryShape>(*shape);
    shape->forgetSql();
    try {
      change(*shape);
    } catch (const kodiag::except::ExceptionWithCauses& defect) {
      shape->setDefect(defect.message());
    }
  }

  void addComparison(const PropertyRef& property, PropertyValueMatchRelation relation,
                     QuerySource source, bool (*fits)(PropertyKind), const char* asWhat) {
    edit([&](QueryShape& query) {
      query.setClassOf(property);
      requireKind(*property.info(), fits, asWhat);
      query.conditions.push_back(
          {QueryCondition::Form::comparisons, {{property, relation, source}}, {}, {}});
    });
  }

  /// Compares the object's own ID.
  void addIDComparison(const ClassRef& cls, QuerySource source) {
    edit([&](QueryShape& query) {
      query.setClass(cls);
      query.conditions.push_back({QueryCondition::Form::comparisons,
                                  {{PropertyRef(), PropertyValueMatchRelation::Equal, source}},
                                  {},
                                  {}});
    });
  }

  void addResult(const PropertyRef& property, bool (*fits)(PropertyKind), const char* asWhat,
                 QueryDestination destination,
                 QueryResult::Form form = QueryResult::Form::property) {
    edit([&](QueryShape& query) {
      query.setClassOf(property);
      requireKind(*property.info(), fits, asWhat);
      const bool isReference = property.kind() == PropertyKind::reference;
      query.results.push_back({isReference ? QueryResult::Form::live : form, property,
                               destination, ClassRef(property.info()->target)});
    });
  }

  void addObjectResult(const ClassRef& cls, QueryDestination destination) {
    edit([&](QueryShape& query) {
      query.setClass(cls);
      query.results.push_back({QueryResult::Form::objectID, {}, destination, cls});
    });
  }
};

ResultIterator::ResultIterator(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
ResultIterator::ResultIterator(ResultIterator&&) noexcept = default;
ResultIterator& ResultIterator::operator=(ResultIterator&&) noexcept = default;
ResultIterator::~ResultIterator() = default;

bool ResultIterator::getNextResult(diagnostics& diag) {
  if (!impl_) return false;
  bool found = false;
  const SessionUse use(*impl_);
  const bool succeeded = performRead(*impl_->session(), "query", diag, [&] {
    if (!impl_->statement) return;
    found = readRow(impl_->session(), *impl_->shape, *impl_->statement);
    if (!found) impl_->finish();
  });
  if (succeeded) return found;
  impl_->finish();
  return false;
}

ObjectQuery::ObjectQuery(DataModelRepository& repository) : impl_(std::make_unique<Impl>()) {
  impl_->session = repository.session_;
}
ObjectQuery::~ObjectQuery() = default;
ObjectQuery::ObjectQuery(ObjectQuery&&) noexcept = default;
ObjectQuery& ObjectQuery::operator=(ObjectQuery&&) noexcept = default;

void ObjectQuery::addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                                const int* value) {
  impl_->addComparison(prop, relation, value, isNumber, "a number");
}

void ObjectQuery::addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                                const long long* value) {
  impl_->addComparison(prop, relation, value, isNumber, "a number");
}

void ObjectQuery::addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                                const double* value) {
  impl_->addComparison(prop, relation, value, isNumber, "a number");
}

void ObjectQuery::addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                                const char* value) {
  impl_->addComparison(prop, relation, value, isText, "text");
}

void ObjectQuery::addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                                const std::string* value) {
  impl_->addComparison(prop, relation, value, isText, "text");
}

void ObjectQuery::addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                                const std::wstring* value) {
  impl_->addComparison(prop, relation, value, isText, "text");
}

void ObjectQuery::addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                                const boost::posix_time::ptime* value) {
  impl_->addComparison(prop, relation, value, isStored, "a time");
}

void ObjectQuery::addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                                const boost::uuids::uuid* value) {
  impl_->addComparison(prop, relation, value, isStored, "a UUID");
}

void ObjectQuery::addConstraint(const PropertyRef& prop, PropertyValueMatchRelation relation,
                                const EntryValue* value) {
  impl_->addComparison(prop, relation, value, isStored, "a value");
}

void ObjectQuery::addConstraint(const DisjunctionMatchConstraint& alternatives) {
  impl_->edit([&](QueryShape& query) {
    QueryCondition condition;
    for (const DisjunctionMatchConstraint::Alternative& alternative :
         alternatives.alternatives()) {
      query.setClassOf(alternative.property);
      requireKind(*alternative.property.info(), isNumber, "a number");
      condition.comparisons.push_back(
          {alternative.property, alternative.relation, alternative.value});
    }
    query.conditions.push_back(std::move(condition));
  });
}

void ObjectQuery::addEmptyConstraint(const PropertyRef& prop, bool empty) {
  impl_->edit([&](QueryShape& query) {
    query.setClassOf(prop);
    requireKind(*prop.info(), isBytes, "bytes");
    query.conditions.push_back(
        {empty ? QueryCondition::Form::empty : QueryCondition::Form::notEmpty, {}, prop, {}});
  });
}

void ObjectQuery::addObjectConstraint(const ClassRef& cls, const ObjectRef* object) {
  impl_->addIDComparison(cls, object);
}

void ObjectQuery::addObjectConstraint(const PropertyRef& prop, bool equal,
                                      const ObjectRef* object) {
  impl_->addComparison(
      prop, equal ? PropertyValueMatchRelation::Equal : PropertyValueMatchRelation::NotEqual,
      object, namesObject, "an object");
}

void ObjectQuery::addIDConstraint(const ClassRef& cls, const int* id) {
  impl_->addIDComparison(cls, id);
}

void ObjectQuery::addSubObjectConstraint(const PropertyRef& prop, const ClassRef* cls) {
  impl_->edit([&](QueryShape& query) {
    query.setClassOf(prop);
    requireKind(*prop.info(), namesObject, "an object");
    const ClassRef target = cls && cls->isValid() ? *cls : ClassRef(prop.info()->target);
    query.conditions.push_back({QueryCondition::Form::namesExisting, {}, prop, target});
  });
}

void ObjectQuery::addResultProperty(const PropertyRef& prop, int* value) {
  impl_->addResult(prop, fitsInt, "an int", value);
}

void ObjectQuery::addResultProperty(const PropertyRef& prop, long long* value) {
  impl_->addResult(prop, isWholeNumber, "a long long", value);
}

void ObjectQuery::addResultProperty(const PropertyRef& prop, double* value) {
  impl_->addResult(prop, isReal, "a double", value);
}

void ObjectQuery::addResultProperty(const PropertyRef& prop, std::string* value) {
  impl_->addResult(prop, isText, "text", value);
}

void ObjectQuery::addResultProperty(const PropertyRef& prop, std::wstring* value) {
  impl_->addResult(prop, isText, "text", value);
}

void ObjectQuery::addResultProperty(const PropertyRef& prop, ObjectRef* value) {
  impl_->addResult(prop, namesObject, "an object", value, QueryResult::Form::live);
}

void ObjectQuery::addResultProperty(const PropertyRef& prop, BlobSizeInfo* value) {
  impl_->addResult(prop, isBytes, "bytes", value, QueryResult::Form::blobSize);
}

void ObjectQuery::addResultProperty(const PropertyRef& prop, BlobPart* value) {
  impl_->addResult(prop, isBytes, "bytes", value);
}

void ObjectQuery::addResultProperty(const PropertyRef& prop, std::vector<char>* value) {
  impl_->addResult(prop, isBytes, "bytes", value);
}

void ObjectQuery::addResultProperty(const PropertyRef& prop, int capacity, void* buffer,
                                    int* length) {
  impl_->addResult(prop, isBytes, "bytes", RawBuffer{capacity, buffer, length});
}

void ObjectQuery::addResultObject(const ClassRef& cls, ObjectRef* object) {
  impl_->addObjectResult(cls, object);
}

void ObjectQuery::addResultID(const ClassRef& cls, int* id) {
  impl_->addObjectResult(cls, id);
}

void ObjectQuery::addResultCount(int* count) {
  impl_->edit([&](QueryShape& query) {
    query.results.push_back({QueryResult::Form::count, {}, count, {}});
  });
}

void ObjectQuery::setOrderByProperty(const PropertyRef& prop, SortOrder order) {
  impl_->edit([&](QueryShape& query) {
    query.setClassOf(prop);
    requireKind(*prop.info(), isStored, "an order");
    query.order.emplace_back(prop, order);
  });
}

void ObjectQuery::setLimit(int rows) {
  impl_->edit([rows](QueryShape& query) { query.limit = rows; });
}

ResultIterator ObjectQuery::execute(diagnostics& diag) {
  std::unique_ptr<ResultIterator::Impl> run;
  performRead(*impl_->session, "query", diag, [&] {
    Session& session = *impl_->session;
    session.database("query");
    impl_->shape->raiseDefect();
    auto started = std::make_unique<ResultIterator::Impl>(impl_->session, impl_->shape,
                                                          QueryValues(*impl_->shape, session));
    started->statement.emplace(
        startRun(session, *impl_->shape, started->values, impl_->shape->limit));
    started->hold(false);
    run = std::move(started);
  });
  return ResultIterator(std::move(run));
}

bool ObjectQuery::executeForOne(diagnostics& diag) {
  bool found = false;
  performRead(*impl_->session, "query", diag, [&] {
    Session& session = *impl_->session;
    session.database("query");
    impl_->shape->raiseDefect();
    const QueryValues values(*impl_->shape, session);
    sqldb::Statement statement = startRun(session, *impl_->shape, values, 1);
    found = readRow(impl_->session, *impl_->shape, statement);
  });
  return found;
}

}  // namespace kodd
