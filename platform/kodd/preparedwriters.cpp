#include "kodd/preparedwriters.h"

#include <optional>
#include <utility>
#include <variant>

#include "kodd/datamodelrepository.h"
#include "kodd/objectselection.h"
#include "kodd/objectvalue.h"
#include "kodd/session.h"
#include "kodd/storedvalue.h"
#include "kodiag/diagnostics.h"

namespace kodd {
namespace {

using kodiag::util::diagnostics;

/// An ID the caller vouches for.
struct TrustedID {
  const int* id;
};
struct ZeroBlobSize {
  const std::size_t* byteCount;
};

using ValueSource =
    std::variant<const int*, const long long*, const double*, const std::string*,
                 const std::wstring*, const const_BlobDescriptor*, const ObjectRef*, TrustedID,
                 ZeroBlobSize>;

/// Reads one source as what its property holds.
class SourceReader {
 public:
  SourceReader(Session& session, const PropertyInfo& property, std::string& scratch)
      : session_(session), property_(property), scratch_(scratch) {}

  template <class Value>
  StoredValue operator()(const Value* value) const {
    const StoredValue stored = storedValue(property_, *value, scratch_);
    checkReferenceID(session_, property_, stored);
    return stored;
  }
  StoredValue operator()(const ObjectRef* object) const {
    return storedObject(session_, property_, *object);
  }
  StoredValue operator()(TrustedID source) const {
    return storedValue(property_, *source.id, scratch_);
  }
  StoredValue operator()(ZeroBlobSize source) const { return ZeroBlob{*source.byteCount}; }

 private:
  Session& session_;
  const PropertyInfo& property_;
  std::string& scratch_;
};

}  // namespace

struct ValueSources::Impl {
  struct Source {
    PropertyRef property;
    ValueSource value;
    std::string scratch;
  };

  std::shared_ptr<Session> session;
  ClassRef cls;
  std::vector<Source> sources;
  std::optional<kodiag::Message> defect;
  std::string insertSql;  ///< built on first use; empty again when a property is added
  std::string updateSql;

  void set(const PropertyRef& property, ValueSource value, bool (*fits)(PropertyKind),
           const char* asWhat) {
    try {
      checkProperty(property, cls);
      requireKind(*property.info(), fits, asWhat);
    } catch (const kodiag::except::ExceptionWithCauses& exception) {
      if (!defect) defect = exception.message();
      return;
    }
    for (Source& source : sources) {
      if (source.property != property) continue;
      source.value = value;
      return;
    }
    sources.push_back({property, value, {}});
    insertSql.clear();
    updateSql.clear();
  }

  sqldb::Database& database(std::string_view operation) const {
    sqldb::Database& opened = session->database(operation);
    if (defect) throw kodiag::except::ExceptionWithCauses(*defect);
    return opened;
  }

  int bind(sqldb::Statement& statement, int parameter) {
    for (Source& source : sources) {
      const SourceReader reader(*session, *source.property.info(), source.scratch);
      bindStored(statement, parameter++, std::visit(reader, source.value));
    }
    return parameter;
  }

  bool hasSource(const PropertyInfo* property) const {
    for (const Source& source : sources) {
      if (source.property.info() == property) return true;
    }
    return false;
  }

