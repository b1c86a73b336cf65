// Switches of the whole system.
#pragma once

#include "host/features.h"

namespace vela {

/// Group of all features of the system.
inline constexpr const char* kFeatureGroup = "Korvo Instrumentation";

/// "VELARunExportV2": version of the run export.
host::Feature& runExportFeature();

}  // namespace vela

/// Stresses the streaming engine; read by other modules too.
extern host::TestingHook KOFEAT_VELAStreamingStressTesting;
