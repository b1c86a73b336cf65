// The values a handle has been given inside a bulk property update, kept until it is committed.
#pragma once

#include <deque>
#include <string>
#include <variant>
#include <vector>

#include "objectmanager/objectref.h"

namespace vela {

/// Lets setters take values that die before a bulk update is committed: a bulk update binds by
/// address, so every value is first copied to a place that lives until the commit.
class BulkProperties {
 public:
  bool isOpen() const { return open_; }
  /// Opens the bulk update of `object`; a second begin goes on with the open one.
  void begin(ObjectRef& object);
  /// Writes what was set since the begin and forgets the values. A failure forgets them too.
  void commit(ObjectRef& object);

  /// Writes at once, or at the commit when a bulk update of this object is open.
  template <class T>
  void set(ObjectRef& object, const std::string& property, const T& value) {
    if (open_) {
      object.setPropertyWithBulkSupport(property, &std::get<T>(values_.emplace_back(value)));
    } else {
      object.setPropertyWithBulkSupport(property, &value);
    }
  }
  /// The same for the bytes of a blob property.
  void setBlob(ObjectRef& object, const std::string& property, std::vector<char> bytes);

 private:
  using Value = std::variant<int, long long, double, std::string, std::wstring, kodd::ObjectRef,
                             std::vector<char>, kodd::const_BlobDescriptor>;

  bool open_ = false;
  // A deque keeps the addresses of what it holds when it grows.
  std::deque<Value> values_;
};

}  // namespace vela
