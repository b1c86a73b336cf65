#include "ko_register/features.h"

#include <gtest/gtest.h>

namespace {

TEST(RegisteredFeatures, AreThereBeforeAnybodyAsks) {
  host::Feature* const runExport = host::findFeature("VELARunExportV2");
  ASSERT_EQ(runExport, &vela::runExportFeature());
  EXPECT_EQ(runExport->group(), "Korvo Instrumentation");
  EXPECT_EQ(runExport->trackingNumber(), 1173337);
  EXPECT_EQ(runExport->value(), 2);
  EXPECT_EQ(host::findFeature("VELAStreamingStressTesting"),
            &KOFEAT_VELAStreamingStressTesting);
}

}  // namespace
