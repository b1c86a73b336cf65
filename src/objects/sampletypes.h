// What the data type of a signal says about its samples.
#pragma once

#include <optional>
#include <string>

#include "fixedpoint/fixedpoint.h"

namespace vela {

class ObjectManager;

/// Classification, or name of the built-in type, of the "DataType" with that ID; empty when
/// there is none.
std::string typeLabelOf(ObjectManager& manager, int dataType);

/// The fixed-point type that "DataType" stands for; none for any other.
std::optional<fxpDataTypeProp> fixedPointTypeOf(ObjectManager& manager, int dataType);

}  // namespace vela
