#include "objectmanager/bulkdeletions.h"

#include <algorithm>

namespace vela {

void BulkDeletions::Pending::add(const kodd::ObjectRef& object, std::uint64_t order) {
  objects_.push_back(object);
  orders_.push_back(order);
}

void BulkDeletions::Pending::dropFrom(std::uint64_t order) {
  const auto kept = static_cast<std::size_t>(
      std::lower_bound(orders_.begin(), orders_.end(), order) - orders_.begin());
  objects_.resize(kept);
  orders_.resize(kept);
}

void BulkDeletions::Pending::deleteAll(kodiag::util::diagnostics& diag) {
  deleter_.deleteObjects(objects_, diag);
}

void BulkDeletions::begin(const kodd::ClassRef& cls, kodd::DataModelRepository& repository) {
  if (pending_.try_emplace(cls, cls, repository, nextOrder_).second) ++nextOrder_;
}

bool BulkDeletions::add(const kodd::ObjectRef& object) {
  const auto found = pending_.find(object.cls());
  if (found == pending_.end()) return false;
  found->second.add(object, nextOrder_++);
  return true;
}

std::optional<BulkDeletions::Pending> BulkDeletions::take(const kodd::ClassRef& cls) {
  auto node = pending_.extract(cls);
  if (node.empty()) return std::nullopt;
  return std::move(node.mapped());
}

int BulkDeletions::openBracket() {
  brackets_.push_back(nextOrder_++);
  return openBrackets() - 1;
}

int BulkDeletions::closeBracket() {
  if (!brackets_.empty()) brackets_.pop_back();
  return openBrackets();
}

void BulkDeletions::clear() {
  pending_.clear();
  brackets_.clear();
}

void BulkDeletions::rollBackTo(std::uint64_t mark) {
  std::erase_if(brackets_, [mark](std::uint64_t opened) { return opened >= mark; });
  std::erase_if(pending_, [mark](const auto& entry) { return entry.second.begun() >= mark; });
  for (auto& [cls, pending] : pending_) pending.dropFrom(mark);
}

}  // namespace vela
