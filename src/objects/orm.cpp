#include "objects/orm.h"

#include <boost/make_shared.hpp>

#include "objectmanager/objectmanager.h"
#include "objects/raising.h"
#include "objects/set.h"
#include "objects/strings.h"

namespace vela {
namespace {

[[noreturn]] void refuseEmptyHandle() {
  kodiag::raise({"KODD:kodd", "InvalidObject"},
                {{"Operand", "An empty handle"}, {"Reason", "it refers to nothing"}});
}

}  // namespace

ORM::ORM(std::unique_ptr<ObjectRef> object)
    : manager_(object ? &object->getObjectManager() : nullptr), object_(std::move(object)) {}

ObjectRef& ORM::getObjectReference() const {
  if (!object_) refuseEmptyHandle();
  return *object_;
}

ObjectManager& ORM::manager() const {
  if (!manager_) refuseEmptyHandle();
  return *manager_;
}

int ORM::liveID() const {
  const ObjectRef& object = getObjectReference();
  raising([&](kodiag::util::diagnostics& diag) { object.getObjRef().requireLive(diag); });
  return object.getObjectID();
}

void ORM::requireSameRepository(const ORM& other, const std::string& operation) const {
  if (&other.getObjectReference().getObjectManager() == &manager()) return;
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", operation},
                 {"Reason", other.getObjectReference().getObjectType() + " " +
                                std::to_string(other.getObjectReference().getObjectID()) +
                                " belongs to another repository"}});
}

void ORM::remove() const {
  kodiag::util::diagnostics diag;
  getObjectReference().removeObject(diag);
  diag.raiseIfAny();
}

int Element::getParentSetID() const {
  return getObjectReference().getPropertyInt32(strings::FK_SetID);
}

boost::shared_ptr<Set> Element::getParentSet() const {
  boost::shared_ptr<Set> run;
  Set::lookupSet(getParentSetID(), run, getObjectReference().getObjectManager());
  return run;
}

}  // namespace vela
