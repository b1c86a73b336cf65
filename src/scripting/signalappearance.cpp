// How signals look, and on which plots they are.
#include <cmath>
#include <span>

#include "scripting/errors.h"
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

using host::HostArray;

HostArray colorOf(const Signal& signal) {
  const ColorTuple color = signal.getColor();
  return HostArray::list(std::vector<double>{color.get<0>(), color.get<1>(), color.get<2>()});
}

[[noreturn]] void refuseColor(const char* key, const std::string& reason) {
  throwScriptingError({"nexstore:nex", key},
                      {{"Operation", "setSignalLineColor"}, {"Reason", reason}});
}

void setColor(Signal& signal, const HostArray& color) {
  if (!color.isNumeric() || color.isComplex()) {
    refuseColor("InvalidData", "a colour is three real numbers, not " + color.describe());
  }
  if (color.size() != 3) {
    refuseColor("InvalidDimensions",
                "a colour is three numbers, " + std::to_string(color.size()) + " were given");
  }
  color.visitNumbers([&](const auto& parts) {
    const auto part = [&](std::size_t i) { return static_cast<double>(parts[i]); };
    for (std::size_t i = 0; i < 3; ++i) {
      if (!std::isfinite(part(i))) refuseColor("InvalidData", "a colour needs finite numbers");
    }
    signal.setColor(ColorTuple(part(0), part(1), part(2)));
  });
}

std::string lineStyleOf(const Signal& signal) {
  return Signal::getLineStyleFromEnum(signal.getLineStyle());
}

void setLineStyle(Signal& signal, const std::string& text) {
  signal.setLineStyle(Signal::getEnumFromLineStyle(text));
}

std::string markerOf(const Signal& signal) {
  return Signal::getMarkerFromEnum(signal.getMarker());
}

void setMarker(Signal& signal, const std::string& text) {
  signal.setMarker(Signal::getEnumFromMarker(text));
}

std::string sourceTypeOf(const Signal& signal) {
  return Signal::getSourceTypeFromEnum(signal.getSourceType());
}

void setSourceType(Signal& signal, const std::string& text) {
  signal.setSourceType(Signal::getEnumFromSourceType(text));
}

HostArray plotsOf(const Signal& signal) {
  return HostArray::list(signal.getChecked());
}

void setPlots(Signal& signal, const HostArray& plots) {
  const std::span<const std::uint8_t> numbers = plots.values<std::uint8_t>();
  signal.setChecked({numbers.begin(), numbers.end()});
}

void resetColors(Repository) {
  Signal::resetColors();
}

struct VelaRepositoryGetSignalLineColor
    : SignalGetter<"getSignalLineColor", &colorOf, Any<"color">,
                   "Red, green and blue of a signal's line, each from 0 to 1."> {};
struct VelaRepositorySetSignalLineColor
    : Method<"setSignalLineColor", "Set red, green and blue of a signal's line.",
             &set<SignalByID, &setColor, Any<"color">>, "nexstore:nex:InvalidData",
             "nexstore:nex:InvalidDimensions"> {};
struct VelaRepositoryGetSignalLineDashed
    : SignalGetter<"getSignalLineDashed", &lineStyleOf, Any<"style">,
                   "Style of a signal's line: \"-\", \"--\", \":\" or \"-.\"."> {};
struct VelaRepositorySetSignalLineDashed
    : SignalSetter<"setSignalLineDashed", &setLineStyle, Ascii<"style">,
                   "Set the style of a signal's line; \"-\" for a text that names none."> {};
struct VelaRepositoryGetSignalMarker : SignalGetter<"getSignalMarker", &markerOf, Any<"marker">,
                                                    "Marker of a signal's samples."> {};
struct VelaRepositorySetSignalMarker
    : SignalSetter<"setSignalMarker", &setMarker, Ascii<"marker">,
                   "Set the marker of a signal's samples; none for a text that names none."> {};
struct VelaRepositoryGetSignalSourceType
    : SignalGetter<"getSignalSourceType", &sourceTypeOf, Any<"type">,
                   "What a signal came from."> {};
struct VelaRepositorySetSignalSourceType
    : SignalSetter<"setSignalSourceType", &setSourceType, Ascii<"type">,
                   "Set what a signal came from; \"logged\" for a text that names nothing."> {};
struct VelaRepositoryGetSignalChecked
    : SignalGetter<"getSignalChecked", &plotsOf, UInt8s<"plots">,
                   "Numbers of the plots a signal is on, ascending."> {};
struct VelaRepositorySetSignalChecked
    : Method<"setSignalChecked", "Put a signal on these plots, from 1 to 32, and no others.",
             &set<SignalByID, &setPlots, UInt8s<"plots">>, "nexstore:nex:InvalidData"> {};
struct VelaRepositoryResetSignalColors
    : Method<"resetSignalColors",
             "Let the next new signal of this process have the first default colour again.",
             &resetColors> {};

}  // namespace

void addSignalAppearanceMethods(Methods& methods) {
  methods.add<VelaRepositoryGetSignalLineColor, VelaRepositorySetSignalLineColor,
              VelaRepositoryGetSignalLineDashed, VelaRepositorySetSignalLineDashed,
              VelaRepositoryGetSignalMarker, VelaRepositorySetSignalMarker,
              VelaRepositoryGetSignalSourceType, VelaRepositorySetSignalSourceType,
              VelaRepositoryGetSignalChecked, VelaRepositorySetSignalChecked,
              VelaRepositoryResetSignalColors>();
}

}  // namespace vela::scripting