  const std::string& insertStatement();
  std::string assignments() const;
  const std::string& updateStatement();
  int create();
};

const std::string& ValueSources::Impl::insertStatement() {
  if (!insertSql.empty()) return insertSql;
  const Layout& layout = session->layout();
  std::string names = "id";
  std::string values = "?";
  for (const Source& source : sources) {
    names += "," + layout.of(*source.property.info()).name;
    values += ",?";
  }
  for (const PropertyInfo* property : layout.of(cls).changedDefaults) {
    if (hasSource(property)) continue;
    names += "," + layout.of(*property).name;
    values += "," + layout.of(*property).defaultLiteral;
  }
  insertSql = "INSERT INTO " + layout.of(cls).table + "(" + names + ") VALUES(" + values + ")";
  return insertSql;
}

std::string ValueSources::Impl::assignments() const {
  std::string text;
  for (const Source& source : sources) {
    text +=
        (text.empty() ? "" : ",") + session->layout().of(*source.property.info()).name + "=?";
  }
  return text;
}

const std::string& ValueSources::Impl::updateStatement() {
  if (updateSql.empty()) {
    updateSql =
        "UPDATE " + session->layout().of(cls).table + " SET " + assignments() + " WHERE id=?";
  }
  return updateSql;
}

int ValueSources::Impl::create() {
  sqldb::Database& opened = database("create an object");
  session->layout().of(cls);
  return session->create(*cls.info(), [&](int id) {
    sqldb::Statement insert = opened.statement(insertStatement());
    insert.bind(1, id);
    bind(insert, 2);
    insert.run();
  });
}

ValueSources::ValueSources(const ClassRef& cls, DataModelRepository& repository)
    : impl_(std::make_unique<Impl>()) {
  impl_->session = repository.session_;
  impl_->cls = cls;
}
ValueSources::~ValueSources() = default;
ValueSources::ValueSources(ValueSources&&) noexcept = default;
ValueSources& ValueSources::operator=(ValueSources&&) noexcept = default;

void ValueSources::setPropertyValueSource(const PropertyRef& prop, const int* value) {
  impl_->set(prop, value, isWholeNumber, "an int");
}

void ValueSources::setPropertyValueSource(const PropertyRef& prop, const long long* value) {
  impl_->set(prop, value, isWholeNumber, "a long long");
}

void ValueSources::setPropertyValueSource(const PropertyRef& prop, const double* value) {
  impl_->set(prop, value, isReal, "a double");
}

void ValueSources::setPropertyValueSource(const PropertyRef& prop, const std::string* value) {
  impl_->set(prop, value, isText, "text");
}

void ValueSources::setPropertyValueSource(const PropertyRef& prop, const std::wstring* value) {
  impl_->set(prop, value, isText, "text");
}

void ValueSources::setPropertyValueSource(const PropertyRef& prop,
                                          const const_BlobDescriptor* value) {
  impl_->set(prop, value, isBlob, "bytes");
}

void ValueSources::setPropertyValueSource(const PropertyRef& prop, const ObjectRef* value) {
  impl_->set(prop, value, namesObject, "an object");
}

void ValueSources::setPropertyIDSource(const PropertyRef& prop, const int* id) {
  impl_->set(prop, TrustedID{id}, namesObject, "an object");
}

void ValueSources::setPropertyZeroBlobSource(const PropertyRef& prop,
                                             const std::size_t* byteCount) {
  impl_->set(prop, ZeroBlobSize{byteCount}, isBlob, "bytes");
}

ObjectConstructor::ObjectConstructor(const ClassRef& cls, DataModelRepository& repository)
    : ValueSources(cls, repository) {}
ObjectConstructor::~ObjectConstructor() = default;

ObjectRef ObjectConstructor::createObject(diagnostics& diag) {
  const int id = createObjectID(diag);
  return id == 0 ? ObjectRef() : ObjectRef(impl_->session, impl_->cls, id);
}

int ObjectConstructor::createObjectID(diagnostics& diag) {
  int id = 0;
  performWrite(*impl_->session, "create an object", diag, [&] { id = impl_->create(); });
  return id;
}

ObjectModifier::ObjectModifier(const ClassRef& cls, DataModelRepository& repository)
    : ValueSources(cls, repository) {}
ObjectModifier::~ObjectModifier() = default;

void ObjectModifier::modifyObject(ObjectRef& object, diagnostics& diag) {
  performWrite(*impl_->session, "modify an object", diag, [&] {
    impl_->database("modify an object");
    const std::string operand = "Object " + std::to_string(object.id());
    if (idInSession(*impl_->session, object) == 0 || object.cls() != impl_->cls) {
      raiseInvalidObject(operand, "it is not of the class to be modified");
    }
    const std::size_t failuresBefore = diag.messages().size();
    const bool existed = modifyObjectID(object.id(), diag);
    if (!existed && diag.messages().size() == failuresBefore) {
      raiseInvalidObject(operand, "it is gone");
    }
  });
}

bool ObjectModifier::modifyObjectID(int id, diagnostics& diag) {
  bool existed = false;
  performWrite(*impl_->session, "modify an object", diag, [&] {
    sqldb::Database& database = impl_->database("modify an object");
    if (impl_->sources.empty()) {
      existed = impl_->session->exists(*impl_->cls.info(), id);
      return;
    }
    sqldb::Statement update = database.statement(impl_->updateStatement());
    update.bind(impl_->bind(update, 1), id);
    existed = update.run() > 0;
  });
  return existed;
}

long long ObjectModifier::modifySelected(const Selection& selection, diagnostics& diag) {
  long long count = 0;
  performWrite(*impl_->session, "modify objects", diag, [&] {
    sqldb::Database& database = impl_->database("modify objects");
    if (selection.cls() != impl_->cls) {
      raiseInvalidObject("The selection", "it is not of the class to be modified");
    }
    if (impl_->sources.empty()) return;
    const Layout& layout = impl_->session->layout();
    BoundSql sql{"UPDATE " + tableAsSearched(layout, impl_->cls) + " SET " +
                     impl_->assignments() + " WHERE ",
                 {},
                 {}};
    appendConditions(sql, layout, selection);
    sqldb::Statement update = database.statement(sql.text);
    sql.bind(update, impl_->bind(update, 1));
    count = update.run();
  });
  return count;
}

struct ObjectDeleter::Impl {
  std::shared_ptr<Session> session;
  ClassRef cls;

