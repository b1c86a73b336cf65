#include "objectmanager/bulkupdates.h"

namespace vela {

void BulkUpdates::begin(const ObjectRef* handle, const kodd::ClassRef& cls,
                        kodd::DataModelRepository& repository) {
  std::lock_guard lock(mutex_);
  updates_.try_emplace(handle, cls, repository);
  openCount_ = updates_.size();
}

std::optional<BulkUpdate> BulkUpdates::take(const ObjectRef* handle) {
  if (openCount_ == 0) return std::nullopt;
  std::lock_guard lock(mutex_);
  auto node = updates_.extract(handle);
  openCount_ = updates_.size();
  if (node.empty()) return std::nullopt;
  return std::move(node.mapped());
}

void BulkUpdates::clear() {
  std::lock_guard lock(mutex_);
  updates_.clear();
  openCount_ = 0;
}

}  // namespace vela
