#include "objects/find.h"

#include "objects/raising.h"

namespace vela {
namespace {

using Constraints = std::vector<ObjectManager::Constraint>;

kodd::PropertyRef propertyOf(const kodd::ClassRef& cls, const std::string& property) {
  const kodd::PropertyRef ref = cls.findProperty(property);
  if (!ref.isValid()) {
    kodiag::raise({"KODD:kodd", "InvalidProperty"},
                  {{"PropNameString", property}, {"ClassName", cls.name()}});
  }
  return ref;
}

std::unique_ptr<kodd::ObjectQuery> queryFor(ObjectManager& manager, const kodd::ClassRef& cls,
                                            const Constraints& constraints) {
  std::unique_ptr<kodd::ObjectQuery> query = manager.createObjectQuery();
  for (const auto& [property, value, relation] : constraints) {
    query->addConstraint(propertyOf(cls, property), relation, &value);
  }
  return query;
}

}  // namespace

std::vector<int> findIDs(ObjectManager& manager, const std::string& className,
                         const Constraints& constraints) {
  const kodd::ClassRef cls = manager.getClass(className);
  const auto query = queryFor(manager, cls, constraints);
  int id = 0;
  query->addResultID(cls, &id);
  return raising([&](kodiag::util::diagnostics& diag) {
    std::vector<int> ids;
    kodd::ResultIterator rows = query->execute(diag);
    while (diag.empty() && rows.getNextResult(diag)) ids.push_back(id);
    return ids;
  });
}

int findFirstID(ObjectManager& manager, const std::string& className,
                const Constraints& constraints) {
  const kodd::ClassRef cls = manager.getClass(className);
  const auto query = queryFor(manager, cls, constraints);
  int id = 0;
  query->addResultID(cls, &id);
  query->setLimit(1);
  return raising(
      [&](kodiag::util::diagnostics& diag) { return query->executeForOne(diag) ? id : 0; });
}

std::unique_ptr<ObjectRef> findFirst(ObjectManager& manager, const std::string& className,
                                     const Constraints& constraints) {
  const int id = findFirstID(manager, className, constraints);
  bool found = false;
  return id == 0 ? nullptr : manager.findObject(id, className, found);
}

int countObjects(ObjectManager& manager, const std::string& className,
                 const Constraints& constraints) {
  const kodd::ClassRef cls = manager.getClass(className);
  kodd::Selection selection(cls);
  for (const auto& [property, value, relation] : constraints) {
    selection = std::move(selection).matching(propertyOf(cls, property), relation, value);
  }
  // IDs are 32-bit numbers, so there cannot be more objects than fit.
  return static_cast<int>(raising([&](kodiag::util::diagnostics& diag) {
    return manager.repository().countObjects(selection, diag);
  }));
}

}  // namespace vela
