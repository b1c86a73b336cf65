// What can be wrong with signals and their samples although every object is sound in itself.
#pragma once

#include <string>
#include <vector>

#include "objectmanager/objectmanager.h"

namespace vela {

/// Chunks whose counts, times and bytes do not fit each other, negative counts, and signals
/// that are below themselves. Reads counts and sizes, no samples.
/// \returns sentences; empty when all is well
std::vector<std::string> findSignalProblems(ObjectManager& manager);

}  // namespace vela
