#include "known.h"

namespace vela::python {
namespace {

PyObject* found(const char* module, const char* name) {
  return py::module_::import(module).attr(name).cast<py::object>().release().ptr();
}

}  // namespace

Known& known() {
  static Known known;
  return known;
}

void findKnown() {
  known() = {reinterpret_cast<PyTypeObject*>(found("enum", "IntEnum")),
             reinterpret_cast<PyTypeObject*>(found("vela._values", "FixedPoint")),
             reinterpret_cast<PyTypeObject*>(found("numpy.ma", "MaskedArray")),
             found("vela._values", "without_mask"),
             found("vela._values", "enumeration_members"),
             found("vela._values", "fixed_point_values")};
}

}  // namespace vela::python
