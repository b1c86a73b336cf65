// What was left out of a file that was read.
#pragma once

#include <string>

#include "formats/reader.h"

namespace vela::tool {

/// Warns of what a reader could not read. \returns whether data was left out
bool reportLoss(const std::string& file, const formats::ReadReport& report, bool quiet);

}  // namespace vela::tool
