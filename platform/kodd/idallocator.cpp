#include "kodd/idallocator.h"

#include <algorithm>
#include <cassert>
#include <utility>

#include "kodiag/message.h"

namespace kodd {

IdAllocator::IdAllocator(Connection database, const Layout& layout)
    : database_(std::move(database)),
      layout_(layout),
      states_(layout.model().classes().size()) {}

int IdAllocator::next(const ClassInfo& cls) const {
  const State& current = state(cls);
  assert(current.left > 0);
  return current.block * kBlockSize + (kBlockSize - current.left);
}

void IdAllocator::take(const ClassInfo& cls) {
  --state(cls).left;
}

std::vector<IdAllocator::Range> IdAllocator::takeMany(const ClassInfo& cls, long long count) {
  std::vector<Range> ranges;
  while (count > 0) {
    if (!hasFree(cls)) reserve(cls);
    State& current = state(cls);
    const int first = next(cls);
    const int taken = static_cast<int>(std::min<long long>(count, current.left));
    current.left -= taken;
    count -= taken;
    if (!ranges.empty() && ranges.back().first + ranges.back().count == first) {
      ranges.back().count += taken;
    } else {
      ranges.push_back({first, taken});
    }
  }
  return ranges;
}

void IdAllocator::reserve(const ClassInfo& cls) {
  uncommitted_.reserve(uncommitted_.size() + 1);
  if (!reclaimOrphan(cls)) {
    const int block = freshBlock();
    // First: the row goes with the unit that is undone, and IDs of it may be in somebody's
    // hands.
    database_().noteNumber(static_cast<std::uint64_t>(block));
    insertBlock(block, cls);
    highestBlock_ = block;
    state(cls) = {block, kBlockSize, 0};
  }
  const int block = state(cls).block;
  uncommitted_.push_back({block, &cls});
  rememberClass(block, &cls);
}

bool IdAllocator::reclaimOrphan(const ClassInfo& cls) {
  State& current = state(cls);
  if (current.orphaned == 0 || !insertBlock(current.block, cls)) return false;
  current.left = current.orphaned;
  current.orphaned = 0;
  return true;
}

bool IdAllocator::insertBlock(int block, const ClassInfo& cls) {
  sqldb::Statement insert =
      database_().statement("INSERT OR IGNORE INTO kodd_blocks(b,class) VALUES(?,?)");
  insert.bind(1, block);
  insert.bind(2, layout_.of(cls).number);
  return insert.run() == 1;
}

int IdAllocator::freshBlock() const {
  sqldb::Statement query = database_().statement("SELECT coalesce(max(b),0) FROM kodd_blocks");
  query.step();
  // A number that no block can have does not come from us.
  const std::uint64_t noted = database_().notedNumber();
  const long long stored = std::max<long long>(
      query.int64(0), noted <= kLastBlock ? static_cast<long long>(noted) : 0);
  if (stored >= kLastBlock || highestBlock_ >= kLastBlock) {
    kodiag::raise({"KODD:kodd", "OutOfIDs"}, {{"Location", database_().location()}});
  }
  return std::max(highestBlock_, static_cast<int>(stored)) + 1;
}

void IdAllocator::rolledBack(std::size_t mark) noexcept {
  while (uncommitted_.size() > mark) {
    const Reservation undone = uncommitted_.back();
    uncommitted_.pop_back();
    {
      const std::lock_guard guard(classesMutex_);
      classes_.erase(undone.block);
    }
    State& current = state(*undone.cls);
    // An earlier block of the same level was used up before.
    if (current.block != undone.block) continue;
    current.orphaned = current.left;
    current.left = 0;
  }
}

const ClassInfo* IdAllocator::classOf(int id) {
  if (id < kBlockSize) return nullptr;
  const int block = id / kBlockSize;
  {
    const std::lock_guard guard(classesMutex_);
    if (const auto known = classes_.find(block); known != classes_.end()) return known->second;
  }
  sqldb::Statement query = database_().statement("SELECT class FROM kodd_blocks WHERE b=?");
  query.bind(1, block);
  if (!query.step()) return nullptr;
  const ClassInfo* cls = layout_.classNumbered(static_cast<int>(query.int64(0)));
  rememberClass(block, cls);
  return cls;
}

void IdAllocator::rememberClass(int block, const ClassInfo* cls) {
  const std::lock_guard guard(classesMutex_);
  classes_[block] = cls;
}

}  // namespace kodd
