#include "ko_register/coremodulefactory.h"

#include <mutex>

namespace vela {

NexCoreModuleMap& NexCoreModuleFactory::moduleMap() const {
  static NexCoreModuleMap map(loadsOnDemand_);
  return map;
}

void* NexCoreModuleFactory::invokeFactory(const std::string& moduleName) {
  NexCoreModuleMap& map = moduleMap();
  const std::lock_guard lock(map.criticalSection());
  return map.loadAndInvokeFactory(moduleName);
}

}  // namespace vela
