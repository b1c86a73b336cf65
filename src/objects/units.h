// Units of signals, each stored once.
#pragma once

#include <string>

namespace vela {

class ObjectManager;

/// The number by which signals name the unit of that label, which is stored if it is not yet.
/// To be called in a unit of work. 0 for an empty label.
long long unitNumber(ObjectManager& manager, const std::wstring& label);

}  // namespace vela
