#include "objectmanager/propertywatch.h"

#include <unordered_map>
#include <vector>

namespace vela {
namespace {

struct Watcher {
  std::string className;
  PropertyListener listener;
};

/// By property.
std::unordered_map<std::string, std::vector<Watcher>>& allWatchers() {
  static auto* const all = new std::unordered_map<std::string, std::vector<Watcher>>;
  return *all;
}

template <class Use>
void forEachWatcher(const std::string& className, const std::string& property, Use&& use) {
  const auto found = allWatchers().find(property);
  if (found == allWatchers().end()) return;
  for (const Watcher& watcher : found->second) {
    if (watcher.className == className) use(watcher.listener);
  }
}

}  // namespace

void watchProperties(const std::string& className,
                     std::initializer_list<const std::string*> properties,
                     PropertyListener listener) {
  for (const std::string* property : properties)
    allWatchers()[*property].push_back({className, listener});
}

bool isWatched(const std::string& className, const std::string& property) {
  bool watched = false;
  forEachWatcher(className, property, [&](PropertyListener) { watched = true; });
  return watched;
}

void tellWatchers(const std::string& className, const std::string& property,
                  ObjectManager& manager, int objectID) {
  forEachWatcher(className, property,
                 [&](PropertyListener listener) { listener(manager, objectID); });
}

}  // namespace vela
