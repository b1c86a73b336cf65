// Objects of the host's script classes as Python objects.
#pragma once

#include <memory>
#include <string>

#include "errors.h"
#include "host/classes/classes.h"
#include "pythonapi.h"

namespace vela::python {

/// Makes the Python class of a class of the host: its methods, documentation and life.
/// \param package  the module the class says it is from
py::object makePythonClass(const host::COSClassInfo& info, const std::string& package);

bool isHostObject(PyObject* object);
/// The host's object in a Python one; null while `__init__` has not been called.
const std::shared_ptr<host::COSObject>& objectIn(PyObject* object);
/// The same for an input of a function. \throws TypeError "must be ..." for anything else
const std::shared_ptr<host::COSObject>& objectGiven(py::handle object, const Place& place,
                                                    const std::string& expected);
/// The array that holds it.
host::HostArray arrayOf(PyObject* object);
/// The Python object of an object of the host: the one there is, or a new one.
py::object pythonObjectOf(const std::shared_ptr<host::COSObject>& object);

/// Closes every object that is alive. Without Python's lock.
void closeAllObjects();

}  // namespace vela::python
