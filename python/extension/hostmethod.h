// One method of a script class, as Python calls it.
#pragma once

#include "host/classes/classes.h"
#include "pythonapi.h"

namespace vela::python {

/// Readies the type of the method objects; once, when the module is loaded.
void initializeMethodType();

/// A callable for the method that binds like a function. Inputs are positional or named.
/// \param qualifiedClass  "vela.Repository"
py::object makeMethod(const host::COSMethodInfo& method, const std::string& qualifiedClass);

/// Calls the constructor for a new object.
void callConstructor(const host::COSMethodInfo& constructor,
                     const std::shared_ptr<host::COSObject>& object, PyObject* args,
                     PyObject* keywords);

}  // namespace vela::python
