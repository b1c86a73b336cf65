// How the observer framework finds the repository's core module.
#pragma once

#include <string>

#include "host/criticalsection.h"
#include "observer/coremodules.h"

namespace vela {

/// The core modules as this component sees them; guards their loading.
class NexCoreModuleMap : public observer::CoreModuleMap {
 public:
  /// \param loadsOnDemand  how the framework asked for the map; kept for it
  explicit NexCoreModuleMap(bool loadsOnDemand) : loadsOnDemand_(loadsOnDemand) {}

  int preloadedModules() const override { return 0; }
  bool loadsOnDemand() const { return loadsOnDemand_; }
  /// Held around every load: modules are never loaded two at a time through one map.
  host::CriticalSection& criticalSection() { return criticalSection_; }

 private:
  host::CriticalSection criticalSection_{4000};
  bool loadsOnDemand_;
};

/// Makes core modules through the process's one NexCoreModuleMap. Threads: any.
class NexCoreModuleFactory : public observer::AdapterFactory {
 public:
  explicit NexCoreModuleFactory(bool loadsOnDemand) : loadsOnDemand_(loadsOnDemand) {}

  /// The module of that name, null when it is unknown.
  /// \throws whatever its loading throws; the next call is free to load again
  void* invokeFactory(const std::string& moduleName) override;

  /// The process's map, made by whichever factory is asked first.
  NexCoreModuleMap& moduleMap() const;

 private:
  bool loadsOnDemand_;
};

}  // namespace vela
