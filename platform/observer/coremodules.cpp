#include "observer/coremodules.h"

#include <map>
#include <mutex>
#include <utility>

namespace observer {
namespace {

struct Registry {
  std::mutex mutex;
  std::map<std::string, ModuleMaker> makers;
};

Registry& registry() {
  static Registry registered;
  return registered;
}

}  // namespace

void registerCoreModule(const std::string& name, ModuleMaker maker) {
  const std::lock_guard lock(registry().mutex);
  registry().makers[name] = std::move(maker);
}

void unregisterCoreModule(const std::string& name) {
  const std::lock_guard lock(registry().mutex);
  registry().makers.erase(name);
}

void* CoreModuleMap::loadAndInvokeFactory(const std::string& moduleName) {
  ModuleMaker maker;
  {
    const std::lock_guard lock(registry().mutex);
    const auto found = registry().makers.find(moduleName);
    if (found == registry().makers.end()) return nullptr;
    maker = found->second;
  }
  return maker ? maker() : nullptr;
}

}  // namespace observer
