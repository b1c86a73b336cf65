#include "progresstracker/abstractprogresstracker.h"

#include <mutex>
#include <unordered_map>
#include <utility>

namespace vela {
namespace {

using Factory = std::shared_ptr<ProgressTrackerFactory>;

struct Registry {
  std::mutex mutex;
  std::unordered_map<std::string, Factory> factories;
};

// Never destroyed: a host may register and remove while the process ends.
Registry& registry() {
  static auto* const kept = new Registry;
  return *kept;
}

Factory factoryOf(const std::string& key) {
  std::lock_guard lock(registry().mutex);
  const auto place = registry().factories.find(key);
  return place == registry().factories.end() ? nullptr : place->second;
}

}  // namespace

std::unique_ptr<AbstractProgressTracker> AbstractProgressTracker::createTracker(
    const std::string& key, const std::wstring& message, unsigned maxValue, bool modal) {
  const Factory factory = factoryOf(key);
  return factory ? factory->createTracker(message, maxValue, modal) : nullptr;
}

void AbstractProgressTracker::setFactory(const std::string& key, Factory factory) {
  // The former factory leaves with `factory`, when the lock is free again.
  std::lock_guard lock(registry().mutex);
  auto& factories = registry().factories;
  factories[key].swap(factory);
  if (!factories[key]) factories.erase(key);
}

void AbstractProgressTracker::removeFactory(const std::string& key) {
  setFactory(key, nullptr);
}

}  // namespace vela
