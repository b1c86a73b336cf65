// Python functions as functions of the host.
#pragma once

#include <span>
#include <string>

#include "host/arrays.h"
#include "pythonapi.h"

namespace vela::python {

/// What these make of values reaches Python as it is, whatever it is.
inline const std::string kEnumerationConstructor =
    "Korvo.vela.createEnumValuesFromClassDefinition";
inline const std::string kFixedPointConstructor =
    "Korvo.vela.createFiObjectFromMetadataAndRealWorldValues";

/// The array that holds a Python function. Called, it takes Python's lock; what the function
/// raises comes out as a PythonException.
host::HostArray functionOf(py::handle callable);
/// The Python function in such an array; one of another language becomes callable from Python.
py::object pythonFunctionOf(const host::HostArray& array);

/// The Python value in an array that only a constructor's result can be; nothing otherwise.
py::object opaqueValue(const host::HostArray& array);

/// The first result of the host's function of that name, called without Python's lock.
host::HostArray callHostFunction(const std::string& name,
                                 std::span<const host::HostArray> arguments);

/// Sets the function the system calls by that name; None brings the built-in one back.
/// \returns the Python function that stood there before, or None
py::object registerHostFunction(const std::string& name, const py::object& function);

/// Offers the functions that are there when nobody sets any.
void registerBuiltInFunctions();

}  // namespace vela::python
