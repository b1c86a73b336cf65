// Short forms for finding stored objects by their properties.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "objectmanager/objectmanager.h"

namespace vela {

inline ObjectManager::Constraint equals(const std::string& property, kodd::EntryValue value) {
  return {property, std::move(value), kodd::PropertyValueMatchRelation::Equal};
}

inline ObjectManager::Constraint differs(const std::string& property, kodd::EntryValue value) {
  return {property, std::move(value), kodd::PropertyValueMatchRelation::NotEqual};
}

/// IDs of the objects of the class that satisfy every constraint, in creation order.
std::vector<int> findIDs(ObjectManager& manager, const std::string& className,
                         const std::vector<ObjectManager::Constraint>& constraints);
/// The first of them; 0 when there is none.
int findFirstID(ObjectManager& manager, const std::string& className,
                const std::vector<ObjectManager::Constraint>& constraints);
/// The first of them; empty when there is none.
std::unique_ptr<ObjectRef> findFirst(ObjectManager& manager, const std::string& className,
                                     const std::vector<ObjectManager::Constraint>& constraints);
/// Their number.
int countObjects(ObjectManager& manager, const std::string& className,
                 const std::vector<ObjectManager::Constraint>& constraints);

}  // namespace vela
