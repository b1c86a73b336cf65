#include "scripting/emptyrepository.h"

#include "host/features.h"
#include "objects/set.h"
#include "velainstance.h"

namespace vela::scripting {

bool isDeletedWhenEmpty() {
  return host::findFeature("VELAStaticDMRDeleteOnEmpty")->value() != 0;
}

void deleteFileIfEmpty(ObjectManager& manager) {
  VelaInstance& instance = VelaInstance::getInstance();
  // A private repository must never cost the user the shared one.
  const bool isShared = manager.isPersistentDMR() && instance.findObjectManager({}) == &manager;
  if (isShared && isDeletedWhenEmpty() && Set::repositoryIsEmpty(manager)) {
    instance.deleteDMR();
  }
}

}  // namespace vela::scripting
