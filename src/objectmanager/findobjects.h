// The general object query, and the one among the children of an object.
#pragma once

#include <boost/ptr_container/ptr_vector.hpp>
#include <string>
#include <vector>

#include "objectmanager/objectmanager.h"

namespace vela {

/// What to look for among the objects of one class.
struct ObjectSearch {
  kodd::ClassRef cls;
  const std::vector<ObjectManager::Constraint>& constraints;
  const std::vector<ObjectManager::ObjectConstraint>& objectConstraints;
  std::string orderBy;  ///< empty: creation order
  kodd::ObjectQuery::SortOrder order;
};

/// \throws "InvalidProperty", "InvalidObject" for a missing object of an object constraint
std::vector<kodd::ObjectRef> findStoredObjects(kodd::DataModelRepository& repository,
                                               const ObjectSearch& search);

/// The constraints as the store's own. \throws "InvalidProperty"
kodd::MatchConstraints matchConstraints(
    const kodd::ClassRef& cls, const std::vector<ObjectManager::Constraint>& constraints);

/// The constrained properties, in order.
std::vector<kodd::PropertyRef> constrainedProperties(
    const kodd::ClassRef& cls, const std::vector<ObjectManager::Constraint>& constraints,
    const std::vector<ObjectManager::ObjectConstraint>& objectConstraints);

}  // namespace vela
