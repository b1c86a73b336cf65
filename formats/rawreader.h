// Reads raw files of circuit simulators: each plot, or each step of a stepped plot, is a run.
#pragma once

#include <filesystem>
#include <memory>

#include "formats/reader.h"

namespace formats {

std::unique_ptr<Reader> openRawReader(SteadyFile file);

}  // namespace formats
