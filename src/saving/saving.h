// Runs written to a data file and read back.
#pragma once

#include <string>
#include <string_view>

#include "objectmanager/objectmanager.h"
#include "objects/set.h"

namespace vela::saving {

/// What was saved or loaded.
struct Contents {
  int runs = 0;
  int signals = 0;
};

/// What ObjectManager::save does, for the runs of this instance or of all. A file that stands
/// there is replaced unless whyNotToWrite has something against it.
Contents save(ObjectManager& manager, const std::wstring& file, Set::Sessions sessions);

/// Whether a file that begins so was saved by us.
bool beginsLikeASavedFile(std::string_view begin);
/// Throws what load() throws for a file that is not as it was written or holds no saved runs.
/// What those hold is not looked at.
void checkFile(const std::wstring& file);
/// What ObjectManager::load does.
Contents load(ObjectManager& manager, const std::wstring& file);

}  // namespace vela::saving
