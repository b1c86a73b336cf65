#include "progress.h"

#include <memory>
#include <string>

#include "errors.h"
#include "progresstracker/abstractprogresstracker.h"
#include "text/utf8.h"

namespace vela::python {
namespace {

/// Only touched with the lock.
py::object& shownBy() {
  // Never destroyed: Python may be gone by then.
  static auto* const function = new py::object(py::none());
  return *function;
}

/// Calls Python at every step, in the thread that runs the operation.
class Tracker : public AbstractProgressTracker {
 public:
  using AbstractProgressTracker::AbstractProgressTracker;

  void updateValue(const unsigned& value) override {
    setValue(value);
    const LockHolder lock;
    if (PyErr_CheckSignals() != 0) throw PythonException();
    const py::object function = shownBy();
    if (function.is_none()) return;
    try {
      function(text::toUtf8(getMessage()), value, getMaxValue());
      return;
    } catch (...) {
      setPythonError();
    }
    throw PythonException();
  }
};

class TrackerFactory : public ProgressTrackerFactory {
  std::unique_ptr<AbstractProgressTracker> createTracker(const std::wstring& message,
                                                         unsigned maxValue,
                                                         bool modal) override {
    return std::make_unique<Tracker>(message, maxValue, modal);
  }
};

}  // namespace

void registerProgressTrackers() {
  const auto factory = std::make_shared<TrackerFactory>();
  for (const char* const key : {"SavingProgressBar", "LoadingProgressBar"}) {
    AbstractProgressTracker::setFactory(key, factory);
  }
}

py::object setProgress(const py::object& function) {
  if (!function.is_none() && !PyCallable_Check(function.ptr())) {
    translating(0, [&]() -> int {
      refuseType({"set_progress", "function"}, "callable or None", function);
    });
    throw py::error_already_set();
  }
  return std::exchange(shownBy(), function);
}

}  // namespace vela::python
