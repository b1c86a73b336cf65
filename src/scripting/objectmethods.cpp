// Stored objects of any class: creation, properties, links, queries.
#include "kodd/hostarraycodec.h"
#include "objects/find.h"
#include "scripting/errors.h"
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

using host::HostArray;

std::unique_ptr<ObjectRef> objectWithID(ObjectManager& manager, int id) {
  bool found = false;
  std::unique_ptr<ObjectRef> object = manager.findObject(id, found);
  if (!found) {
    throwScriptingError({"KODD:kodd", "InvalidObject"},
                        {{"Operand", "Object " + std::to_string(id)},
                         {"Reason", "there is no object of that ID"}});
  }
  return object;
}

HostArray idsOf(const boost::ptr_vector<ObjectRef>& objects) {
  std::vector<int> ids;
  for (const ObjectRef& object : objects) ids.push_back(object.getObjectID());
  return HostArray::list(std::move(ids));
}

/// Names and values in turn.
std::vector<HostArray> namesAndValues(const std::optional<Any<"name">>& first,
                                      const Further& further) {
  std::vector<HostArray> all;
  if (first) all.push_back(first->value);
  for (std::size_t i = 0; i < further.size(); ++i) all.push_back(further[i]);
  return all;
}

void requireTextNames(const std::vector<HostArray>& pairs, const kodiag::MessageID& id,
                      const std::string& operation) {
  for (std::size_t i = 0; i < pairs.size(); i += 2) {
    if (pairs[i].isText()) continue;
    const std::string actual = pairs[i].describe();
    throwScriptingError(
        id, {{"Operation", operation},
             {"Operand", actual},
             {"Reason", operation + " needs a property name, a text, in its place"}});
  }
}

[[noreturn]] void raiseMismatched(const std::string& operation) {
  throwScriptingError({"nexstore:nex", "MismatchedPropVal"}, {{"Operation", operation}});
}

/// The trailing flag behind an odd number of names and values; false when there is none.
bool takeWideFlag(std::vector<HostArray>& pairs) {
  if (pairs.size() % 2 == 0) return false;
  const HostArray last = pairs.back();
  if (!last.isLogical() || !last.isScalar()) raiseMismatched("setProperty");
  pairs.pop_back();
  return last.toBool();
}

void writeProperty(ObjectRef& object, const std::string& name, const HostArray& value,
                   bool wide) {
  if (!value.isText()) {
    // A scalar is converted by the store, which knows whether the property keeps arrays.
    object.setProperty(name, &value);
  } else if (wide) {
    object.setPropertyUString(name, value.toWide());
  } else {
    object.setProperty(name, value.toString());
  }
}

Int32<"objectID"> createObject(Repository repository, Ascii<"className"> className) {
  return {repository.manager.createObject(className, true)->getObjectID()};
}

void removeObject(Repository repository, Int32<"objectID"> id) {
  bool found = false;
  const auto object = repository.manager.findObject(id, found);
  if (!found) {
    throwScriptingError({"KODD:kodd", "NoSuchObject"},
                        {{"ObjectID", std::to_string(id)}, {"ClassName", "any"}});
  }
  kodiag::util::diagnostics raised;
  object->removeObject(raised);
}

void setProperty(Repository repository, Int32<"objectID"> id,
                 std::optional<Any<"name">> firstName, Further further) {
  std::vector<HostArray> pairs = namesAndValues(firstName, further);
  const bool wide = takeWideFlag(pairs);
  requireTextNames(pairs, {"nexstore:nex", "PropNameString"}, "setProperty");
  repository.manager.inTransaction([&] {
    const auto object = objectWithID(repository.manager, id);
    for (std::size_t i = 0; i < pairs.size(); i += 2) {
      writeProperty(*object, pairs[i].toString(), pairs[i + 1], wide);
    }
  });
}

Any<"value"> getProperty(Reading repository, Int32<"objectID"> id, Ascii<"name"> name,
                         std::optional<Flag<"wide">> wide) {
  const auto object = objectWithID(repository.manager, id);
  if (wide && *wide) return {HostArray::text(object->getPropertyUString(name))};
  kodd::EntryValue value;
  object->getProperty(name, value);
  return {kodd::convertEntryValueToHostArray(value)};
}

void addChild(Repository repository, Int32<"parentID"> parentID, Int32<"childID"> childID) {
  const auto parent = objectWithID(repository.manager, parentID);
  const auto child = objectWithID(repository.manager, childID);
  parent->addChild(*child);
}

