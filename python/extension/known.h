// Python classes and functions the extension asks for by name, found once.
#pragma once

#include "pythonapi.h"

namespace vela::python {

struct Known {
  PyTypeObject* intEnum = nullptr;         ///< enum.IntEnum
  PyTypeObject* fixedPoint = nullptr;      ///< vela.FixedPoint
  PyTypeObject* maskedArray = nullptr;     ///< numpy.ma.MaskedArray
  PyObject* withoutMask = nullptr;         ///< its elements, NaN where one is masked
  PyObject* enumerationMembers = nullptr;  ///< makes members of an enumeration
  PyObject* fixedPointValues = nullptr;    ///< makes a vela.FixedPoint
};

/// Filled when the module is loaded; kept until the process ends.
Known& known();
void findKnown();

}  // namespace vela::python
