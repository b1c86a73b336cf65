// How runs that come into a repository are told from those it has.
#pragma once

#include <map>
#include <string>

#include "objects/set.h"

namespace vela::tool {

/// Lets the numbers of the runs this session makes follow those of every session's runs. To be
/// called in the unit of work that makes them.
void continueNumbers(ObjectManager& manager);
/// How many visible runs have a name.
std::map<std::string, int> countNames(ObjectManager& manager);

}  // namespace vela::tool
