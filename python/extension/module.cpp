// The extension module `vela._vela`: the classes the host's class system holds, and a few
// functions.
#define VELA_IMPORTS_NUMPY
#include <chrono>
#include <future>
#include <limits>
#include <memory>
#include <thread>

#include "callbacks.h"
#include "comparing.h"
#include "documentation.h"
#include "errors.h"
#include "hostmethod.h"
#include "hostobject.h"
#include "known.h"
#include "objects/signal.h"
#include "progress.h"
#include "pythonapi.h"
#include "scripting/module.h"
#include "signalhandling.h"
#include "signals.h"
#include "streaming.h"
#include "toarray.h"

namespace vela::python {
namespace {

/// How long the end of the process waits for threads that are inside a call.
constexpr std::chrono::seconds kPatience(5);

void importNumpy() {
  if (_import_array() < 0) throw py::error_already_set();
}

/// Closes what is open. A thread that never returns from its call must not keep the process
/// alive.
void terminate() {
  const auto done = std::make_shared<std::promise<void>>();
  std::future<void> ended = done->get_future();
  withoutLockToTheEnd([&] {
    std::thread([done] {
      closeAllObjects();
      QueryOBFcnTable_nexstore()->terminate();
      done->set_value();
    }).detach();
    ended.wait_for(kPatience);
  });
}

py::list describeParameters(const std::vector<host::Parameter>& parameters, std::size_t first,
                            std::string (*typeOf)(const host::Parameter&)) {
  py::list list;
  for (std::size_t i = first; i < parameters.size(); ++i) {
    list.append(
        py::make_tuple(parameters[i].name, typeOf(parameters[i]), parameters[i].isOptional));
  }
  return list;
}

py::list describeMethods(const host::COSClassInfo& info) {
  py::list methods;
  for (const auto& method : info.methodInfos()) {
    const host::MethodSignature& signature = method->signature();
    const bool isConstructor = method.get() == info.constructor();
    py::dict entry;
    entry["name"] = isConstructor ? "__init__" : method->name();
    entry["static"] = !method->isInstanceMethod() && !isConstructor;
    entry["inputs"] = describeParameters(signature.inputs(), method->isInstanceMethod() ? 1 : 0,
                                         &inputTypeOf);
    entry["outputs"] =
        isConstructor ? py::list() : describeParameters(signature.outputs(), 0, &outputTypeOf);
    entry["more"] = signature.acceptsMoreInputs();
    methods.append(entry);
  }
  return methods;
}

/// Puts one Python class for each class of the host into the module, and what they declare into
/// `declarations`.
void addClasses(py::module_& module) {
  py::dict declarations;
  for (host::COSPackage* const package : host::COSPackage::allPackages()) {
    for (const host::COSClassInfo* const info : package->classes()) {
      module.attr(info->name().c_str()) = makePythonClass(*info, package->name());
      declarations[py::str(info->name())] = describeMethods(*info);
    }
  }
  module.attr("declarations") = declarations;
}

void setMinimumChunkNumBytes(const py::object& bytes) {
  const int checkedBytes = static_cast<int>(toInteger(bytes, 0, std::numeric_limits<int>::max(),
                                                      {"setMinimumChunkNumBytes", "bytes"}));
  withoutLock([&] { Signal::setMinimumChunkNumBytes(checkedBytes); });
}

void addFunctions(py::module_& module) {
  module.def("setMinimumChunkNumBytes", &setMinimumChunkNumBytes, py::arg("bytes"), R"(
Set how small a chunk of samples may be in this process, 0 or more.

Samples that are appended join the newest chunk of their signal while that holds fewer bytes.
0 gives every append a chunk of its own.)");
  module.def("compareRuns", &compareRuns, py::arg("baseline"), py::arg("baselineRun"),
             py::arg("compared"), py::arg("comparedRun"), py::arg("settings"),
             py::arg("isStoring"));
  module.def("set_progress", &setProgress, py::arg("function"), R"(
Set the function that is told how far a long operation, saving or loading, is.

It is called as function(message, value, maximum) in the thread of the operation. What it raises stops
the operation, which then leaves no trace. None: nobody is told. Returns the function before.)");
  module.def("registerHostFunction", &registerHostFunction, py::arg("name"),
             py::arg("function"));
}

int load(PyObject* self) {
  return translating(-1, [&] {
    if (PyInterpreterState_Get() != PyInterpreterState_Main()) {
      throw py::import_error("vela can be used in the main interpreter only");
    }
    auto module = py::reinterpret_borrow<py::module_>(self);
    if (py::hasattr(module, "declarations")) return 0;
    importNumpy();
    findKnown();
    initializeMethodType();
    registerBuiltInFunctions();
    registerProgressTrackers();
    handleSignalsDuringCalls();
    QueryOBFcnTable_nexstore()->initialize();
    addClasses(module);
    addFunctions(module);
    addSignalFunctions(module);
    addStreamFunctions(module);
    py::module_::import("atexit").attr("register")(py::cpp_function(&terminate));
    return 0;
  });
}

PyModuleDef_Slot slots[] = {{Py_mod_exec, reinterpret_cast<void*>(load)}, {0, nullptr}};

PyModuleDef definition = {PyModuleDef_HEAD_INIT,
                          "vela._vela",
                          "Classes of the host; see the package vela.",
                          0,
                          nullptr,
                          slots,
                          nullptr,
                          nullptr,
                          nullptr};

}  // namespace
}  // namespace vela::python

extern "C" PyMODINIT_FUNC PyInit__vela() {
  return PyModuleDef_Init(&vela::python::definition);
}
