#include "bench/neighbours/hdf5store.h"

#include <type_traits>

#include "bench/neighbours/hdf5check.h"

namespace neighbours {
namespace {

static_assert(std::is_same_v<hid_t, std::int64_t>);

// The block length of the append benchmark, so that one append fills one chunk.
constexpr hsize_t kSamplesPerChunk = 1000;

void appendTo(hid_t dataset, std::size_t before, std::span<const double> numbers) {
  const hsize_t start = before;
  const hsize_t count = numbers.size();
  const hsize_t size = start + count;
  check(H5Dset_extent(dataset, &size), "extending a dataset");
  const Scoped stored(H5Dget_space(dataset), H5Sclose, "getting a dataspace");
  check(H5Sselect_hyperslab(stored, H5S_SELECT_SET, &start, nullptr, &count, nullptr),
        "selecting");
  const Scoped memory(H5Screate_simple(1, &count, nullptr), H5Sclose, "creating a dataspace");
  check(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, memory, stored, H5P_DEFAULT, numbers.data()),
        "writing");
}

void readAll(hid_t dataset, std::size_t points, std::vector<double>& numbers) {
  numbers.resize(points);
  check(H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, numbers.data()),
        "reading");
}

}  // namespace

Hdf5Store::Hdf5Store(const std::string& path)
    : file_(check(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT),
                  "creating the file")) {}

Hdf5Store::~Hdf5Store() {
  for (const Signal& signal : signals_) {
    H5Dclose(signal.times);
    H5Dclose(signal.values);
  }
  H5Fclose(file_);
}

Hdf5Store::Id Hdf5Store::createSignal(std::string_view name) {
  const Scoped group(
      H5Gcreate2(file_, std::string(name).c_str(), H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
      H5Gclose, "creating a group");
  signals_.push_back({createDataset(group, "times"), createDataset(group, "values"), 0});
  return signals_.size() - 1;
}

void Hdf5Store::append(Id signal, std::span<const double> times,
                       std::span<const double> values) {
  Signal& target = signals_.at(signal);
  appendTo(target.times, target.points, times);
  appendTo(target.values, target.points, values);
  target.points += times.size();
}

void Hdf5Store::read(Id signal, std::vector<double>& times, std::vector<double>& values) {
  const Signal& source = signals_.at(signal);
  readAll(source.times, source.points, times);
  readAll(source.values, source.points, values);
}

Hdf5Store::Handle Hdf5Store::createDataset(Handle group, const char* name) {
  const hsize_t size = 0;
  const hsize_t unlimited = H5S_UNLIMITED;
  const Scoped space(H5Screate_simple(1, &size, &unlimited), H5Sclose, "creating a dataspace");
  const Scoped properties(H5Pcreate(H5P_DATASET_CREATE), H5Pclose, "creating properties");
  check(H5Pset_chunk(properties, 1, &kSamplesPerChunk), "setting the chunk length");
  return check(
      H5Dcreate2(group, name, H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, properties, H5P_DEFAULT),
      "creating a dataset");
}

}  // namespace neighbours
