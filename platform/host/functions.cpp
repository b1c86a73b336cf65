#include "host/functions.h"

#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "host/processmutex.h"
#include "kodiag/message.h"

namespace host {
namespace {

struct Offered {
  ProcessMutex mutex;
  // Shared, so that a call outlives the withdrawal of its function.
  std::map<std::string, std::shared_ptr<const HostFunction>> byName;
};

// Never destroyed: functions are offered and withdrawn by static objects of other units.
Offered& offered() {
  static auto* const functions = new Offered;
  return *functions;
}

std::shared_ptr<const HostFunction> find(const std::string& name) {
  const std::lock_guard lock(offered().mutex);
  const auto found = offered().byName.find(name);
  return found == offered().byName.end() ? nullptr : found->second;
}

}  // namespace

void registerFunction(const std::string& name, HostFunction function) {
  auto shared = std::make_shared<const HostFunction>(std::move(function));
  const std::lock_guard lock(offered().mutex);
  offered().byName[name].swap(shared);
}

bool unregisterFunction(const std::string& name) {
  const std::lock_guard lock(offered().mutex);
  return offered().byName.erase(name) != 0;
}

bool hasFunction(const std::string& name) {
  return find(name) != nullptr;
}

HostArrays callFunction(const std::string& name, std::span<const HostArray> arguments,
                        std::size_t resultCount) {
  const auto function = find(name);
  if (!function || !*function) {
    kodiag::raise({"nexstore:nex", "NoSuchHostFunction"}, {{"FunctionName", name}});
  }
  HostArrays results = (*function)(arguments, resultCount);
  if (results.size() < resultCount) {
    kodiag::raise({"nexstore:nex", "HostFunctionResults"},
                  {{"FunctionName", name},
                   {"Expected", std::to_string(resultCount)},
                   {"Actual", std::to_string(results.size())}});
  }
  results.resize(resultCount);
  return results;
}

}  // namespace host
