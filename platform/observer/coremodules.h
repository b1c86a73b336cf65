// Core modules made by name, and the factories that make them.
#pragma once

#include <functional>
#include <string>

namespace observer {

/// Makes modules by name.
class AdapterFactory {
 public:
  AdapterFactory() = default;
  virtual ~AdapterFactory() = default;
  AdapterFactory(const AdapterFactory&) = delete;
  AdapterFactory& operator=(const AdapterFactory&) = delete;

  /// The created module, which belongs to the caller; null when the name is unknown.
  virtual void* invokeFactory(const std::string& moduleName) = 0;
};

using ModuleMaker = std::function<void*()>;

/// Makes a core module known to the process under a name; replaces one of the same name.
/// Threads: any.
void registerCoreModule(const std::string& name, ModuleMaker maker);
void unregisterCoreModule(const std::string& name);

/// The view of one component on the process's core modules.
class CoreModuleMap {
 public:
  CoreModuleMap() = default;
  virtual ~CoreModuleMap() = default;
  CoreModuleMap(const CoreModuleMap&) = delete;
  CoreModuleMap& operator=(const CoreModuleMap&) = delete;

  /// How many modules the map holds ready without loading; components that load on demand
  /// answer 0.
  virtual int preloadedModules() const = 0;

  /// Calls the maker of that name. \returns what it made; null for an unknown name
  /// \throws whatever the maker throws
  void* loadAndInvokeFactory(const std::string& moduleName);
};

}  // namespace observer
