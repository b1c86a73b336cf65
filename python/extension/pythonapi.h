// Python and numpy as the extension uses them, and who holds the interpreter's lock.
#pragma once

#define PY_SSIZE_T_CLEAN
#define NPY_NO_DEPRECATED_API NPY_1_7_API_VERSION
#define PY_ARRAY_UNIQUE_SYMBOL velaNumpyApi
#ifndef VELA_IMPORTS_NUMPY
#define NO_IMPORT_ARRAY
#endif

#include <pybind11/pybind11.h>

#include <numpy/arrayobject.h>
#include <numpy/arrayscalars.h>
#include <structmember.h>

#include <exception>
#include <memory>
#include <utility>

#include "host/interrupt.h"

namespace vela::python {

namespace py = pybind11;

/// Takes a new reference; a null one stands for the Python error that was set.
/// \throws py::error_already_set
inline py::object checked(PyObject* reference) {
  if (!reference) throw py::error_already_set();
  return py::reinterpret_steal<py::object>(reference);
}

/// Whether Python is going away: its lock cannot be had any more, its objects are not to be
/// touched.
bool isPythonGone();

/// Takes the lock, from any thread, for as long as it lives.
///
/// A thread that comes too late, when the interpreter is being taken down, stays here for good:
/// the process is about to end, and unwinding would touch objects that are gone.
class LockHolder {
 public:
  LockHolder();
  ~LockHolder();
  LockHolder(const LockHolder&) = delete;
  LockHolder& operator=(const LockHolder&) = delete;

 private:
  PyGILState_STATE state_;
};

namespace detail {
PyThreadState* releaseLock();
void retakeLock(PyThreadState* thread);
/// \throws RuntimeError in a signal handler that runs in the middle of another call
void refuseInSignalHandler();
/// Throws what a signal handler has raised since the lock was released. With the lock.
void raiseFromSignalHandler();

/// What `function` throws, called without the lock; null when it returns.
template <class Function>
std::exception_ptr failureWithoutLock(Function& function) {
  std::exception_ptr failure;
  PyThreadState* const thread = releaseLock();
  try {
    function();
  } catch (...) {
    failure = std::current_exception();
  }
  retakeLock(thread);
  return failure;
}
}  // namespace detail

/// Calls `function` without the lock; what it throws comes out with the lock held again. Where
/// a signal handler raises meanwhile, the function is stopped and that exception comes out.
template <class Function>
void withoutLock(Function&& function) {
  detail::refuseInSignalHandler();
  const std::exception_ptr failure = detail::failureWithoutLock(function);
  detail::raiseFromSignalHandler();
  if (failure) std::rethrow_exception(failure);
}

/// The same for what must not stop half-way: signals wait until it is done.
template <class Function>
void withoutLockToTheEnd(Function&& function) {
  const host::Uninterruptible whole;
  const std::exception_ptr failure = detail::failureWithoutLock(function);
  if (failure) std::rethrow_exception(failure);
}

/// A reference that may be dropped in any thread, with or without the lock.
std::shared_ptr<PyObject> sharedReference(py::handle object);

}  // namespace vela::python
