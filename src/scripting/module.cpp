#include "scripting/module.h"

#include <exception>
#include <memory>
#include <utility>

#include "scripting/classinfo.h"
#include "velainstance.h"

namespace {

using vela::scripting::VelaCOSPackageInfo;
using vela::scripting::VelaRepositoryCOSClassInfo;

bool initialized = false;

void attempt(void (vela::VelaInstance::*step)()) {
  try {
    (vela::VelaInstance::getInstance().*step)();
  } catch (const std::exception&) {
    // The process ends; the kernel frees what is left, and the file stays whole.
  }
}

}  // namespace

void OBInitialize_nexstore() {
  if (std::exchange(initialized, true)) return;
  auto info = std::make_unique<VelaCOSPackageInfo>();
  if (host::COSPackage* const package = host::COSPackage::getPackage(info->name())) {
    package->addClass(std::make_unique<VelaRepositoryCOSClassInfo>());
  } else {
    host::COSPackage::addPackage(std::move(info));
  }
}

void OBTerminate_nexstore() {
  attempt(&vela::VelaInstance::setInstanceClosed);
  attempt(&vela::VelaInstance::disconnectAll);
}

const host::ModuleFunctions* QueryOBFcnTable_nexstore() {
  static constexpr host::ModuleFunctions functions = {"nexstore", &OBInitialize_nexstore,
                                                      &OBTerminate_nexstore};
  return &functions;
}
