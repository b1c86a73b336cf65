// Arrays of the host as Python values.
#pragma once

#include "host/arrays.h"
#include "pythonapi.h"

namespace vela::python {

/// The value as Python code expects it: numbers as numpy scalars and arrays, text as str, cells
/// as lists, structures as dicts. The result owns its memory; it takes over that of an array
/// nobody else has. With the lock.
py::object toPython(host::HostArray value);

}  // namespace vela::python
