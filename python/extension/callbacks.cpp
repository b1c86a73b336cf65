#include "callbacks.h"

#include <map>
#include <utility>

#include "errors.h"
#include "fromarray.h"
#include "host/functions.h"
#include "known.h"
#include "toarray.h"

namespace vela::python {
namespace {

using host::HostArray;
using host::HostArrays;

const std::string kOpaqueClass = "python.object";

py::tuple asTuple(std::span<const HostArray> arguments) {
  py::tuple tuple(arguments.size());
  for (std::size_t i = 0; i < arguments.size(); ++i) tuple[i] = toPython(arguments[i]);
  return tuple;
}

/// A Python function as the host calls it.
class PythonFunction {
 public:
  enum class Results { converted, opaque };

  PythonFunction(py::handle callable, std::string name, Results results)
      : callable_(sharedReference(callable)), name_(std::move(name)), results_(results) {}

  py::object callable() const { return py::reinterpret_borrow<py::object>(callable_.get()); }

  HostArrays operator()(std::span<const HostArray> arguments, std::size_t resultCount) const {
    const LockHolder lock;
    try {
      const py::object result = callable()(*asTuple(arguments));
      return converted(result, resultCount);
    } catch (...) {
      // Whatever was thrown on the way: conversions raise messages of their own.
      setPythonError();
    }
    throw PythonException();
  }

 private:
  HostArrays converted(const py::object& result, std::size_t resultCount) const {
    if (results_ == Results::opaque) {
      return {HostArray::scriptObject(kOpaqueClass, sharedReference(result))};
    }
    const Place place{name_.c_str(), "result"};
    if (resultCount < 2) return {toOwnedHostArray(result, place)};
    if (!py::isinstance<py::tuple>(result)) refuseType(place, "a tuple", result);
    HostArrays results;
    for (const py::handle each : result) results.push_back(toOwnedHostArray(each, place));
    return results;
  }

  std::shared_ptr<PyObject> callable_;
  std::string name_;
  Results results_;
};

/// What stands behind a name while no Python function does.
host::HostFunction builtInFunction(const std::string& name) {
  if (name == kEnumerationConstructor) {
    return PythonFunction(known().enumerationMembers, name, PythonFunction::Results::opaque);
  }
  if (name == kFixedPointConstructor) {
    return PythonFunction(known().fixedPointValues, name, PythonFunction::Results::opaque);
  }
  return nullptr;
}

/// The Python functions that are set, by name. Only touched with the lock.
std::map<std::string, py::object>& functionsOfPython() {
  // Never destroyed: Python may be gone by then.
  static auto* const functions = new std::map<std::string, py::object>;
  return *functions;
}

}  // namespace

HostArray functionOf(py::handle callable) {
  return HostArray::function(
      PythonFunction(callable, "the function", PythonFunction::Results::converted));
}

py::object pythonFunctionOf(const HostArray& array) {
  if (const auto* const ours = array.toFunction().target<PythonFunction>())
    return ours->callable();
  return py::cpp_function([function = array.toFunction()](const py::args& given) -> py::object {
    const Place place{"the host's function", "input"};
    HostArrays arguments;
    for (const py::handle each : given) arguments.push_back(toHostArray(each, place));
    HostArrays results;
    try {
      withoutLock([&] { results = function(arguments, 1); });
    } catch (...) {
      setPythonError();
      throw py::error_already_set();
    }
    return results.empty() ? py::none() : toPython(std::move(results.front()));
  });
}

py::object opaqueValue(const HostArray& array) {
  if (!array.isScriptObject() || array.scriptClass() != kOpaqueClass) return {};
  return py::reinterpret_borrow<py::object>(
      static_cast<PyObject*>(array.scriptPointer().get()));
}

HostArray callHostFunction(const std::string& name, std::span<const HostArray> arguments) {
  HostArrays results;
  withoutLock([&] { results = host::callFunction(name, arguments); });
  return std::move(results.front());
}

py::object registerHostFunction(const std::string& name, const py::object& function) {
  if (!function.is_none() && !PyCallable_Check(function.ptr())) {
    refuseType({"register", "function"}, "callable or None", function);
  }
  std::map<std::string, py::object>& functions = functionsOfPython();
  const auto before = functions.find(name);
  py::object previous = before == functions.end() ? py::none() : before->second;
  host::HostFunction wanted = builtInFunction(name);
  if (function.is_none()) {
    functions.erase(name);
  } else {
    functions[name] = function;
    const bool isConstructor = wanted != nullptr;
    wanted = PythonFunction(
        function, name,
        isConstructor ? PythonFunction::Results::opaque : PythonFunction::Results::converted);
  }
  withoutLock([&] {
    if (wanted) {
      host::registerFunction(name, std::move(wanted));
    } else {
      host::unregisterFunction(name);
    }
  });
  return previous;
}

void registerBuiltInFunctions() {
  for (const std::string& name : {kEnumerationConstructor, kFixedPointConstructor}) {
    if (!functionsOfPython().contains(name))
      host::registerFunction(name, builtInFunction(name));
  }
}

}  // namespace vela::python
