#include "objectmanager/findobjects.h"

#include "kodiag/message.h"
#include "objectmanager/propertyaccess.h"

namespace vela {
namespace {

const kodd::ObjectRef& referencedObject(const ObjectManager::ObjectConstraint& constraint) {
  const ObjectRef* const object = constraint.get<1>();
  if (!object) {
    kodiag::raise({"KODD:kodd", "InvalidObject"},
                  {{"Operand", "The object for property \"" + constraint.get<0>() + "\""},
                   {"Reason", "it is missing"}});
  }
  return object->getObjRef();
}

}  // namespace

std::vector<kodd::ObjectRef> findStoredObjects(kodd::DataModelRepository& repository,
                                               const ObjectSearch& search) {
  kodd::ObjectQuery query(repository);
  for (const auto& [name, value, relation] : search.constraints) {
    query.addConstraint(propertyOf(search.cls, name), relation, &value);
  }
  for (const ObjectManager::ObjectConstraint& constraint : search.objectConstraints) {
    query.addObjectConstraint(propertyOf(search.cls, constraint.get<0>()), true,
                              &referencedObject(constraint));
  }
  kodd::ObjectRef object;
  query.addResultObject(search.cls, &object);
  if (!search.orderBy.empty()) {
    query.setOrderByProperty(propertyOf(search.cls, search.orderBy), search.order);
  }

  kodiag::util::diagnostics diag;
  std::vector<kodd::ObjectRef> found;
  kodd::ResultIterator rows = query.execute(diag);
  while (diag.empty() && rows.getNextResult(diag)) found.push_back(object);
  diag.raiseIfAny();
  return found;
}

kodd::MatchConstraints matchConstraints(
    const kodd::ClassRef& cls, const std::vector<ObjectManager::Constraint>& constraints) {
  kodd::MatchConstraints matches;
  for (const auto& [name, value, relation] : constraints) {
    matches.addConstraintLegacy(propertyOf(cls, name), relation, value);
  }
  return matches;
}

std::vector<kodd::PropertyRef> constrainedProperties(
    const kodd::ClassRef& cls, const std::vector<ObjectManager::Constraint>& constraints,
    const std::vector<ObjectManager::ObjectConstraint>& objectConstraints) {
  std::vector<kodd::PropertyRef> properties;
  for (const auto& constraint : constraints) {
    properties.push_back(cls.findProperty(constraint.get<0>()));
  }
  for (const auto& constraint : objectConstraints) {
    properties.push_back(cls.findProperty(constraint.get<0>()));
  }
  return properties;
}

}  // namespace vela
