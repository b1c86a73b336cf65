#include "datafile/filedriver.h"

#include <hdf5.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>

namespace datafile {
namespace {

/// What the library is given with the properties, and copies.
struct DriverInfo {
  DiskFile* file;
};

/// A file as the library sees it; what it knows itself comes first.
struct OpenFile {
  H5FD_t common;
  DiskFile* disk;
  haddr_t allocated;
  haddr_t length;
};

static_assert(offsetof(OpenFile, common) == 0);

constexpr haddr_t kLargestAddress = HADDR_MAX >> 1;

OpenFile& asOpenFile(H5FD_t* file) {
  return *reinterpret_cast<OpenFile*>(file);
}
const OpenFile& asOpenFile(const H5FD_t* file) {
  return *reinterpret_cast<const OpenFile*>(file);
}

H5FD_t* openFile(const char*, unsigned flags, hid_t properties, haddr_t) {
  const auto* const info = static_cast<const DriverInfo*>(H5Pget_driver_info(properties));
  struct stat status {};
  if (info == nullptr || fstat(info->file->descriptor, &status) != 0) return nullptr;
  const bool isNew = (flags & H5F_ACC_TRUNC) != 0;
  auto file = std::make_unique<OpenFile>();
  file->disk = info->file;
  file->length = isNew ? 0 : static_cast<haddr_t>(status.st_size);
  return &file.release()->common;
}

herr_t closeFile(H5FD_t* file) {
  delete &asOpenFile(file);
  return 0;
}

herr_t queryFeatures(const H5FD_t*, unsigned long* flags) {
  *flags = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_ACCUMULATE_METADATA | H5FD_FEAT_DATA_SIEVE |
           H5FD_FEAT_AGGREGATE_SMALLDATA;
  return 0;
}

haddr_t allocatedEnd(const H5FD_t* file, H5FD_mem_t) {
  return asOpenFile(file).allocated;
}

herr_t setAllocatedEnd(H5FD_t* file, H5FD_mem_t, haddr_t end) {
  asOpenFile(file).allocated = end;
  return 0;
}

haddr_t endOfFile(const H5FD_t* file, H5FD_mem_t) {
  return asOpenFile(file).length;
}

bool isAddressable(haddr_t address, std::size_t size) {
  return address <= kLargestAddress && size <= kLargestAddress - address;
}

// What lies behind the end of the file reads as zeros.
herr_t readFile(H5FD_t* file, H5FD_mem_t, hid_t, haddr_t address, std::size_t size,
                void* buffer) {
  if (!isAddressable(address, size)) return -1;
  auto* into = static_cast<char*>(buffer);
  auto offset = static_cast<off_t>(address);
  while (size > 0) {
    const ssize_t count = pread(asOpenFile(file).disk->descriptor, into, size, offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return -1;
    if (count == 0) {
      std::memset(into, 0, size);
      return 0;
    }
    into += count;
    offset += count;
    size -= static_cast<std::size_t>(count);
  }
  return 0;
}

herr_t writeFile(H5FD_t* file, H5FD_mem_t, hid_t, haddr_t address, std::size_t size,
                 const void* buffer) {
  if (!isAddressable(address, size)) return -1;
  OpenFile& target = asOpenFile(file);
  target.length = std::max(target.length, address + size);
  const auto* from = static_cast<const char*>(buffer);
  auto offset = static_cast<off_t>(address);
  while (size > 0 && target.disk->errorNumber == 0) {
    const ssize_t count = pwrite(target.disk->descriptor, from, size, offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      target.disk->errorNumber = errno;
      break;
    }
    from += count;
    offset += count;
    size -= static_cast<std::size_t>(count);
  }
  return 0;
}

// Makes the file as long as the library says it is.
herr_t setLength(H5FD_t* file, hid_t, hbool_t) {
  OpenFile& target = asOpenFile(file);
  if (target.length == target.allocated) return 0;
  target.length = target.allocated;
  const bool isHealthy = target.disk->errorNumber == 0;
  if (isHealthy && ftruncate(target.disk->descriptor, static_cast<off_t>(target.length)) != 0) {
    target.disk->errorNumber = errno;
  }
  return 0;
}

H5FD_class_t driverClass() {
  H5FD_class_t driver{};
  driver.name = "vela";
  driver.maxaddr = kLargestAddress;
  driver.fc_degree = H5F_CLOSE_STRONG;
  driver.fapl_size = sizeof(DriverInfo);
  driver.open = openFile;
  driver.close = closeFile;
  driver.query = queryFeatures;
  driver.get_eoa = allocatedEnd;
  driver.set_eoa = setAllocatedEnd;
  driver.get_eof = endOfFile;
  driver.read = readFile;
  driver.write = writeFile;
  driver.truncate = setLength;
  constexpr H5FD_mem_t kMap[H5FD_MEM_NTYPES] = H5FD_FLMAP_DICHOTOMY;
  std::ranges::copy(kMap, driver.fl_map);
  return driver;
}

hid_t driverID() {
  static const H5FD_class_t driver = driverClass();
  static const hid_t id = checked(H5FDregister(&driver));
  return id;
}

}  // namespace

Handle accessThrough(DiskFile& file) {
  const DriverInfo info{&file};
  Handle properties(H5Pcreate(H5P_FILE_ACCESS), H5Pclose);
  checked(H5Pset_driver(properties, driverID(), &info));
  // The newest format is the smallest.
  checked(H5Pset_libver_bounds(properties, H5F_LIBVER_LATEST, H5F_LIBVER_LATEST));
  return properties;
}

}  // namespace datafile
