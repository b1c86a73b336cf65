// Rows of streams: one time with a value for every channel.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace yarrow {

/// A time in seconds and one value for every channel.
using StreamRow = std::pair<double, std::vector<double>>;
using StreamRows = std::vector<StreamRow>;

/// \throws "nexstore:nex:InvalidDimensions" for a row with another number of values,
///         "nexstore:nex:InvalidData" for a time that is not finite, both naming stream and row
void requireRows(const StreamRows& rows, std::size_t channels, const std::string& stream);

/// In order of time; rows of one time stay as they were given.
StreamRows inOrderOfTime(StreamRows rows);

/// `stored` with `updates`, both in order of time: the rows given for a time replace all stored
/// rows of that time, or are new there.
StreamRows merged(const StreamRows& stored, const StreamRows& updates);

/// The times of the rows, then the values of each channel.
struct StreamColumns {
  StreamColumns(const StreamRows& rows, std::size_t channels);

  std::vector<double> times;
  std::vector<std::vector<double>> values;
};

}  // namespace yarrow
