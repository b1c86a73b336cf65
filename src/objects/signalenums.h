// The enumerations of a signal and their texts, and the default colours.
#pragma once

#include <boost/tuple/tuple.hpp>
#include <boost/tuple/tuple_comparison.hpp>
#include <string>
#include <vector>

namespace vela {

// Stored as integers; never renumber.
enum class complexity : int { real = 0, complex = 1 };
enum class sampleTimeContinuity : int { continuous = 0, discrete = 1 };
enum class dimsMode : int { fixed = 0, variable = 1 };

/// Red, green and blue, each from 0 to 1.
using ColorTuple = boost::tuple<double, double, double>;

/// The names a signal's appearance and origin go by. Texts that are not listed stand for value
/// 0, values that are not listed for the text of value 0 (source types: the empty text).
struct SignalEnums {
  enum LineStyle : int { Solid = 0, Dashed = 1, Dotted = 2, DashDot = 3 };

  enum Marker : int {
    NoMarker = 0,
    Plus = 1,
    Circle = 2,
    Asterisk = 3,
    Point = 4,
    Cross = 5,
    Square = 6,
    Diamond = 7,
    TriangleUp = 8,
    TriangleDown = 9,
    TriangleRight = 10,
    TriangleLeft = 11,
    Pentagram = 12,
    Hexagram = 13
  };

  enum SourceType : int {
    Logged = 0,
    Visualized = 1,
    Imported = 2,
    Comparison = 3,
    Tolerance = 4,
    Baseline = 5,
    CompareTo = 6,
    Difference = 7
  };

  static LineStyle getEnumFromLineStyle(const std::string& text);
  static std::string getLineStyleFromEnum(LineStyle style);
  static Marker getEnumFromMarker(const std::string& text);
  static std::string getMarkerFromEnum(Marker marker);
  static SourceType getEnumFromSourceType(const std::string& text);
  static std::string getSourceTypeFromEnum(SourceType type);

  /// The 1-based plots whose bits are set, ascending: 5 gives {1, 3}.
  static std::vector<unsigned char> getPlotIndicesFromInt(int mask);
  /// The reverse. \throws "nexstore:nex:InvalidData" for a plot outside 1..32
  static int getIntFromPlotIndices(const std::vector<unsigned char>& plots);

  /// The 14 colours given to new signals in turn.
  static const std::vector<ColorTuple>& getDefaultVelaColors();
  /// The next new signal gets colour 0 again.
  static void resetColors();

 protected:
  /// The colour of the next new signal; moves on to the one after it.
  static const ColorTuple& takeNextColor();
};

}  // namespace vela
