// The progress of long operations, shown by Python.
#pragma once

#include "pythonapi.h"

namespace vela::python {

/// Long operations from now on stop at an interrupt from the keyboard, and tell the function
/// that setProgress() sets how far they are.
void registerProgressTrackers();

/// The function is called with a message, a value from 0 on and a maximum; what it raises stops
/// the operation, which leaves no trace. None: nobody is told.
/// \returns the function that stood there before, or None
py::object setProgress(const py::object& function);

}  // namespace vela::python
