#include "signals.h"

#include <cstddef>
#include <string>

#include "errors.h"
#include "hostobject.h"
#include "scripting/arguments.h"
#include "scripting/samples.h"
#include "scripting/streams.h"
#include "toarray.h"

namespace vela::python {
namespace {

/// A signal as Python names it.
class SignalGiven {
 public:
  SignalGiven(py::handle repository, py::handle signal, const char* method)
      : repository_(objectGiven(repository, {method, "repository"}, "vela.Repository")),
        id_(toHostArray(signal, {method, "signal"})),
        operation_(method) {}

  const std::string& operation() const { return operation_; }

  /// Calls `function(manager, streams)` as one call of the repository. Without Python's lock.
  template <class Function>
  void call(const Function& function) const {
    const auto manager = scripting::getObjectManager(repository_, operation_);
    function(*manager,
             scripting::streamsOf(scripting::signalFromID(*manager, id_, operation_)));
  }

 private:
  std::shared_ptr<host::COSObject> repository_;
  host::HostArray id_;
  std::string operation_;
};

/// Without Python's lock.
void append(const SignalGiven& signal, const host::HostArray& givenTimes,
            const host::HostArray& givenValues, bool rewinds) {
  const std::string& operation = signal.operation();
  const host::HostArray times = scripting::timesIn(givenTimes, operation);
  const scripting::GivenValues values(givenValues, operation);
  signal.call([&](ObjectManager& manager, const scripting::Streams& streams) {
    manager.inTransaction([&] {
      if (!rewinds) {
        scripting::requireNotBeforeStored(streams, times, operation);
      } else if (!times.isEmpty()) {
        scripting::dropSamplesFrom(streams, times.values<double>().front());
      }
      scripting::appendSamples(streams, times, values, operation);
    });
  });
}

py::none appendSamples(py::handle repository, py::handle signal, py::handle times,
                       py::handle values, bool rewinds) {
  return raisingPythonErrors([&] {
    const SignalGiven given(repository, signal, "append");
    const host::HostArray givenTimes = toHostArray(times, {"append", "times"});
    const host::HostArray givenValues = toHostArray(values, {"append", "values"});
    withoutLock([&] { append(given, givenTimes, givenValues, rewinds); });
    return py::none();
  });
}

std::size_t countSamples(py::handle repository, py::handle signal) {
  return raisingPythonErrors([&] {
    const SignalGiven given(repository, signal, "len");
    std::size_t count = 0;
    withoutLock([&] {
      given.call([&](ObjectManager&, const scripting::Streams& streams) {
        count = streams.leaves.front()->getExtent().samples;
      });
    });
    return count;
  });
}

}  // namespace

void addSignalFunctions(py::module_& module) {
  module.def("appendSamples", &appendSamples, py::arg("repository"), py::arg("signal"),
             py::arg("times"), py::arg("values"), py::arg("rewinds"));
  module.def("countSamples", &countSamples, py::arg("repository"), py::arg("signal"));
}

}  // namespace vela::python
