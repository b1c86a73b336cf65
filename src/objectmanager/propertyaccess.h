// Reads and writes one property of a handle by name.
#pragma once

#include <string>
#include <type_traits>

#include "objectmanager/objectref.h"

namespace vela {

/// The property of that name. \throws "InvalidProperty"
kodd::PropertyRef propertyOf(const kodd::ClassRef& cls, const std::string& name);

/// The store's reference of a handle. \throws "InvalidObject" for a null one, which the message
/// calls `operand`
const kodd::ObjectRef& storedObject(const ObjectRef& object, const char* operand = "Object");

template <class T>
void readProperty(const ObjectRef& object, const std::string& name, T& value) {
  kodiag::util::diagnostics diag;
  storedObject(object).getPropertyValue(propertyOf(object.getClassRef(), name), value, diag);
  diag.raiseIfAny();
}

/// Raw bytes: copies at most `capacity` of them; `length` is the full length.
void readRawProperty(const ObjectRef& object, const std::string& name, int capacity,
                     void* buffer, int& length);

/// Null when the property names no object. A link to any class is resolved as well.
/// \throws "NoSuchObject" when the object is not of `targetClass` (empty: any)
void readObjectProperty(const ObjectRef& object, const std::string& name,
                        std::unique_ptr<ObjectRef>& value, const std::string& targetClass);

template <class T>
void writeProperty(const ObjectRef& object, const std::string& name, const T& value) {
  kodiag::util::diagnostics diag;
  const kodd::ObjectRef& stored = storedObject(object);
  const kodd::PropertyRef property = propertyOf(object.getClassRef(), name);
  if constexpr (std::is_same_v<T, kodd::EntryValue>) {
    stored.setPropertyValueLegacy(property, value, diag);
  } else {
    stored.setPropertyValue(property, value, diag);
  }
  diag.raiseIfAny();
}

}  // namespace vela
