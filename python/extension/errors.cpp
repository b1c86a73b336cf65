#include "errors.h"

#include <cxxabi.h>

#include <vector>

#include "kodiag/diagnostics.h"

namespace vela::python {
namespace {

using kodiag::Message;
using kodiag::except::ExceptionWithCauses;

py::str asText(const std::string& text) {
  return py::reinterpret_steal<py::str>(
      checked(
          PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"))
          .release());
}

py::object errorOf(const Message& message, const py::object& makeError) {
  py::list causes;
  for (const Message& cause : message.causes) causes.append(errorOf(cause, makeError));
  return makeError(asText(message.id.str()), asText(message.text()), causes);
}

/// The error a script sees: the innermost message names it, the units of work around it and
/// what led to it are its causes.
py::object errorOf(const ExceptionWithCauses& exception, const py::object& makeError) {
  const Message& innermost = exception.innermost();
  py::list causes;
  for (const Message* unit = &exception.message(); unit != &innermost;
       unit = &unit->causes.front()) {
    causes.append(makeError(asText(unit->id.str()), asText(unit->text()), py::tuple()));
  }
  for (const Message& cause : innermost.causes) causes.append(errorOf(cause, makeError));
  return makeError(asText(innermost.id.str()), asText(innermost.text()), causes);
}

/// Where a unit of work failed by an exception of Python code, restores that.
bool restoreOriginal(const Message& outermost) {
  for (const Message* message = &outermost;; message = &message->causes.front()) {
    if (message->original) {
      try {
        std::rethrow_exception(message->original);
      } catch (const PythonException& exception) {
        exception.restore();
        return true;
      } catch (...) {
        // Any other is told by its message.
      }
    }
    if (message->causes.empty()) return false;
  }
}

void setError(const ExceptionWithCauses& exception) {
  if (restoreOriginal(exception.message())) return;
  const py::object makeError = py::module_::import("vela._errors").attr("make_error");
  const py::object error = errorOf(exception, makeError);
  PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
}

}  // namespace

PythonException::PythonException() {
  PyObject* type = nullptr;
  PyObject* value = nullptr;
  PyObject* traceback = nullptr;
  PyErr_Fetch(&type, &value, &traceback);
  PyErr_NormalizeException(&type, &value, &traceback);
  if (traceback) PyException_SetTraceback(value, traceback);
  exception_ = sharedReference(value);
  std::string text = reinterpret_cast<PyTypeObject*>(type)->tp_name;
  const py::object words = py::reinterpret_steal<py::object>(PyObject_Str(value));
  const char* const utf8 = words ? PyUnicode_AsUTF8(words.ptr()) : nullptr;
  if (utf8 && *utf8) text += std::string(": ") + utf8;
  PyErr_Clear();
  text_ = std::make_shared<const std::string>(std::move(text));
  Py_XDECREF(type);
  Py_XDECREF(value);
  Py_XDECREF(traceback);
}

void PythonException::restore() const {
  PyObject* const value = exception_.get();
  PyObject* const type = reinterpret_cast<PyObject*>(Py_TYPE(value));
  PyErr_Restore(Py_NewRef(type), Py_NewRef(value), PyException_GetTraceback(value));
}

void refuse(PyObject* exceptionClass, const Place& place, const std::string& text) {
  const std::string input = place.input ? std::string(place.input) + " " : "";
  PyErr_SetString(exceptionClass, (place.method + (": " + input) + text).c_str());
  throw py::error_already_set();
}

std::string typeName(py::handle value) {
  const std::string name = Py_TYPE(value.ptr())->tp_name;
  if (!PyArray_Check(value.ptr())) return name;
  auto* const array = reinterpret_cast<PyArrayObject*>(value.ptr());
  const py::object dtype =
      py::reinterpret_borrow<py::object>(reinterpret_cast<PyObject*>(PyArray_DESCR(array)));
  return name + " of " + std::string(py::str(dtype)) + " with " +
         std::to_string(PyArray_NDIM(array)) + " dimensions";
}

void refuseType(const Place& place, const std::string& expected, py::handle given) {
  refuse(PyExc_TypeError, place, "must be " + expected + ", not " + typeName(given));
}

void setPythonError() {
  try {
    throw;
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const PythonException& exception) {
    exception.restore();
  } catch (py::error_already_set& exception) {
    exception.restore();
  } catch (const ExceptionWithCauses& exception) {
    try {
      setError(exception);
    } catch (py::error_already_set& failure) {
      failure.restore();
    }
  } catch (const std::bad_alloc&) {
    PyErr_NoMemory();
  } catch (const std::exception& exception) {
    PyErr_SetString(PyExc_RuntimeError, exception.what());
  } catch (...) {
    PyErr_SetString(PyExc_RuntimeError, "unknown failure");
  }
}

}  // namespace vela::python
