#include "sqldb/statementcache.h"

#include <sqlite3.h>

#include <algorithm>

namespace sqldb {
namespace {

constexpr std::size_t kRestingPerText = 4;

}  // namespace

StatementCache::Lease StatementCache::lease(std::string_view sql) {
  CachedStatement& found = entry(sql);
  byUse_.splice(byUse_.begin(), byUse_, found.place);
  sqlite3_stmt* handle = nullptr;
  if (found.resting.empty()) {
    handle = connection_.prepareOnly(sql, true);
    found.writes = sqlite3_stmt_readonly(handle) == 0;
  } else {
    handle = found.resting.back();
    found.resting.pop_back();
  }
  ++found.leased;
  return {&found, handle};
}

void StatementCache::giveBack(Lease lease) noexcept {
  sqlite3_reset(lease.handle);
  sqlite3_clear_bindings(lease.handle);
  --lease.entry->leased;
  if (lease.entry->resting.size() < kRestingPerText) {
    lease.entry->resting.push_back(lease.handle);
  } else {
    sqlite3_finalize(lease.handle);
  }
}

void StatementCache::clear() noexcept {
  for (auto& [sql, cached] : entries_) {
    for (sqlite3_stmt* handle : cached.resting) sqlite3_finalize(handle);
    cached.resting.clear();
  }
}

CachedStatement& StatementCache::entry(std::string_view sql) {
  if (const auto found = entries_.find(sql); found != entries_.end()) return found->second;
  if (entries_.size() >= capacity_) evictOldest();
  const auto made = entries_.try_emplace(std::string(sql)).first;
  CachedStatement& cached = made->second;
  cached.sql = made->first;
  cached.resting.reserve(kRestingPerText);
  cached.place = byUse_.insert(byUse_.begin(), &cached);
  return cached;
}

void StatementCache::evictOldest() {
  const auto oldest =
      std::find_if(byUse_.rbegin(), byUse_.rend(),
                   [](const CachedStatement* each) { return each->leased == 0; });
  if (oldest == byUse_.rend()) return;
  CachedStatement& cached = **oldest;
  for (sqlite3_stmt* handle : cached.resting) sqlite3_finalize(handle);
  byUse_.erase(cached.place);
  entries_.erase(entries_.find(cached.sql));
}

}  // namespace sqldb
