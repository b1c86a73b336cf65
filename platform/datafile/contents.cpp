#include "datafile/contents.h"

#include <hdf5.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace datafile {
namespace {

[[noreturn]] void refuse(const std::string& name, const std::string& reason) {
  throw ForeignContent("\"" + name + "\" " + reason);
}

struct Listing {
  std::vector<std::string> names;
  std::uint64_t bytesLeft;  ///< there cannot be more of names
  std::string foreign;      ///< a name that leads elsewhere
};

herr_t collectName(hid_t, const char* name, const H5L_info_t* link, void* into) {
  auto& listing = *static_cast<Listing*>(into);
  const std::uint64_t length = std::strlen(name);
  if (link->type != H5L_TYPE_HARD) listing.foreign = name;
  if (link->type != H5L_TYPE_HARD || length > listing.bytesLeft) return -1;
  listing.bytesLeft -= length;
  listing.names.emplace_back(name);
  return 0;
}

/// Without it, what a file asks for would decide which code is loaded.
void forbidPlugins() {
  checked(H5PLset_loading_state(0));
}

}  // namespace

Contents::Contents(int file, const std::function<void()>& working) {
  disk_.descriptor = file;
  struct stat status {};
  if (fstat(file, &status) != 0) throw LibraryError(std::strerror(errno));
  fileBytes_ = static_cast<std::uint64_t>(status.st_size);
  forbidPlugins();
  file_ = Handle(H5Fopen("data file", H5F_ACC_RDONLY, accessThrough(disk_)), H5Fclose);
  checkRoot();
  addAll(working);
}

void Contents::checkRoot() const {
  const Handle root(H5Gopen2(file_, "/", H5P_DEFAULT), H5Gclose);
  const Handle properties(H5Gget_create_plist(root), H5Pclose);
  if (checked(H5Pget_nfilters(properties)) != 0) throw ForeignContent("its names are filtered");
}

void Contents::addAll(const std::function<void()>& working) {
  Listing listing{{}, fileBytes_, {}};
  const herr_t result =
      H5Literate(file_, H5_INDEX_NAME, H5_ITER_NATIVE, nullptr, collectName, &listing);
  if (!listing.foreign.empty()) refuse(listing.foreign, "leads out of the file");
  checked(result);
  variables_.reserve(listing.names.size());
  for (const std::string& name : listing.names) {
    variables_.push_back(look(name));
    working();
  }
}

// What a dataset is made of is asked before anything that follows it elsewhere.
Contents::Variable Contents::look(const std::string& name) const {
  const Handle dataset(H5Oopen(file_, name.c_str(), H5P_DEFAULT), H5Oclose);
  if (H5Iget_type(dataset) != H5I_DATASET) refuse(name, "is no variable");
  const Handle properties(H5Dget_create_plist(dataset), H5Pclose);
  const H5D_layout_t layout = H5Pget_layout(properties);
  if (layout != H5D_CONTIGUOUS && layout != H5D_CHUNKED && layout != H5D_COMPACT) {
    refuse(name, "is put together from other places");
  }
  if (checked(H5Pget_external_count(properties)) != 0) refuse(name, "lies in another file");
  if (checked(H5Pget_nfilters(properties)) != 0) refuse(name, "is filtered");
  const Handle type(H5Dget_type(dataset), H5Tclose);
  const Handle space(H5Dget_space(dataset), H5Sclose);
  hsize_t size = 0;
  if (H5Tget_class(type) != H5T_INTEGER || H5Tget_size(type) != 1 ||
      H5Sget_simple_extent_ndims(space) != 1 ||
      H5Sget_simple_extent_dims(space, &size, nullptr) != 1) {
    refuse(name, "is no list of bytes");
  }
  Variable variable{name, size, {}};
  const haddr_t place = layout == H5D_CONTIGUOUS ? H5Dget_offset(dataset) : HADDR_UNDEF;
  if (place != HADDR_UNDEF) variable.place = place;
  if (size > fileBytes_ || H5Dget_storage_size(dataset) < size ||
      (variable.place && place > fileBytes_ - size)) {
    refuse(name, "is longer than the file");
  }
  return variable;
}

void Contents::read(std::size_t variable, std::uint64_t offset, std::span<char> into) {
  if (into.empty()) return;
  const Variable& wanted = variables_.at(variable);
  if (wanted.place) return readTogether(*wanted.place + offset, into);
  if (!openDataset_.isOpen() || openVariable_ != variable) {
    const Handle access(H5Pcreate(H5P_DATASET_ACCESS), H5Pclose);
    // What is read comes in long pieces: nothing of it is worth a second copy in memory.
    checked(H5Pset_chunk_cache(access, 0, 0, H5D_CHUNK_CACHE_W0_DEFAULT));
    openDataset_ = Handle(H5Dopen2(file_, wanted.name.c_str(), access), H5Dclose);
    openVariable_ = variable;
  }
  readThroughLibrary(offset, into);
}

void Contents::readTogether(std::uint64_t place, std::span<char> into) const {
  for (std::size_t done = 0; done < into.size();) {
    const ssize_t count = pread(disk_.descriptor, into.data() + done, into.size() - done,
                                static_cast<off_t>(place + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw LibraryError(std::strerror(errno));
    if (count == 0) throw LibraryError("the file has become shorter");
    done += static_cast<std::size_t>(count);
  }
}

void Contents::readThroughLibrary(std::uint64_t offset, std::span<char> into) const {
  const hsize_t first = offset;
  const hsize_t count = into.size();
  const Handle stored(H5Dget_space(openDataset_), H5Sclose);
  checked(H5Sselect_hyperslab(stored, H5S_SELECT_SET, &first, nullptr, &count, nullptr));
  const Handle memory(H5Screate_simple(1, &count, nullptr), H5Sclose);
  checked(H5Dread(openDataset_, H5T_NATIVE_UINT8, memory, stored, H5P_DEFAULT, into.data()));
}

}  // namespace datafile
