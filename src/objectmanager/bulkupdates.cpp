#include "objectmanager/bulkupdates.h"

namespace vela {

void BulkUpdates::begin(const ObjectRef* handle, const kodd::ClassRef& cls,
                        kodd::DataModelRepository& repository) {
  std::lock_guard lock(mutex_);
  modifiers_.try_emplace(handle, cls, repository);
  openCount_ = modifiers_.size();
}

std::optional<kodd::ObjectModifier> BulkUpdates::take(const ObjectRef* handle) {
  if (openCount_ == 0) return std::nullopt;
  std::lock_guard lock(mutex_);
  auto node = modifiers_.extract(handle);
  openCount_ = modifiers_.size();
  if (node.empty()) return std::nullopt;
  return std::move(node.mapped());
}

void BulkUpdates::clear() {
  std::lock_guard lock(mutex_);
  modifiers_.clear();
  openCount_ = 0;
}

}  // namespace vela
