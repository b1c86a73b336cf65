#include "objectmanager/statementtimes.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <mutex>

namespace vela::statementtimes {
namespace {

struct Sum {
  std::uint64_t calls = 0;
  std::uint64_t nanoseconds = 0;
};

struct Sums {
  std::mutex mutex;
  std::map<std::string, Sum, std::less<>> byStatement;
};

// Never destroyed: repositories may be closed while the process ends.
Sums& sums() {
  static auto* const kept = new Sums;
  return *kept;
}

std::atomic<bool> enabled = false;

}  // namespace

void enable() {
  enabled = true;
}

bool areEnabled() {
  return enabled;
}

void record(std::string_view statement, std::uint64_t nanoseconds) {
  std::lock_guard lock(sums().mutex);
  auto place = sums().byStatement.find(statement);
  if (place == sums().byStatement.end()) {
    place = sums().byStatement.emplace(std::string(statement), Sum()).first;
  }
  ++place->second.calls;
  place->second.nanoseconds += nanoseconds;
}

std::vector<Row> rows() {
  std::vector<Row> rows;
  {
    std::lock_guard lock(sums().mutex);
    for (const auto& [statement, sum] : sums().byStatement) {
      rows.push_back({statement, sum.calls, static_cast<double>(sum.nanoseconds) * 1e-9});
    }
  }
  std::ranges::stable_sort(rows, std::greater<>(), &Row::totalSeconds);
  return rows;
}

}  // namespace vela::statementtimes
