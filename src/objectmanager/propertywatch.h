// Who is told when properties change: keepers of values that were worked out from them.
#pragma once

#include <initializer_list>
#include <string>

namespace vela {

class ObjectManager;

/// Told of a changed object, in the unit of work of the write.
using PropertyListener = void (*)(ObjectManager& manager, int objectID);

/// Has the listener told of every write to one of these properties of an object of the class
/// that goes through an ObjectRef or ObjectManager, bulk updates at their commit. Writers of
/// whole selections and initial values tell nobody. For static initialisation.
void watchProperties(const std::string& className,
                     std::initializer_list<const std::string*> properties,
                     PropertyListener listener);

bool isWatched(const std::string& className, const std::string& property);
/// Tells the listeners to that property.
void tellWatchers(const std::string& className, const std::string& property,
                  ObjectManager& manager, int objectID);

}  // namespace vela
