// What the command shows of runs and signals.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "objects/set.h"
#include "objects/signal.h"

namespace vela::tool {

using Json = nlohmann::ordered_json;

// Names of the metadata an import leaves on a run. // Stored; never change.
inline constexpr const char* kAxisName = "AxisName";
inline constexpr const char* kAxisUnit = "AxisUnit";
inline constexpr const char* kImportPlot = "ImportPlot";
inline constexpr const char* kImportStep = "ImportStep";
inline constexpr const char* kImportFormat = "ImportFormat";
inline constexpr const char* kImportFile = "ImportFile";
inline constexpr const char* kImportBytes = "ImportBytes";
inline constexpr const char* kImportHash = "ImportSHA256";
inline constexpr const char* kImportOptions = "ImportOptions";

/// Text and number metadata as text; empty when there is none.
std::string metadataText(const Set& run, const char* name);

/// Name and unit of what a run's samples are ordered by; "time" and "s" unless an import said
/// otherwise.
std::pair<std::string, std::string> axisOf(const Set* run);

/// "name [unit]", or the name alone.
std::string labelled(const std::string& name, const std::string& unit);

/// What a signal is called; of an element of a vector or matrix "m(1,2)".
std::string nameOf(const Signal& signal);

struct SignalView {
  int id = 0;
  int depth = 0;  ///< 0 for a signal without a parent
  std::string name;
  std::string unit;
  std::string type;  ///< of the samples; empty for a signal that only groups others
  SampleSpan extent;
};

/// What is shown of one signal.
SignalView viewOf(const Signal& signal, int depth);
/// The signals of a run, each followed by those below it, in creation order.
std::vector<SignalView> signalTree(ObjectManager& manager, const Set& run);
/// The signals of a subtree that hold samples, in creation order; the signal itself if it is
/// one. \throws "InvalidData" where a damaged file leads back into itself
std::vector<std::unique_ptr<Signal>> leavesOf(ObjectManager& manager, const Signal& signal);

/// Seconds since 1970 as "YYYY-MM-DD HH:MM:SS" in local time.
std::string dateText(double posixSeconds);

/// The text of a JSON value, readable, ending in a newline; bytes that are no UTF-8 are
/// replaced.
std::string jsonText(const Json& json);
/// A number, or null for NaN and infinities, which JSON does not know.
Json jsonNumber(double value);

}  // namespace vela::tool
