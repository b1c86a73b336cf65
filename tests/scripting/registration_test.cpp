#include <gtest/gtest.h>

#include "host/classes/classes.h"
#include "scripting/module.h"

namespace {

/// A package of another module, without classes of its own.
class OtherPackage : public host::COSPackageInfo {
 public:
  const std::string& name() const override {
    static const std::string name = "vela";
    return name;
  }
  void addClasses(host::COSPackage&) const override {}
};

TEST(ScriptingRegistrationTest, AddsItsClassToAPackageThatIsThereOnceOnly) {
  host::COSPackage& package = host::COSPackage::addPackage(std::make_unique<OtherPackage>());
  const host::ModuleFunctions& module = *QueryOBFcnTable_nexstore();
  EXPECT_STREQ(module.name, "nexstore");
  module.initialize();
  OBInitialize_nexstore();
  EXPECT_EQ(host::COSPackage::allPackages(), std::vector{&package});
  ASSERT_EQ(package.classes().size(), 1u);
  EXPECT_EQ(package.classes().front()->name(), "Repository");
}

}  // namespace