  sqldb::Database& database() const {
    sqldb::Database& opened = session->database("delete objects");
    session->layout().of(cls);
    return opened;
  }

  /// All or none; those that are gone already are passed over.
  template <class IDs>
  void deleteAll(const IDs& ids) {
    OperationUnit unit(*session, "delete objects");
    for (const int id : ids) deleteOne(id);
    unit.commit();
  }

  void deleteOne(int id) {
    sqldb::Statement remove = database().statement(session->layout().of(cls).remove);
    remove.bind(1, id);
    remove.run();
  }

  int checkedID(const ObjectRef& object) const {
    const int id = idInSession(*session, object);
    if (id != 0 && object.cls() != cls) {
      raiseInvalidObject("Object " + std::to_string(id),
                         "it is not of the class to be deleted");
    }
    return id;
  }
};

ObjectDeleter::ObjectDeleter(const ClassRef& cls, DataModelRepository& repository)
    : impl_(std::make_unique<Impl>(Impl{repository.session_, cls})) {}
ObjectDeleter::~ObjectDeleter() = default;
ObjectDeleter::ObjectDeleter(ObjectDeleter&&) noexcept = default;
ObjectDeleter& ObjectDeleter::operator=(ObjectDeleter&&) noexcept = default;

void ObjectDeleter::deleteObject(ObjectRef& object, diagnostics& diag) {
  performWrite(*impl_->session, "delete an object", diag, [&] {
    impl_->database();
    impl_->deleteOne(impl_->checkedID(object));
  });
}

void ObjectDeleter::deleteObjects(std::span<const ObjectRef> objects, diagnostics& diag) {
  performWrite(*impl_->session, "delete objects", diag, [&] {
    impl_->database();
    std::vector<int> ids;
    ids.reserve(objects.size());
    for (const ObjectRef& object : objects) ids.push_back(impl_->checkedID(object));
    impl_->deleteAll(ids);
  });
}

void ObjectDeleter::deleteObjectIDs(std::span<const int> ids, diagnostics& diag) {
  performWrite(*impl_->session, "delete objects", diag, [&] {
    impl_->database();
    impl_->deleteAll(ids);
  });
}

long long ObjectDeleter::deleteSelected(const Selection& selection, diagnostics& diag) {
  long long count = 0;
  performWrite(*impl_->session, "delete objects", diag, [&] {
    sqldb::Database& database = impl_->database();
    if (selection.cls() != impl_->cls) {
      raiseInvalidObject("The selection", "it is not of the class to be deleted");
    }
    const Layout& layout = impl_->session->layout();
    BoundSql sql{"DELETE FROM " + tableAsSearched(layout, impl_->cls) + " WHERE ", {}, {}};
    appendConditions(sql, layout, selection);
    sqldb::Statement remove = database.statement(sql.text);
    sql.bind(remove);
    count = remove.run();
  });
  return count;
}

}  // namespace kodd
