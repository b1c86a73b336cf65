// Package "vela" and its class "Repository", as the host sees them.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/classes/classes.h"

namespace vela::scripting {

class VelaCOSPackageInfo : public host::COSPackageInfo {
 public:
  const std::string& name() const override;
  void addClasses(host::COSPackage& package) const override;
};

/// The class of repositories. Its objects keep an ObjectManagerWrapper.
class VelaRepositoryCOSClassInfo : public host::COSClassInfo {
 public:
  VelaRepositoryCOSClassInfo();

  const std::string& name() const override;
  const std::string& shortDescription() const override;
  const std::string& longDescription() const override;
  const std::vector<std::unique_ptr<host::COSMethodInfo>>& methodInfos() const override;
  std::unique_ptr<host::COSInstanceData> createInstanceData() const override;
  void destroyInstanceData(std::unique_ptr<host::COSInstanceData> data) const noexcept override;
  bool mayBeConstructed() const override { return true; }
  bool hasProperty(std::string_view) const override { return false; }
  bool isSealed() const override { return false; }

 private:
  std::vector<std::unique_ptr<host::COSMethodInfo>> methods_;
};

}  // namespace vela::scripting
