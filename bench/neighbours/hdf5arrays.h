// Many arrays written to and read from one file with the bare HDF5 API: what saving and loading
// runs are measured against.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace neighbours {

/// Writes `count` pairs of contiguous datasets, each holding the numbers, into a new file.
/// Errors of the library are thrown as std::runtime_error.
void writeArrays(const std::string& path, std::size_t count, std::span<const double> times,
                 std::span<const double> values);
/// Reads such a file's `count` pairs one after the other into the vectors.
void readArrays(const std::string& path, std::size_t count, std::vector<double>& times,
                std::vector<double>& values);

}  // namespace neighbours
