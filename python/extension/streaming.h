// Streams of the shared repository, for the package's own `Stream`.
#pragma once

#include "pythonapi.h"

namespace vela::python {

/// Adds the functions of streams to the module.
///
/// Rows travel as a pair: times, an array of shape (rows,), and values, an array of shape
/// (rows, channels), both doubles.
void addStreamFunctions(py::module_& module);

}  // namespace vela::python
