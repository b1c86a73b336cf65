// Numbers of one class as numbers of another, without loss.
#pragma once

#include <string>

#include "host/arrays.h"

namespace vela::scripting {

/// The real or logical numbers of an array as a list of another class; the array itself when
/// it is of that class.
///
/// \throws "nexstore:nex:IntegerExpected" for a fraction or NaN where the class holds whole
///         numbers; "nexstore:nex:InvalidData" for a number that the class cannot hold exactly.
///         Both name the number and its index.
host::HostArray converted(const host::HostArray& numbers, host::ArrayClass cls,
                          const std::string& operation);

/// Whole numbers as a list of int64, an empty list from an empty array.
/// \throws "nexstore:nex:IntegerExpected" for anything but whole numbers
host::HostArray wholeNumbers(const host::HostArray& array, const std::string& operation);

}  // namespace vela::scripting
