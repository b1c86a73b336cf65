// What the package does with signals beyond the methods of a repository.
#pragma once

#include "pythonapi.h"

namespace vela::python {

void addSignalFunctions(py::module_& module);

}  // namespace vela::python
