// Inputs that several families of signal methods read in the same way.
#pragma once

#include <string>
#include <vector>

#include "host/arrays.h"

namespace vela::scripting {

/// Name of a method of alignment or interpolation; what is no text stands for `otherwise`.
std::string methodIn(const host::HostArray& given, const std::string& otherwise);

/// A path to a block of one element, or of none for an empty text.
std::vector<std::wstring> pathOf(const std::wstring& block);

/// Whole numbers from 0 on; an empty array gives none.
/// \throws "nexstore:nex:IntegerExpected"; "nexstore:nex:InvalidDimensions" for negative ones
///         and those beyond int32
std::vector<unsigned> countsIn(const host::HostArray& given, const std::string& operation);

}  // namespace vela::scripting
