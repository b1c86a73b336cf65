// Deletion of the shared file once nothing is left in it.
#pragma once

#include "objectmanager/objectmanager.h"

namespace vela::scripting {

/// Whether feature "VELAStaticDMRDeleteOnEmpty" is on.
bool isDeletedWhenEmpty();

/// Deletes the shared file if that is switched on, the manager is the one on that file, and
/// nothing is left in it.
void deleteFileIfEmpty(ObjectManager& manager);

}  // namespace vela::scripting
