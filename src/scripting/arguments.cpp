#include "scripting/arguments.h"

#include <cmath>
#include <utility>

#include "scripting/errors.h"
#include "scripting/wrapper.h"

namespace vela::scripting {
namespace {

[[noreturn]] void raiseNotNumeric(const host::HostArray& array, const std::string& operation) {
  throwScriptingError({"nexstore:nex", "NumericScalarExpected"},
                      {{"Operation", operation}, {"Actual", array.describe()}});
}

/// The number as it was given.
std::string numberText(const host::HostArray& id) {
  return id.visitNumbers([](const auto& values) { return std::to_string(values[0]); });
}

}  // namespace

std::shared_ptr<ObjectManager> getObjectManager(const host::InputValue& repository,
                                                const std::string& operation) {
  const auto& object = std::get<std::shared_ptr<host::COSObject>>(repository);
  auto manager = dynamic_cast<ObjectManagerWrapper&>(object->instanceData()).getObjMgr();
  if (!manager) {
    throwScriptingError({"nexstore:nex", "RepositoryClosed"}, {{"Operation", operation}});
  }
  return manager;
}

int idFromHostArray(const host::HostArray& array, const std::string& operation) {
  if (!array.isNumeric() || array.isComplex() || !array.isScalar()) {
    raiseNotNumeric(array, operation);
  }
  return array.visitNumbers([&]<class T>(std::span<const T> values) -> int {
    const T value = values[0];
    if constexpr (std::is_floating_point_v<T>) {
      if (std::isfinite(value) && std::trunc(value) != value) raiseNotNumeric(array, operation);
      const bool fits = value >= static_cast<T>(-0x1p31) && value < static_cast<T>(0x1p31);
      return fits ? static_cast<int>(value) : 0;
    } else if constexpr (std::is_same_v<T, bool>) {
      raiseNotNumeric(array, operation);
    } else {
      return std::in_range<int>(value) ? static_cast<int>(value) : 0;
    }
  });
}

boost::shared_ptr<Set> runFromID(ObjectManager& manager, const host::HostArray& id,
                                 const std::string& operation) {
  boost::shared_ptr<Set> run;
  if (!Set::lookupSet(idFromHostArray(id, operation), run, manager)) {
    throwScriptingError({"nexstore:nex", "NoSuchRun"},
                        {{"Operation", operation}, {"RunID", numberText(id)}});
  }
  return run;
}

boost::shared_ptr<Signal> signalFromID(ObjectManager& manager, const host::HostArray& id,
                                       const std::string& operation) {
  boost::shared_ptr<Signal> signal;
  if (!Signal::lookupSignal(idFromHostArray(id, operation), signal, manager)) {
    throwScriptingError({"nexstore:nex", "NoSuchSignal"},
                        {{"Operation", operation}, {"SignalID", numberText(id)}});
  }
  return signal;
}

}  // namespace vela::scripting
