// Bulk property updates: the writes of one handle, bound first and sent as one modification.
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include "kodd/preparedwriters.h"

namespace vela {

class ObjectRef;

/// A bulk update: the values are read when it is committed.
struct BulkUpdate {
  BulkUpdate(const kodd::ClassRef& cls, kodd::DataModelRepository& repository)
      : modifier(cls, repository) {}

  kodd::ObjectModifier modifier;
  std::set<std::string> properties;  ///< that have been bound
};

/// The open bulk updates of one manager, by the address of the caller's handle.
///
/// Two handles to one object have separate updates. Threads: any number, as long as each handle
/// is used by one.
class BulkUpdates {
 public:
  /// Does nothing when an update is open on the handle.
  void begin(const ObjectRef* handle, const kodd::ClassRef& cls,
             kodd::DataModelRepository& repository);
  /// Binds the value when an update is open on the handle. \returns whether one is
  template <class T>
  bool bind(const ObjectRef* handle, const kodd::PropertyRef& property, const T* value) {
    if (openCount_ == 0) return false;
    std::lock_guard lock(mutex_);
    const auto found = updates_.find(handle);
    if (found == updates_.end()) return false;
    found->second.modifier.setPropertyValueSource(property, value);
    found->second.properties.insert(property.name());
    return true;
  }
  /// Ends the update of the handle. \returns none when no update was open
  std::optional<BulkUpdate> take(const ObjectRef* handle);
  void clear();

 private:
  std::mutex mutex_;
  std::map<const ObjectRef*, BulkUpdate, std::less<>> updates_;
  // Lets the many handles that never had an update come and go without the mutex.
  std::atomic<std::size_t> openCount_ = 0;
};

}  // namespace vela
