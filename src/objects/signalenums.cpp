#include "objects/signalenums.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <string_view>

#include "kodiag/message.h"

namespace vela {
namespace {

constexpr std::array<std::string_view, 4> kLineStyles = {"-", "--", ":", "-."};

constexpr std::array<std::string_view, 14> kMarkers = {"",  "+", "o", "*", ".", "x", "s",
                                                       "d", "^", "v", ">", "<", "p", "h"};

constexpr std::array<std::string_view, 8> kSourceTypes = {
    "logged",    "visualized", "imported",   "comparison",
    "tolerance", "baseline",   "compare_to", "difference"};

constexpr int kPlots = 32;

// Cursor of the default colours: index of the colour of the next new signal.
std::atomic<std::size_t> nextColor = 0;  // signals are made by any thread

template <std::size_t size>
int valueOfText(const std::array<std::string_view, size>& texts, const std::string& text) {
  const auto found = std::find(texts.begin(), texts.end(), text);
  return found == texts.end() ? 0 : static_cast<int>(found - texts.begin());
}

template <std::size_t size>
std::string textOfValue(const std::array<std::string_view, size>& texts, int value,
                        std::string_view otherwise) {
  const bool listed = value >= 0 && static_cast<std::size_t>(value) < size;
  return std::string(listed ? texts[static_cast<std::size_t>(value)] : otherwise);
}

}  // namespace

SignalEnums::LineStyle SignalEnums::getEnumFromLineStyle(const std::string& text) {
  return static_cast<LineStyle>(valueOfText(kLineStyles, text));
}

std::string SignalEnums::getLineStyleFromEnum(LineStyle style) {
  return textOfValue(kLineStyles, style, kLineStyles[Solid]);
}

SignalEnums::Marker SignalEnums::getEnumFromMarker(const std::string& text) {
  return static_cast<Marker>(valueOfText(kMarkers, text));
}

std::string SignalEnums::getMarkerFromEnum(Marker marker) {
  return textOfValue(kMarkers, marker, "");
}

SignalEnums::SourceType SignalEnums::getEnumFromSourceType(const std::string& text) {
  return static_cast<SourceType>(valueOfText(kSourceTypes, text));
}

std::string SignalEnums::getSourceTypeFromEnum(SourceType type) {
  return textOfValue(kSourceTypes, type, "");
}

std::vector<unsigned char> SignalEnums::getPlotIndicesFromInt(int mask) {
  std::vector<unsigned char> plots;
  const auto bits = static_cast<unsigned>(mask);
  for (unsigned bit = 0; bit < kPlots; ++bit) {
    if (bits >> bit & 1U) plots.push_back(static_cast<unsigned char>(bit + 1));
  }
  return plots;
}

int SignalEnums::getIntFromPlotIndices(const std::vector<unsigned char>& plots) {
  unsigned bits = 0;
  for (const unsigned char plot : plots) {
    if (plot < 1 || plot > kPlots) {
      kodiag::raise({"nexstore:nex", "InvalidData"},
                    {{"Operation", "Choosing the plots of a signal"},
                     {"Reason", "there is no plot " + std::to_string(plot) +
                                    "; plots are numbered from 1 to 32"}});
    }
    bits |= 1U << (plot - 1U);
  }
  return static_cast<int>(bits);
}

const std::vector<ColorTuple>& SignalEnums::getDefaultVelaColors() {
  static const std::vector<ColorTuple> colors = {
      {0.0, 0.447, 0.741},   {0.85, 0.325, 0.098},  {0.929, 0.694, 0.125},
      {0.494, 0.184, 0.556}, {0.466, 0.674, 0.188}, {0.301, 0.745, 0.933},
      {0.635, 0.078, 0.184}, {0.074, 0.624, 1.0},   {1.0, 0.412, 0.161},
      {0.718, 0.275, 1.0},   {0.392, 0.831, 0.075}, {1.0, 0.075, 0.651},
      {0.996, 0.2, 0.039},   {0.133, 0.71, 0.451}};
  return colors;
}

void SignalEnums::resetColors() {
  nextColor = 0;
}

const ColorTuple& SignalEnums::takeNextColor() {
  const std::vector<ColorTuple>& colors = getDefaultVelaColors();
  return colors[nextColor++ % colors.size()];
}

}  // namespace vela
