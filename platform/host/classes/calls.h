// Calls methods of script classes with host arrays, converting to and from declared types.
#pragma once

#include <cstddef>
#include <span>

#include "host/classes/classes.h"

namespace host {

/// \throws "nexstore:nex:InputCount" when a method of that signature cannot take so many
void checkInputCount(const COSMethodInfo& method, std::size_t count);

/// One input as its declared type asks for. Whole numbers of any real class go to integers,
/// real numbers to doubles, logical values, 0 and 1 to "logical scalar"; nothing is rounded or
/// wrapped.
/// \param index  of the input; further inputs, behind the declared ones, are of type "any"
/// \throws "nexstore:nex:InvalidInput" naming method, parameter and what came
InputValue convertInput(const COSMethodInfo& method, std::size_t index, const HostArray& given);

/// An output as an array: scalars of class int32, int64, double or logical as declared.
HostArray convertOutput(const Parameter& declared, const OutputValue& value);

/// Checks and converts the inputs, calls the method, converts its outputs. Not for
/// constructors.
HostArrays callMethod(const COSMethodInfo& method, std::span<const HostArray> inputs);

/// A new object of the class, made by its constructor.
std::shared_ptr<COSObject> construct(const COSClassInfo& cls,
                                     std::span<const HostArray> inputs);

}  // namespace host
