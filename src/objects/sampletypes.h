// What the data type of a signal says about its samples.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "fixedpoint/fixedpoint.h"

namespace vela {

class ClassDef;
class ObjectManager;

/// Classification, or name of the built-in type, of the "DataType" with that ID; empty when
/// there is none.
std::string typeLabelOf(ObjectManager& manager, int dataType);

/// The fixed-point type that "DataType" stands for; none for any other.
std::optional<fxpDataTypeProp> fixedPointTypeOf(ObjectManager& manager, int dataType);

/// The enumeration that "DataType" stands for; null for any other.
std::unique_ptr<ClassDef> enumerationOf(ObjectManager& manager, int dataType);

}  // namespace vela
