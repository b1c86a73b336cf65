// The points of a plot of a raw file, row by row, from binary or from text.
#pragma once

#include <memory>
#include <span>
#include <string>

#include "formats/rawheader.h"

namespace formats {

/// Yields the points of one plot in order. A value is one double, or two (real, imaginary) in a
/// complex plot; a row holds the values of all variables.
class RawRows {
 public:
  virtual ~RawRows() = default;
  /// Fills `values` with the next whole rows.
  /// \pre values.size() is a multiple of the row's length, and the plot has that many rows left
  /// \throws ExceptionWithCauses "VELA:vela:BrokenRawFile"
  virtual void read(std::span<double> values) = 0;
  /// Where row `row` stands, for messages: "byte 1234" or "line 56".
  /// \pre it is one of the rows of the last read()
  virtual std::string position(std::uint64_t row) const = 0;
};

/// Rows of the plot whose header the source has just passed; borrows both.
/// \throws ExceptionWithCauses "VELA:vela:BrokenRawFile" if the file cannot hold as many points
/// as
///         the header promises
std::unique_ptr<RawRows> openRawRows(ByteSource& source, const RawPlot& plot);

}  // namespace formats
