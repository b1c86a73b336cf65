#include "scripting/classinfo.h"

#include "scripting/families.h"
#include "scripting/wrapper.h"

namespace vela::scripting {

const std::string& VelaCOSPackageInfo::name() const {
  static const std::string name = "vela";
  return name;
}

void VelaCOSPackageInfo::addClasses(host::COSPackage& package) const {
  package.addClass(std::make_unique<VelaRepositoryCOSClassInfo>());
}

VelaRepositoryCOSClassInfo::VelaRepositoryCOSClassInfo() {
  Methods methods;
  addInstanceMethods(methods);
  addObjectMethods(methods);
  addFileMethods(methods);
  addTraceMethods(methods);
  addTransactionMethods(methods);
  addRunCreationMethods(methods);
  addRunPropertyMethods(methods);
  addRunNumberingMethods(methods);
  addRunListMethods(methods);
  addRunRemovalMethods(methods);
  addSessionMethods(methods);
  addOverwriteMethods(methods);
  addPausedModelMethods(methods);
  addHarnessMethods(methods);
  addSelectionMethods(methods);
  addSignalCreationMethods(methods);
  addSignalDataMethods(methods);
  addSignalTreeMethods(methods);
  addSignalComparisonMethods(methods);
  addSignalAppearanceMethods(methods);
  addSignalPropertyMethods(methods);
  addSignalLookupMethods(methods);
  methods_ = methods.take();
}

const std::string& VelaRepositoryCOSClassInfo::name() const {
  static const std::string name = "Repository";
  return name;
}

const std::string& VelaRepositoryCOSClassInfo::shortDescription() const {
  static const std::string text = "Korvo VELA Data container";
  return text;
}

const std::string& VelaRepositoryCOSClassInfo::longDescription() const {
  static const std::string text = "Korvo VELA Data Container";
  return text;
}

const std::vector<std::unique_ptr<host::COSMethodInfo>>&
VelaRepositoryCOSClassInfo::methodInfos() const {
  return methods_;
}

std::unique_ptr<host::COSInstanceData> VelaRepositoryCOSClassInfo::createInstanceData() const {
  return std::make_unique<ObjectManagerWrapper>();
}

void VelaRepositoryCOSClassInfo::destroyInstanceData(
    std::unique_ptr<host::COSInstanceData> data) const noexcept {
  try {
    data->close();
  } catch (const std::exception&) {
    // Nobody is left to be told.
  }
}

}  // namespace vela::scripting
