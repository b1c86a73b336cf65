// A store of signals written by hand on the bare HDF5 API: what Vela's bulk speed is measured
// against.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace neighbours {

/// Signals as pairs of extendible, chunked datasets of doubles in one HDF5 file.
///
/// Errors of the library are thrown as std::runtime_error.
/// Threads: one.
class Hdf5Store {
 public:
  using Id = std::size_t;

  /// Creates the file, replacing one of that name.
  explicit Hdf5Store(const std::string& path);
  ~Hdf5Store();
  Hdf5Store(const Hdf5Store&) = delete;
  Hdf5Store& operator=(const Hdf5Store&) = delete;

  /// \param name  must be unused in the file and free of slashes
  Id createSignal(std::string_view name);
  void append(Id signal, std::span<const double> times, std::span<const double> values);
  /// Replaces the vectors' content by all samples of the signal.
  void read(Id signal, std::vector<double>& times, std::vector<double>& values);

 private:
  // The library's handles are 64-bit integers.
  using Handle = std::int64_t;

  struct Signal {
    Handle times;
    Handle values;
    std::size_t points;
  };

  Handle createDataset(Handle group, const char* name);

  Handle file_;
  std::vector<Signal> signals_;
};

}  // namespace neighbours
