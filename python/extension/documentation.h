// Texts for people and tools, made from what the methods declare.
#pragma once

#include <string>

#include "host/classes/classes.h"

namespace vela::python {

/// What `inspect.signature` reads: "($self, name, /)", "(file=None, /, *args)".
std::string textSignatureOf(const host::COSMethodInfo& method);
/// The docstring in NumPy form.
std::string documentationOf(const host::COSMethodInfo& method);
/// The docstring of the class with its signature in front, as a Python type takes it.
std::string documentationOf(const host::COSClassInfo& info);

/// The Python type a value of that declared kind has: as an input, and as an output.
std::string inputTypeOf(const host::Parameter& parameter);
std::string outputTypeOf(const host::Parameter& parameter);

}  // namespace vela::python
