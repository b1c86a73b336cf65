// Failures between the two languages.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "pythonapi.h"

namespace vela::python {

/// The input a message speaks of: "createRun: name".
struct Place {
  const char* method;
  const char* input;
};

/// A Python exception on its way through C++. Copied and destroyed with or without the lock.
class PythonException : public std::exception {
 public:
  /// Takes the error that is set. With the lock.
  PythonException();
  /// Sets the very same exception again. With the lock.
  void restore() const;
  /// Class and text.
  const char* what() const noexcept override { return text_->c_str(); }

 private:
  std::shared_ptr<PyObject> exception_;
  std::shared_ptr<const std::string> text_;
};

/// Throws the Python exception of that class, saying "method: input " before the text.
[[noreturn]] void refuse(PyObject* exceptionClass, const Place& place, const std::string& text);
/// "must be str, not int", as a TypeError.
[[noreturn]] void refuseType(const Place& place, const std::string& expected, py::handle given);
/// The name of a value's class as messages give it; for arrays also their dtype.
std::string typeName(py::handle value);

/// Sets the Python exception for the C++ exception that is being handled: vela.Error for a
/// message with an ID, and the same object again for what Python code had raised. With the
/// lock.
void setPythonError();

/// Calls `function`; on a C++ exception sets the Python one and returns `failure`.
template <class Result, class Function>
Result translating(Result failure, Function&& function) {
  try {
    return function();
  } catch (...) {
    setPythonError();
    return failure;
  }
}

/// Calls `function` on behalf of pybind11; a C++ exception becomes the Python one.
template <class Function>
auto raisingPythonErrors(const Function& function) {
  using Result = decltype(function());
  auto result = translating<std::optional<Result>>(
      std::nullopt, [&] { return std::optional<Result>(function()); });
  if (!result) throw py::error_already_set();
  return std::move(*result);
}

/// The same for a function that gives nothing back and needs no lock.
template <class Function>
py::none withoutResult(const Function& function) {
  return raisingPythonErrors([&] {
    withoutLock(function);
    return py::none();
  });
}

}  // namespace vela::python
