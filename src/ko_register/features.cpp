#include "ko_register/features.h"

namespace {

host::Feature runExport("VELARunExportV2", "VELA Run Export version 2", "features",
                        vela::kFeatureGroup, 1173337, 2);

}  // namespace

host::TestingHook KOFEAT_VELAStreamingStressTesting(
    "VELAStreamingStressTesting", "Feature for stress-testing the VELA streaming engine",
    "features");

host::Feature& vela::runExportFeature() {
  return runExport;
}
