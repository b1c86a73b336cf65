// Objects as values of properties: from handles to stored IDs and back.
#pragma once

#include <memory>

#include "kodd/objectref.h"
#include "kodd/session.h"
#include "kodd/storedvalue.h"

namespace kodd {

/// The ID to store for a property that is to name the object, 0 for an empty handle.
/// \throws "InvalidPropertyValue" for a property of another kind or an object of another class,
///         "InvalidObject" for one of another repository or that is gone
StoredValue storedObject(Session& session, const PropertyInfo& property,
                         const ObjectRef& object);

/// Throws "InvalidPropertyValue" when a reference is to be given the ID of no object of its
/// target class. Links are free.
void checkReferenceID(Session& session, const PropertyInfo& property, const StoredValue& value);

/// The ID of a handle used in this session; 0 for an empty one.
/// \throws "InvalidObject" for one of another repository
int idInSession(const Session& session, const ObjectRef& object);

/// The object with that ID, whatever its class; empty when there is none.
ObjectRef objectWithID(const std::shared_ptr<Session>& session, int id);

/// A stored whole number as the int that it has to be.
/// \throws "sqldb:ssdb:Corrupt" when it is none
int storedInt(const Session& session, long long value);

}  // namespace kodd
