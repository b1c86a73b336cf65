#include "bench/neighbours/hdf5arrays.h"

#include "bench/neighbours/hdf5check.h"

namespace neighbours {
namespace {

std::string name(const char* kind, std::size_t index) {
  return kind + std::to_string(index);
}

void write(hid_t file, const std::string& name, std::span<const double> numbers) {
  const hsize_t size = numbers.size();
  const Scoped space(H5Screate_simple(1, &size, nullptr), H5Sclose, "creating a dataspace");
  const Scoped dataset(H5Dcreate2(file, name.c_str(), H5T_NATIVE_DOUBLE, space, H5P_DEFAULT,
                                  H5P_DEFAULT, H5P_DEFAULT),
                       H5Dclose, "creating a dataset");
  check(H5Dwrite(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, numbers.data()),
        "writing");
}

void read(hid_t file, const std::string& name, std::vector<double>& numbers) {
  const Scoped dataset(H5Dopen2(file, name.c_str(), H5P_DEFAULT), H5Dclose, "opening");
  const Scoped space(H5Dget_space(dataset), H5Sclose, "getting a dataspace");
  numbers.resize(static_cast<std::size_t>(
      check(H5Sget_simple_extent_npoints(space), "getting a dataspace's size")));
  check(H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, numbers.data()),
        "reading");
}

}  // namespace

void writeArrays(const std::string& path, std::size_t count, std::span<const double> times,
                 std::span<const double> values) {
  const Scoped file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT), H5Fclose,
                    "creating the file");
  for (std::size_t i = 0; i < count; ++i) {
    write(file, name("times", i), times);
    write(file, name("values", i), values);
  }
}

void readArrays(const std::string& path, std::size_t count, std::vector<double>& times,
                std::vector<double>& values) {
  const Scoped file(H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT), H5Fclose,
                    "opening the file");
  for (std::size_t i = 0; i < count; ++i) {
    read(file, name("times", i), times);
    read(file, name("values", i), values);
  }
}

}  // namespace neighbours
