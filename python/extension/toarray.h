// Python values as arrays of the host.
#pragma once

#include <cstdint>
#include <string>

#include "errors.h"
#include "host/arrays.h"
#include "pythonapi.h"

namespace vela::python {

// All need the lock. What cannot be taken raises TypeError, numbers out of range OverflowError,
// text with half a surrogate pair ValueError; the message names the place.

/// Any value.
///
/// None is the empty 0x0 array; numpy arrays keep class and shape and are borrowed where their
/// memory is column-major, aligned and in native byte order, else copied once; masked elements
/// become NaN, those of types without one raise ValueError; lists of numbers
/// become what numpy.asarray makes of them, other lists cells; dicts become structures.
/// Nesting is refused beyond 64 levels (ValueError).
host::HostArray toHostArray(py::handle value, const Place& place);
/// The same without borrowing: for values that Python code may change while the array lives.
host::HostArray toOwnedHostArray(py::handle value, const Place& place);

/// A list of whole numbers as a list of that class: int32 or uint8.
host::HostArray toVector(py::handle value, host::ArrayClass cls, const Place& place);

std::int64_t toInteger(py::handle value, std::int64_t lowest, std::int64_t highest,
                       const Place& place);
double toDouble(py::handle value, const Place& place);
bool toLogical(py::handle value, const Place& place);
/// \param isFileName  whether an os.PathLike will do
std::wstring toWideText(py::handle value, bool isFileName, const Place& place);
std::string toNarrowText(py::handle value, bool isFileName, const Place& place);

}  // namespace vela::python
