// What the settings of signals and runs may be.
#pragma once

#include <string>

namespace vela {

// Each raises "nexstore:nex:InvalidSetting", naming setting, value and what is allowed.

/// "zoh" or "linear".
void requireInterpMethod(const std::string& method);
/// "union", "intersection" or "uniform".
void requireTimeAlignment(const std::string& method);
/// Finite and not negative.
void requireTolerance(const std::string& setting, double tolerance);
/// Finite.
void requireTime(const std::string& setting, double seconds);

}  // namespace vela
