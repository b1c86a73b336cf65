#include "objectmanager/propertyaccess.h"

#include "kodiag/message.h"
#include "objectmanager/objectmanager.h"

namespace vela {
namespace {

kodd::ObjectRef namedObject(const ObjectRef& object, const kodd::PropertyRef& property) {
  kodiag::util::diagnostics diag;
  kodd::ObjectRef target;
  if (property.kind() == kodd::PropertyKind::link) {
    int id = 0;
    object.getObjRef().getPropertyValue(property, id, diag);
    diag.raiseIfAny();
    target = object.getObjectManager().repository().getObjectRef(id, diag);
  } else {
    object.getObjRef().getPropertyValue(property, target, diag);
  }
  diag.raiseIfAny();
  return target;
}

}  // namespace

kodd::PropertyRef propertyOf(const kodd::ClassRef& cls, const std::string& name) {
  const kodd::PropertyRef property =
      cls.isValid() ? cls.findProperty(name) : kodd::PropertyRef();
  if (!property.isValid()) {
    kodiag::raise(
        {"KODD:kodd", "InvalidProperty"},
        {{"PropNameString", name}, {"ClassName", cls.isValid() ? cls.name() : std::string()}});
  }
  return property;
}

const kodd::ObjectRef& storedObject(const ObjectRef& object, const char* operand) {
  if (object.isNull()) {
    kodiag::raise({"KODD:kodd", "InvalidObject"},
                  {{"Operand", operand}, {"Reason", "the reference is null"}});
  }
  return object.getObjRef();
}

void readRawProperty(const ObjectRef& object, const std::string& name, int capacity,
                     void* buffer, int& length) {
  kodiag::util::diagnostics diag;
  storedObject(object).getPropertyValue(propertyOf(object.getClassRef(), name), capacity,
                                        buffer, length, diag);
  diag.raiseIfAny();
}

void readObjectProperty(const ObjectRef& object, const std::string& name,
                        std::unique_ptr<ObjectRef>& value, const std::string& targetClass) {
  storedObject(object);
  ObjectManager& manager = object.getObjectManager();
  const kodd::ObjectRef target = namedObject(object, propertyOf(object.getClassRef(), name));
  value.reset();
  if (target.id() == 0) return;
  if (!targetClass.empty() && manager.getClass(targetClass) != target.cls()) {
    kodiag::raise({"KODD:kodd", "NoSuchObject"},
                  {{"ObjectID", std::to_string(target.id())}, {"ClassName", targetClass}});
  }
  value = std::make_unique<ObjectRef>(target, target.cls(), target.cls().name(), manager);
}

void writeAndTell(const ObjectRef& object, const std::string& name,
                  const std::function<void()>& write) {
  ObjectManager& manager = object.getObjectManager();
  manager.inTransaction([&] {
    write();
    tellWatchers(object.getObjectType(), name, manager, object.getObjectID());
  });
}

}  // namespace vela
