#include "pythonapi.h"

#include <cxxabi.h>
#include <unistd.h>

namespace vela::python {
namespace {

[[noreturn]] void waitForTheEnd() {
  for (;;) pause();
}

/// Calls into the interpreter where that may end the thread.
template <class Function>
auto neverUnwinding(Function&& function) {
  if (isPythonGone()) waitForTheEnd();
  try {
    return function();
  } catch (const abi::__forced_unwind&) {
    waitForTheEnd();
  }
}

}  // namespace

bool isPythonGone() {
  return !Py_IsInitialized() || _Py_IsFinalizing();
}

LockHolder::LockHolder()
    // The thread that takes the interpreter down holds the lock and may come here.
    : state_(PyGILState_Check() ? PyGILState_Ensure()
                                : neverUnwinding([] { return PyGILState_Ensure(); })) {}

LockHolder::~LockHolder() {
  PyGILState_Release(state_);
}

namespace detail {

PyThreadState* releaseLock() {
  return PyEval_SaveThread();
}

void retakeLock(PyThreadState* thread) {
  // Not through isPythonGone(): the thread that takes the interpreter down comes here too, when
  // it drops the last objects, and gets its lock back.
  try {
    PyEval_RestoreThread(thread);
  } catch (const abi::__forced_unwind&) {
    waitForTheEnd();
  }
}

}  // namespace detail

std::shared_ptr<PyObject> sharedReference(py::handle object) {
  return {object.inc_ref().ptr(), [](PyObject* reference) {
            // Leaked where nobody can drop it any more.
            if (!PyGILState_Check() && isPythonGone()) return;
            const LockHolder lock;
            Py_DECREF(reference);
          }};
}

}  // namespace vela::python
