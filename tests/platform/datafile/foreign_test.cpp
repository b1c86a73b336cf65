// Files whose variables are not, or not only, bytes of theirs.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <hdf5.h>
#include <unistd.h>

#include <functional>

#include "datafile/datafile.h"
#include "datafile/seal.h"
#include "tests/objectmanager/managertest.h"

namespace datafile {
namespace {

constexpr hsize_t kSize = 100;

hid_t byteSpace() {
  return H5Screate_simple(1, &kSize, nullptr);
}

void addDataset(hid_t file, hid_t type, const std::function<void(hid_t)>& setUp) {
  const hid_t properties = H5Pcreate(H5P_DATASET_CREATE);
  setUp(properties);
  const hid_t dataset =
      H5Dcreate2(file, "x", type, byteSpace(), H5P_DEFAULT, properties, H5P_DEFAULT);
  const std::string bytes(kSize * 8, '\1');
  if (H5Pget_layout(properties) != H5D_VIRTUAL) {
    H5Dwrite(dataset, type, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data());
  }
  H5Dclose(dataset);
}

void addBytes(hid_t file, const std::function<void(hid_t)>& setUp) {
  addDataset(file, H5T_STD_U8LE, setUp);
}

TEST(ForeignDataFileTest, WhatIsNotAPlainVariableOfTheFileIsRefused) {
  const vela::test::TemporaryFolder folder;
  const std::string path = (folder / "x.dat").string();
  const std::string elsewhere = (folder / "elsewhere").string();
  struct Case {
    const char* what;
    std::string expected;
    std::function<void(hid_t)> add;
  };
  const std::string invalid = "datafile:file:Invalid";
  const Case cases[] = {
      {"bytes in a row", "", [](hid_t f) { addBytes(f, [](hid_t) {}); }},
      {"external link", invalid,
       [&](hid_t f) {
         H5Lcreate_external(elsewhere.c_str(), "/x", f, "x", H5P_DEFAULT, H5P_DEFAULT);
       }},
      {"soft link", invalid,
       [](hid_t f) { H5Lcreate_soft("/y", f, "x", H5P_DEFAULT, H5P_DEFAULT); }},
      {"external storage", invalid,
       [&](hid_t f) {
         addBytes(f, [&](hid_t p) { H5Pset_external(p, elsewhere.c_str(), 0, kSize); });
       }},
      {"virtual dataset", invalid,
       [&](hid_t f) {
         addBytes(f, [&](hid_t p) {
           H5Pset_virtual(p, byteSpace(), elsewhere.c_str(), "x", byteSpace());
         });
       }},
      {"filter", invalid,
       [](hid_t f) {
         addBytes(f, [](hid_t p) {
           H5Pset_chunk(p, 1, &kSize);
           H5Pset_shuffle(p);
         });
       }},
      {"group", invalid,
       [](hid_t f) { H5Gclose(H5Gcreate2(f, "x", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT)); }},
      {"numbers of 8 bytes", invalid,
       [](hid_t f) { addDataset(f, H5T_NATIVE_DOUBLE, [](hid_t) {}); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const hid_t properties = H5Pcreate(H5P_FILE_CREATE);
    H5Pset_userblock(properties, kSealBytes);
    const hid_t file = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, properties, H5P_DEFAULT);
    c.add(file);
    ASSERT_GE(H5Fclose(file), 0);
    const int descriptor = open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(seal(descriptor), 0);
    close(descriptor);
    EXPECT_EQ(vela::test::raisedBy([&] { DataFileReader reader(path); }), c.expected);
  }
}

}  // namespace
}  // namespace datafile
