// Runs written to a data file and read back.
#pragma once

#include <string>

#include "objectmanager/objectmanager.h"
#include "objects/set.h"

namespace vela::saving {

/// What ObjectManager::save does, for the runs of this instance or of all.
void save(ObjectManager& manager, const std::wstring& file, Set::Sessions sessions);

struct Loaded {
  int runs = 0;
  int signals = 0;
};

/// What ObjectManager::load does. \returns what came
Loaded load(ObjectManager& manager, const std::wstring& file);

}  // namespace vela::saving
