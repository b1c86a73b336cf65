// Reads and writes one property of a handle by name.
#pragma once

#include <functional>
#include <string>
#include <type_traits>

#include "objectmanager/objectref.h"
#include "objectmanager/propertywatch.h"

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

/// Runs `write`, and tells those who watch the property in the same unit of work.
void writeAndTell(const ObjectRef& object, const std::string& name,
                  const std::function<void()>& write);

template <class T>
void writeProperty(const ObjectRef& object, const std::string& name, const T& value) {
  const kodd::ObjectRef& stored = storedObject(object);
  const kodd::PropertyRef property = propertyOf(object.getClassRef(), name);
  const auto write = [&] {
    kodiag::util::diagnostics diag;
    if constexpr (std::is_same_v<T, kodd::EntryValue>) {
      stored.setPropertyValueLegacy(property, value, diag);
    } else {
      stored.setPropertyValue(property, value, diag);
    }
    diag.raiseIfAny();
  };
  if (isWatched(object.getObjectType(), name)) return writeAndTell(object, name, write);
  write();
}

}  // namespace vela
