#include "objectmanager/childlinks.h"

#include "kodiag/message.h"
#include "objectmanager/objectmanager.h"
#include "objectmanager/propertyaccess.h"

namespace vela {
namespace {

kodd::PropertyRef collectionNamed(const ObjectRef& parent, const std::string& childClass) {
  const kodd::PropertyRef property = propertyOf(parent.getClassRef(), childClass);
  if (property.kind() != kodd::PropertyKind::collection) {
    kodiag::raise({"KODD:kodd", "InvalidProperty"},
                  {{"PropNameString", childClass}, {"ClassName", parent.getObjectType()}});
  }
  return property;
}

kodd::CollectionRef childrenOf(const ObjectRef& parent, const std::string& childClass) {
  kodiag::util::diagnostics diag;
  kodd::CollectionRef collection;
  storedObject(parent, "ParentObject")
      .getPropertyValue(collectionNamed(parent, childClass), collection, diag);
  diag.raiseIfAny();
  return collection;
}

}  // namespace

void linkChild(ObjectRef& parent, ObjectRef& child) {
  storedObject(parent, "ParentObject");
  const kodd::ObjectRef& member = storedObject(child, "ChildObject");
  kodiag::util::diagnostics diag;
  childrenOf(parent, child.getObjectType()).push_back(member, diag);
  diag.raiseIfAny();
}

void unlinkChild(ObjectRef& parent, ObjectRef& child) {
  storedObject(parent, "ParentObject");
  kodd::ObjectRef member = storedObject(child, "ChildObject");
  kodiag::util::diagnostics diag;
  childrenOf(parent, child.getObjectType()).remove(member, diag);
  diag.raiseIfAny();
}

bool isLinkedChild(const ObjectRef& parent, const ObjectRef& child) {
  const kodd::ObjectRef& owner = storedObject(parent, "ParentObject");
  const kodd::ObjectRef& member = storedObject(child, "ChildObject");
  const kodd::PropertyRef collection = collectionNamed(parent, child.getObjectType());
  if (owner.session() != member.session()) return false;

  kodd::Selection membership =
      kodd::Selection(child.getClassRef())
          .withId(member.id())
          .matching(kodd::PropertyRef(collection.info()->via),
                    kodd::PropertyValueMatchRelation::Equal, owner.id());
  kodiag::util::diagnostics diag;
  const long long count = parent.getObjectManager().repository().countObjects(membership, diag);
  diag.raiseIfAny();
  return count > 0;
}

void appendChildren(const ObjectRef& parent, const std::string& childClass,
                    const kodd::MatchConstraints& constraints,
                    boost::ptr_vector<ObjectRef>& children) {
  kodiag::util::diagnostics diag;
  std::vector<kodd::ObjectRef> members;
  childrenOf(parent, childClass).findObjects(constraints, members, diag);
  diag.raiseIfAny();
  for (const kodd::ObjectRef& member : members) {
    children.push_back(
        new ObjectRef(member, member.cls(), member.cls().name(), parent.getObjectManager()));
  }
}

kodd::ClassRef childClassOf(const ObjectRef& parent, const std::string& childClass) {
  storedObject(parent, "ParentObject");
  return kodd::ClassRef(collectionNamed(parent, childClass).info()->target);
}

}  // namespace vela
