// The header of one plot in a circuit simulator's raw file.
//
// A plot is lines "Key: value", a list of variables, then the line "Binary:" or "Values:" and
// the points. README.md has an example.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/bytesource.h"
#include "formats/reader.h"

namespace formats {

struct RawVariable {
  std::string name;
  std::string type;  ///< "voltage", as the file spells it

  bool operator==(const RawVariable&) const = default;
};

struct RawPlot {
  std::string title;
  std::string date;
  std::string plotName;
  bool isComplex = false;
  bool isStepped = false;  ///< the file itself says that its scale starts again
  bool isBinary = false;
  std::uint64_t points = 0;  ///< as promised by the header, unchecked
  std::vector<RawVariable> variables;
  std::uint64_t dataOffset = 0;  ///< byte after the header
  std::uint64_t dataLine = 0;    ///< number of the header's last line

  bool operator==(const RawPlot&) const = default;
  std::uint64_t rowBytes() const {
    return variables.size() * (isComplex ? 2 * sizeof(double) : sizeof(double));
  }
};

/// Reads the next header, leaving the source at the first byte of its points; none at the end
/// of the file. \throws ExceptionWithCauses "VELA:vela:BrokenRawFile"
std::optional<RawPlot> readRawHeader(ByteSource& source);

/// Whether a file with these first bytes is a raw file.
bool looksLikeRawFile(std::string_view head);

/// The unit of a type of variable; none for a type that is not known.
std::optional<std::string_view> unitOfRawType(std::string_view type);

/// What orders the points of the plot: its first variable, or nothing when that is no scale.
AxisInfo axisOf(const RawPlot& plot);

[[noreturn]] void raiseBrokenRaw(const ByteSource& source, const std::string& position,
                                 const std::string& reason);
[[noreturn]] void raiseBrokenRawLine(const ByteSource& source, const std::string& reason);

}  // namespace formats