void removeChild(Repository repository, Int32<"parentID"> parentID, Int32<"childID"> childID) {
  const auto parent = objectWithID(repository.manager, parentID);
  const auto child = objectWithID(repository.manager, childID);
  parent->removeChild(*child);
}

Any<"childIDs"> getChildren(Reading repository, Int32<"objectID"> id,
                            Ascii<"className"> className) {
  boost::ptr_vector<ObjectRef> children;
  objectWithID(repository.manager, id)->getChildren(className, {}, children);
  return {idsOf(children)};
}

Any<"objectIDs"> findObjects(Reading repository, Ascii<"className"> className,
                             std::optional<Any<"name">> firstName, Further further) {
  const std::vector<HostArray> pairs = namesAndValues(firstName, further);
  if (pairs.size() % 2 != 0) raiseMismatched("findObjects");
  requireTextNames(pairs, {"KODD:kodd", "InvalidObject"}, "findObjects");
  std::vector<ObjectManager::Constraint> constraints;
  for (std::size_t i = 0; i < pairs.size(); i += 2) {
    const HostArray& value = pairs[i + 1];
    constraints.push_back(equals(pairs[i].toString(),
                                 value.isText() ? kodd::EntryValue(value.toWide())
                                                : kodd::convertHostArrayToEntryValue(value)));
  }
  boost::ptr_vector<ObjectRef> found;
  repository.manager.findObjects(className, constraints, found);
  return {idsOf(found)};
}

Any<"locked"> getLock(Repository) {
  return {HostArray::scalar(false)};
}

// Locking is not offered.
void setLock(Repository, Any<"lock">) {}

struct VelaRepositoryCreateObject
    : Method<
          "createObject",
          "Create an object of a class; \"package.Class\" reaches classes of other packages.",
          &createObject, "KODD:kodd:NoSuchObjectType"> {};
struct VelaRepositoryRemoveObject
    : Method<"removeObject", "Remove an object.", &removeObject, "KODD:kodd:NoSuchObject"> {};
struct VelaRepositorySetProperty
    : Method<"setProperty",
             "Set properties of an object, all or none, from names and values in turn; a "
             "trailing true stores texts as wide ones.",
             &setProperty, "nexstore:nex:MismatchedPropVal", "nexstore:nex:PropNameString",
             "KODD:kodd:InvalidObject", "KODD:kodd:InvalidProperty",
             "KODD:kodd:InvalidPropertyValue"> {};
struct VelaRepositoryGetProperty
    : Method<
          "getProperty",
          "Value of a property of an object; an object as value reads as its ID, 0 for none.",
          &getProperty, "KODD:kodd:InvalidObject", "KODD:kodd:InvalidProperty"> {};
struct VelaRepositoryAddChild
    : Method<"addChild", "Put an object into the parent's collection of its class.", &addChild,
             "KODD:kodd:InvalidObject", "KODD:kodd:InvalidProperty"> {};
struct VelaRepositoryRemoveChild
    : Method<"removeChild", "Take an object out of the parent's collection of its class.",
             &removeChild, "KODD:kodd:InvalidObject", "KODD:kodd:InvalidProperty"> {};
struct VelaRepositoryGetChildren
    : Method<"getChildren", "IDs of an object's children of a class, in creation order.",
             &getChildren, "KODD:kodd:InvalidObject", "KODD:kodd:InvalidProperty"> {};
struct VelaRepositoryFindObjects
    : Method<"findObjects",
             "IDs of the objects of a class whose properties have the given values, from names "
             "and values in turn, in creation order.",
             &findObjects, "KODD:kodd:NoSuchObjectType", "KODD:kodd:InvalidObject",
             "KODD:kodd:InvalidProperty", "KODD:kodd:InvalidPropertyValue",
             "nexstore:nex:MismatchedPropVal"> {};
struct VelaRepositoryGetSource
    : RepositoryGetter<"getSource", &ObjectManager::getDatabaseLocation, Any<"file">,
                       "Location of the repository file, as it was given."> {};
struct VelaRepositoryGetLock : Method<"getLock", "Always false.", &getLock> {};
struct VelaRepositorySetLock : Method<"setLock", "Do nothing.", &setLock> {};

}  // namespace

void addObjectMethods(Methods& methods) {
  methods.add<VelaRepositoryCreateObject, VelaRepositoryRemoveObject, VelaRepositorySetProperty,
              VelaRepositoryGetProperty, VelaRepositoryAddChild, VelaRepositoryRemoveChild,
              VelaRepositoryGetChildren, VelaRepositoryFindObjects, VelaRepositoryGetSource,
              VelaRepositoryGetLock, VelaRepositorySetLock>();
}

}  // namespace vela::scripting
