#include "kodd/objectvalue.h"

#include <utility>

#include "kodiag/message.h"

namespace kodd {

StoredValue storedObject(Session& session, const PropertyInfo& property,
                         const ObjectRef& object) {
  requireKind(property, namesObject, "an object");
  const int id = idInSession(session, object);
  if (id == 0) return 0LL;
  if (property.target && property.target != object.cls().info()) {
    raiseInvalidValue(property, "object " + std::to_string(id),
                      "it is no \"" + property.target->qualifiedName() + "\"");
  }
  if (!session.exists(*object.cls().info(), id)) {
    raiseInvalidObject("Object " + std::to_string(id), "it is gone");
  }
  return static_cast<long long>(id);
}

void checkReferenceID(Session& session, const PropertyInfo& property,
                      const StoredValue& value) {
  if (property.kind != PropertyKind::reference) return;
  const long long id = std::get<long long>(value);
  if (id == 0 ||
      (std::in_range<int>(id) && session.exists(*property.target, static_cast<int>(id)))) {
    return;
  }
  raiseInvalidValue(
      property, std::to_string(id),
      "there is no object of class \"" + property.target->qualifiedName() + "\" with that ID");
}

int idInSession(const Session& session, const ObjectRef& object) {
  if (object.id() != 0 && object.session().get() != &session) {
    raiseInvalidObject("Object " + std::to_string(object.id()),
                       "it belongs to another opening of a repository");
  }
  return object.id();
}

ObjectRef objectWithID(const std::shared_ptr<Session>& session, int id) {
  const ClassInfo* cls = session->ids().classOf(id);
  if (!cls || !session->exists(*cls, id)) return {};
  return {session, ClassRef(cls), id};
}

int storedInt(const Session& session, long long value) {
  if (std::in_range<int>(value)) [[likely]] {
    return static_cast<int>(value);
  }
  kodiag::raise(
      {"sqldb:ssdb", "Corrupt"},
      {{"Operation", "read"},
       {"Location", session.location()},
       {"Reason", "a stored number, " + std::to_string(value) + ", has more than 32 bits"}});
}

}  // namespace kodd
