// Copies of signals with their samples, made inside the store.
#pragma once

#include "kodd/objectcopier.h"
#include "objectmanager/objectmanager.h"

namespace vela {

/// Adds the signals, with their samples, metadata and sources, to what is copied. The copies
/// belong to the manager's instance; nobody streams them, and no hashes of them are cached.
void addSignalsToCopy(ObjectManager& manager, kodd::ObjectCopier& copier,
                      const kodd::Selection& signals);

}  // namespace vela
