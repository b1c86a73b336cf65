// Short forms for acting on sets of stored objects, one statement each.
#pragma once

#include <string>
#include <vector>

#include "objectmanager/objectmanager.h"

namespace vela {

/// The objects of the class with those IDs. Not for an empty list: a selection without IDs is
/// the whole class.
kodd::Selection withIDs(ObjectManager& manager, const std::string& className,
                        const std::vector<int>& ids);
/// The objects of the class whose "InstanceID" is that.
kodd::Selection ofInstance(ObjectManager& manager, const std::string& className,
                           long long instanceID);
/// The objects of the class whose `property` names one of the others.
kodd::Selection referring(ObjectManager& manager, const std::string& className,
                          const std::string& property, const kodd::Selection& others);
/// The objects of the class that `property` of one of the others names.
kodd::Selection referencedBy(ObjectManager& manager, const std::string& className,
                             const std::string& property, const kodd::Selection& others);
/// Those of the selection whose property is `value`, or stands in that relation to it.
kodd::Selection where(
    kodd::Selection selection, const std::string& property, const kodd::EntryValue& value,
    kodd::PropertyValueMatchRelation relation = kodd::PropertyValueMatchRelation::Equal);

/// By that property when one is given, then in creation order.
std::vector<int> selectedIDs(ObjectManager& manager, const kodd::Selection& selection,
                             const std::string& orderBy = {});
long long countSelected(ObjectManager& manager, const kodd::Selection& selection);
/// \returns how many there were
long long removeSelected(ObjectManager& manager, const kodd::Selection& selection);
void writeToSelected(ObjectManager& manager, const kodd::Selection& selection,
                     const std::string& property, int value);
void writeToSelected(ObjectManager& manager, const kodd::Selection& selection,
                     const std::string& property, long long value);

}  // namespace vela
