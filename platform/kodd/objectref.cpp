#include "kodd/objectref.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "kodd/hostarraycodec.h"
#include "kodd/objectselection.h"
#include "kodd/objectvalue.h"
#include "kodd/session.h"
#include "kodd/storedvalue.h"
#include "kodiag/message.h"
#include "text/utf8.h"

namespace kodd {
namespace {

using kodiag::util::diagnostics;

/// What an entry value points to: kept per thread until its next read.
struct EntryStorage {
  std::vector<std::byte> bytes;
  host::HostArray array;
};
thread_local EntryStorage entryStorage;

using Access = sqldb::Database::Access;

template <class Body>
void performOn(const ObjectRef& object, Access access, std::string_view operation,
               diagnostics& diag, Body&& body) {
  static Session noSession;
  Session& session = object.session() ? *object.session() : noSession;
  perform(session, access, operation, diag, [&] {
    if (object.id() == 0) raiseInvalidObject("An empty handle", "it names no object");
    body(*object.session(), object.session()->databaseOf(object.id()));
  });
}

[[noreturn]] void raiseGone(const ObjectRef& object) {
  raiseInvalidObject("Object " + std::to_string(object.id()), "it is gone");
}

/// Runs `read` on the row with the property's value; objects are named by their live ID.
template <class Read>
void readProperty(const ObjectRef& object, const PropertyRef& prop, const char* asWhat,
                  bool (*fits)(PropertyKind), diagnostics& diag, Read&& read) {
  performOn(object, Access::read, "read a property", diag,
            [&](Session& session, sqldb::Database& database) {
              checkProperty(prop, object.cls());
              requireKind(*prop.info(), fits, asWhat);
              const ColumnLayout& column = session.layout().of(*prop.info());
              const bool isReference = prop.kind() == PropertyKind::reference;
              sqldb::Statement query =
                  database.statement(isReference ? column.live : column.read);
              query.bind(1, object.id());
              if (!query.step()) raiseGone(object);
              read(session, query);
            });
}

/// Writes what `convert(session, scratch)` makes of the caller's value.
template <class Convert>
void writeProperty(const ObjectRef& object, const PropertyRef& prop, diagnostics& diag,
                   Convert&& convert) {
  performOn(object, Access::write, "write a property", diag,
            [&](Session& session, sqldb::Database& database) {
              checkProperty(prop, object.cls());
              std::string scratch;
              const StoredValue value = convert(session, scratch);
              sqldb::Statement update =
                  database.statement(session.layout().of(*prop.info()).write);
              bindStored(update, 1, value);
              update.bind(2, object.id());
              if (update.run() == 0) raiseGone(object);
            });
}

template <class Value>
void writeTyped(const ObjectRef& object, const PropertyRef& prop, const Value& value,
                diagnostics& diag) {
  writeProperty(object, prop, diag, [&](Session& session, std::string& scratch) {
    const StoredValue stored = storedValue(*prop.info(), value, scratch);
    checkReferenceID(session, *prop.info(), stored);
    return stored;
  });
}

EntryValue storeEntryBytes(std::span<const std::byte> bytes) {
  entryStorage.bytes.assign(bytes.begin(), bytes.end());
  return const_BlobDescriptor(entryStorage.bytes.data(), entryStorage.bytes.size());
}

EntryValue readEntry(const Session& session, PropertyKind kind, const sqldb::Statement& row) {
  switch (kind) {
    case PropertyKind::int64:
      return row.int64(0);
    case PropertyKind::real64:
      return row.real(0);
    case PropertyKind::string:
      return std::string(row.text(0));
    case PropertyKind::wstring:
      return text::toWide(row.text(0));
    case PropertyKind::blob:
      return storeEntryBytes(row.blob(0));
    case PropertyKind::hostArray:
      entryStorage.array = decodeHostArray(row.blob(0));
      return &entryStorage.array;
    default:
      return storedInt(session, row.int64(0));
  }
}

/// The value's bytes in memory: of text its UTF-8, of a number its machine form.
template <class Use>
void withRawBytes(const Session& session, PropertyKind kind, const sqldb::Statement& row,
                  Use&& use) {
  if (isBytes(kind)) {
    use(row.blob(0));
  } else if (isText(kind)) {
    const std::string_view text = row.text(0);
    use(std::as_bytes(std::span(text.data(), text.size())));
  } else if (kind == PropertyKind::real64) {
    const double value = row.real(0);
    use(std::as_bytes(std::span(&value, 1)));
  } else if (kind == PropertyKind::int64) {
    const long long value = row.int64(0);
    use(std::as_bytes(std::span(&value, 1)));
  } else {
    const int value = storedInt(session, row.int64(0));
    use(std::as_bytes(std::span(&value, 1)));
  }
}

}  // namespace

ClassRef ObjectRef::objectClass(diagnostics& diag) const {
  performOn(*this, Access::read, "ask for a class", diag, [](Session&, sqldb::Database&) {});
  return class_;
}

void ObjectRef::requireLive(diagnostics& diag) const {
  performOn(*this, Access::read, "use an object", diag,
            [this](Session& session, sqldb::Database&) {
              if (!session.exists(*class_.info(), id_)) raiseGone(*this);
            });
}

void ObjectRef::getPropertyValue(const PropertyRef& prop, int& value, diagnostics& diag) const {
  readProperty(*this, prop, "an int", fitsInt, diag,
               [&value](const Session& session, const sqldb::Statement& row) {
                 value = storedInt(session, row.int64(0));
               });
}

void ObjectRef::getPropertyValue(const PropertyRef& prop, long long& value,
                                 diagnostics& diag) const {
  readProperty(*this, prop, "a long long", isWholeNumber, diag,
               [&value](const Session&, const sqldb::Statement& row) { value = row.int64(0); });
}

void ObjectRef::getPropertyValue(const PropertyRef& prop, double& value,
                                 diagnostics& diag) const {
  readProperty(*this, prop, "a double", isReal, diag,
               [&value](const Session&, const sqldb::Statement& row) { value = row.real(0); });
}

void ObjectRef::getPropertyValue(const PropertyRef& prop, std::string& value,
                                 diagnostics& diag) const {
  readProperty(*this, prop, "text", isText, diag,
               [&value](const Session&, const sqldb::Statement& row) { value = row.text(0); });
}

void ObjectRef::getPropertyValue(const PropertyRef& prop, std::wstring& value,
                                 diagnostics& diag) const {
  readProperty(*this, prop, "text", isText, diag,
               [&value](const Session&, const sqldb::Statement& row) {
                 value = text::toWide(row.text(0));
               });
}

void ObjectRef::getPropertyValue(const PropertyRef& prop, EntryValue& value,
                                 diagnostics& diag) const {
  readProperty(*this, prop, "a value", isStored, diag,
               [&](const Session& session, const sqldb::Statement& row) {
                 value = readEntry(session, prop.kind(), row);
               });
}

void ObjectRef::getPropertyValue(const PropertyRef& prop, ObjectRef& value,
                                 diagnostics& diag) const {
  readProperty(*this, prop, "an object", namesObject, diag,
               [&](const Session& session, const sqldb::Statement& row) {
                 const int id = storedInt(session, row.int64(0));
                 if (id != 0 && prop.kind() == PropertyKind::reference) {
                   value = ObjectRef(session_, ClassRef(prop.info()->target), id);
                 } else {
                   value = objectWithID(session_, id);
                 }
               });
}

void ObjectRef::getPropertyValue(const PropertyRef& prop, CollectionRef& value,
                                 diagnostics& diag) const {
  performOn(*this, Access::read, "read a property", diag, [&](Session&, sqldb::Database&) {
    checkProperty(prop, class_);
    requireKind(
        *prop.info(), [](PropertyKind kind) { return !isStored(kind); }, "a collection");
    value = CollectionRef(*this, prop);
  });
}

void ObjectRef::getPropertyValue(const PropertyRef& prop, int capacity, void* buffer,
                                 int& length, diagnostics& diag) const {
  readProperty(*this, prop, "bytes", isStored, diag,
               [&](const Session& session, const sqldb::Statement& row) {
                 withRawBytes(session, prop.kind(), row, [&](std::span<const std::byte> bytes) {
                   length = storedInt(session, static_cast<long long>(bytes.size()));
                   const int copied = std::min(length, capacity);
                   if (copied > 0)
                     std::memcpy(buffer, bytes.data(), static_cast<std::size_t>(copied));
                 });
               });
}

void ObjectRef::getPropertyValue(const PropertyRef& prop, std::vector<char>& value,
                                 diagnostics& diag) const {
  readProperty(*this, prop, "bytes", isBytes, diag,
               [&value](const Session&, const sqldb::Statement& row) {
                 const std::span<const std::byte> bytes = row.blob(0);
                 const char* first = reinterpret_cast<const char*>(bytes.data());
                 value.assign(first, first + bytes.size());
               });
}

void ObjectRef::setPropertyValue(const PropertyRef& prop, const int& value,
                                 diagnostics& diag) const {
  writeTyped(*this, prop, value, diag);
}

void ObjectRef::setPropertyValue(const PropertyRef& prop, const long long& value,
                                 diagnostics& diag) const {
  writeTyped(*this, prop, value, diag);
}

void ObjectRef::setPropertyValue(const PropertyRef& prop, const double& value,
                                 diagnostics& diag) const {
  writeTyped(*this, prop, value, diag);
}

void ObjectRef::setPropertyValue(const PropertyRef& prop, const std::string& value,
                                 diagnostics& diag) const {
  writeTyped(*this, prop, value, diag);
}

void ObjectRef::setPropertyValue(const PropertyRef& prop, const std::wstring& value,
                                 diagnostics& diag) const {
  writeTyped(*this, prop, value, diag);
}

void ObjectRef::setPropertyValue(const PropertyRef& prop, const const_BlobDescriptor& value,
                                 diagnostics& diag) const {
  writeTyped(*this, prop, value, diag);
}

void ObjectRef::setPropertyValue(const PropertyRef& prop, const ObjectRef& value,
                                 diagnostics& diag) const {
  writeProperty(*this, prop, diag, [&](Session& session, std::string&) {
    return storedObject(session, *prop.info(), value);
  });
}

void ObjectRef::setPropertyValueLegacy(const PropertyRef& prop, const EntryValue& value,
                                       diagnostics& diag) const {
  writeProperty(*this, prop, diag, [&](Session& session, std::string& scratch) {
    const StoredValue stored = storedEntry(*prop.info(), value, scratch);
    checkReferenceID(session, *prop.info(), stored);
    return stored;
  });
}

void ObjectRef::deleteObject(diagnostics& diag) {
  performOn(*this, Access::write, "delete an object", diag,
            [this](Session& session, sqldb::Database& database) {
              sqldb::Statement remove = database.statement(session.layout().of(class_).remove);
              remove.bind(1, id_);
              if (remove.run() > 0) return;
              kodiag::raise({"KODD:kodd", "NoSuchObject"},
                            {{"ObjectID", std::to_string(id_)},
                             {"ClassName", class_.info()->qualifiedName()}});
            });
}

void CollectionRef::push_back(const ObjectRef& object, diagnostics& diag) {
  performOn(parent_, Access::write, "add to a collection", diag,
            [&](Session& session, sqldb::Database&) {
              const PropertyInfo& via = *property_.info()->via;
              idInSession(session, object);
              if (object.id() == 0) raiseInvalidObject("An empty handle", "it names no object");
              if (object.cls().info() != via.owner) {
                raiseInvalidValue(*property_.info(), "object " + std::to_string(object.id()),
                                  "it is no \"" + via.owner->qualifiedName() + "\"");
              }
              object.setPropertyValue(PropertyRef(&via), parent_, diag);
            });
}

void CollectionRef::remove(ObjectRef& object, diagnostics& diag) {
  performOn(parent_, Access::write, "remove from a collection", diag,
            [&](Session& session, sqldb::Database& database) {
              const PropertyInfo& via = *property_.info()->via;
              const int child = idInSession(session, object);
              const std::string column = session.layout().of(via).name;
              sqldb::Statement update =
                  database.statement("UPDATE " + session.layout().of(*via.owner).table +
                                     " SET " + column + "=0 WHERE id=? AND " + column + "=?");
              update.bind(1, child);
              update.bind(2, parent_.id());
              update.run();
            });
}

void CollectionRef::findObjects(const MatchConstraints& constraints,
                                std::vector<ObjectRef>& results, diagnostics& diag) const {
  performOn(parent_, Access::read, "list a collection", diag,
            [&](Session& session, sqldb::Database&) {
              const PropertyInfo& via = *property_.info()->via;
              if (!session.exists(*parent_.cls().info(), parent_.id())) raiseGone(parent_);
              MatchConstraints members = constraints;
              members.addConstraintLegacy(PropertyRef(&via), PropertyValueMatchRelation::Equal,
                                          parent_.id());
              appendMatches(parent_.session(), ClassRef(via.owner), members, results);
            });
}

}  // namespace kodd
