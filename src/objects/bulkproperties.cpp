#include "objects/bulkproperties.h"

#include <utility>

namespace vela {

void BulkProperties::begin(ObjectRef& object) {
  if (open_) return;
  object.beginBulkPropertyUpdate();
  open_ = true;
}

void BulkProperties::commit(ObjectRef& object) {
  if (!open_) return;
  open_ = false;
  // Moved from, so that the values go whether the commit succeeds or not; a deque's elements
  // keep their addresses when it is moved.
  const std::deque<Value> values = std::move(values_);
  values_.clear();
  object.commitBulkPropertyUpdate();
}

void BulkProperties::setBlob(ObjectRef& object, const std::string& property,
                             std::vector<char> bytes) {
  const auto& kept = std::get<std::vector<char>>(values_.emplace_back(std::move(bytes)));
  set(object, property, kodd::const_BlobDescriptor(kept.data(), kept.size()));
  if (!open_) values_.clear();
}

}  // namespace vela
