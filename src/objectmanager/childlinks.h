// Links between a parent and its children: collection properties named after the child's class.
#pragma once

#include <boost/ptr_container/ptr_vector.hpp>
#include <string>

#include "objectmanager/objectref.h"

namespace vela {

/// Every function raises "InvalidObject" for a null "ParentObject" or "ChildObject", and
/// "InvalidProperty" when the parent's class holds no children of that class.

/// Makes the child belong to the parent; one that belonged to another moves here.
void linkChild(ObjectRef& parent, ObjectRef& child);
/// Does nothing when the child does not belong to the parent.
void unlinkChild(ObjectRef& parent, ObjectRef& child);
bool isLinkedChild(const ObjectRef& parent, const ObjectRef& child);
/// Appends the children of that class that satisfy every constraint, in creation order.
void appendChildren(const ObjectRef& parent, const std::string& childClass,
                    const kodd::MatchConstraints& constraints,
                    boost::ptr_vector<ObjectRef>& children);

/// The class of the parent's children of that name.
kodd::ClassRef childClassOf(const ObjectRef& parent, const std::string& childClass);

}  // namespace vela
