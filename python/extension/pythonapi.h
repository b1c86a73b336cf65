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
}  // namespace detail

/// Calls `function` without the lock; what it throws comes out with the lock held again.
template <class Function>
void withoutLock(Function&& function) {
  std::exception_ptr failure;
  PyThreadState* const thread = detail::releaseLock();
  try {
    function();
  } catch (...) {
    failure = std::current_exception();
  }
  detail::retakeLock(thread);
  if (failure) std::rethrow_exception(std::move(failure));
}

/// A reference that may be dropped in any thread, with or without the lock.
std::shared_ptr<PyObject> sharedReference(py::handle object);

}  // namespace vela::python
