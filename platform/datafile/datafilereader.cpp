#include <fcntl.h>
#include <hdf5.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "datafile/datafile.h"
#include "datafile/filedriver.h"
#include "datafile/seal.h"
#include "host/arraycodec.h"
#include "kodiag/diagnostics.h"
#include "kodiag/message.h"

namespace datafile {
namespace {

/// Bytes that are read ahead of what is asked for; as much and more is read to where it
/// belongs.
constexpr std::size_t kStepBytes = std::size_t{32} << 10;

herr_t collectName(hid_t, const char* name, const H5L_info_t* link, void* names) {
  // A link that leads elsewhere is none of ours.
  if (link->type != H5L_TYPE_HARD) return -1;
  static_cast<std::vector<std::string>*>(names)->emplace_back(name);
  return 0;
}

/// The number of bytes of a dataset that is made as ours are: bytes of this very file, as they
/// are, in one dimension, all of them there. Nothing for any other.
std::optional<std::uint64_t> byteCountOf(Id dataset, std::uint64_t fileBytes) {
  const Handle type(H5Dget_type(dataset), H5Tclose);
  const Handle space(H5Dget_space(dataset), H5Sclose);
  const Handle properties(H5Dget_create_plist(dataset), H5Pclose);
  const H5D_layout_t layout = H5Pget_layout(properties);
  hsize_t size = 0;
  if (H5Tget_class(type) != H5T_INTEGER || H5Tget_size(type) != 1 ||
      H5Sget_simple_extent_ndims(space) != 1 ||
      H5Sget_simple_extent_dims(space, &size, nullptr) != 1 ||
      (layout != H5D_CONTIGUOUS && layout != H5D_CHUNKED && layout != H5D_COMPACT) ||
      H5Pget_external_count(properties) != 0 || H5Pget_nfilters(properties) != 0 ||
      size > fileBytes || H5Dget_storage_size(dataset) < size) {
    return std::nullopt;
  }
  return size;
}

}  // namespace

struct DataFileReader::Impl {
  std::string path;
  DiskFile disk;
  std::uint64_t fileBytes = 0;
  Handle file;

  explicit Impl(const std::string& name) : path(name) {
    disk.descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (disk.descriptor < 0) raise("CannotRead", std::strerror(errno));
    try {
      checkKind();
      attempt("CannotRead", [&] { openLibraryFile(); });
    } catch (...) {
      closeAll();
      throw;
    }
  }
  ~Impl() { closeAll(); }

  [[noreturn]] void raise(const char* key, const std::string& reason) const {
    kodiag::raise({"datafile:file", key}, {{"Location", path}, {"Reason", reason}});
  }
  [[noreturn]] void raiseDamaged(const std::string& name, const std::string& reason) const {
    kodiag::raise({"datafile:file", "Damaged"},
                  {{"Location", path}, {"Variable", name}, {"Reason", reason}});
  }

  template <class Calls>
  void attempt(const char* key, Calls&& calls) const {
    const LibraryGuard guard;
    try {
      calls();
    } catch (const LibraryError& error) {
      raise(key, error.what());
    }
  }

  void checkKind() {
    struct stat status {};
    if (fstat(disk.descriptor, &status) != 0) raise("CannotRead", std::strerror(errno));
    if (!S_ISREG(status.st_mode)) raise("CannotRead", "it is no regular file");
    fileBytes = static_cast<std::uint64_t>(status.st_size);
    const std::string broken = brokenSeal(disk.descriptor);
    if (!broken.empty()) raise("CannotRead", broken);
  }

  void openLibraryFile() {
    const Handle access = accessThrough(disk);
    file = Handle(H5Fopen(path.c_str(), H5F_ACC_RDONLY, access), H5Fclose);
  }

  void closeAll() noexcept {
    if (file.isOpen()) {
      const LibraryGuard guard;
      file.close();
    }
    if (disk.descriptor >= 0) close(disk.descriptor);
  }

  bool isDataset(const std::string& name) const {
    H5L_info_t link;
    if (name.empty() || name.find('/') != std::string::npos) return false;
    if (checked(H5Lexists(file, name.c_str(), H5P_DEFAULT)) == 0) return false;
    checked(H5Lget_info(file, name.c_str(), &link, H5P_DEFAULT));
    if (link.type != H5L_TYPE_HARD) return false;
    H5O_info_t object;
    checked(H5Oget_info_by_name2(file, name.c_str(), &object, H5O_INFO_BASIC, H5P_DEFAULT));
    return object.type == H5O_TYPE_DATASET;
  }
};

DataFileReader::DataFileReader(const std::string& path) : impl_(std::make_unique<Impl>(path)) {}

DataFileReader::~DataFileReader() = default;

const std::string& DataFileReader::path() const {
  return impl_->path;
}

bool DataFileReader::has(const std::string& name) const {
  bool found = false;
  impl_->attempt("CannotRead", [&] { found = impl_->isDataset(name); });
  return found;
}

std::vector<std::string> DataFileReader::names(std::string_view start) const {
  std::vector<std::string> names;
  impl_->attempt("CannotRead", [&] {
    checked(H5Literate(impl_->file, H5_INDEX_NAME, H5_ITER_INC, nullptr, collectName, &names));
  });
  std::erase_if(names, [&](const std::string& name) { return !name.starts_with(start); });
  std::ranges::sort(names);
  return names;
}

host::HostArray DataFileReader::get(const std::string& name) const {
  Variable variable(*this, name);
  host::HostArray array = variable.take();
  variable.finish();
  return array;
}

/// The bytes of a variable, read ahead in steps.
struct DataFileReader::Variable::Impl final : host::ByteSource {
  const DataFileReader::Impl& reader;
  std::string name;
  Handle dataset;
  std::uint64_t end = 0;  ///< of the array; its checksum follows
  std::uint64_t handedOut = 0;
  std::uint64_t loaded = 0;  ///< bytes of the dataset read so far
  std::vector<char> ahead;   ///< the last of them
  std::size_t aheadTaken = 0;
  host::ArrayDecoder decoder{*this};

  Impl(const DataFileReader::Impl& owner, std::string variableName)
      : reader(owner), name(std::move(variableName)) {
    attempt([&] { openDataset(); });
  }
  ~Impl() override {
    const LibraryGuard guard;
    dataset.close();
  }

  std::uint64_t left() const override { return end - handedOut; }

  void take(void* into, std::size_t count) override {
    takeRaw(static_cast<char*>(into), count);
    handedOut += count;
  }

  template <class Calls>
  void attempt(Calls&& calls) {
    const LibraryGuard guard;
    try {
      calls();
    } catch (const LibraryError& error) {
      reader.raiseDamaged(name, error.what());
    }
  }

  /// Runs a step of decoding; what it finds wrong is damage.
  template <class Step>
  auto decode(Step&& step) {
    try {
      return step();
    } catch (const kodiag::except::ExceptionWithCauses& error) {
      if (error.message().id.component == "datafile:file") throw;
      reader.raiseDamaged(name, error.message().text());
    }
  }

  void openDataset() {
    if (!reader.isDataset(name)) {
      kodiag::raise({"datafile:file", "NoSuchVariable"},
                    {{"Location", reader.path}, {"Variable", name}});
    }
    dataset = Handle(H5Dopen2(reader.file, name.c_str(), H5P_DEFAULT), H5Dclose);
    const std::optional<std::uint64_t> size = byteCountOf(dataset, reader.fileBytes);
    if (!size) throw LibraryError("it is no variable of ours");
    end = *size;
  }

  void takeRaw(char* into, std::size_t count) {
    const std::size_t fromAhead = std::min(count, ahead.size() - aheadTaken);
    if (fromAhead > 0) std::memcpy(into, ahead.data() + aheadTaken, fromAhead);
    aheadTaken += fromAhead;
    into += fromAhead;
    count -= fromAhead;
    if (count == 0) return;
    if (count >= kStepBytes) {
      load(into, count);
      return;
    }
    ahead.resize(std::min<std::uint64_t>(kStepBytes, end - loaded));
    load(ahead.data(), ahead.size());
    std::memcpy(into, ahead.data(), count);
    aheadTaken = count;
  }

  void load(char* into, std::size_t byteCount) {
    attempt([&] {
      const hsize_t count = byteCount;
      const hsize_t first = loaded;
      const Handle stored(H5Dget_space(dataset), H5Sclose);
      checked(H5Sselect_hyperslab(stored, H5S_SELECT_SET, &first, nullptr, &count, nullptr));
      const Handle memory(H5Screate_simple(1, &count, nullptr), H5Sclose);
      checked(H5Dread(dataset, H5T_NATIVE_UINT8, memory, stored, H5P_DEFAULT, into));
    });
    loaded += byteCount;
  }

  void checkEnd() {
    if (left() > 0) reader.raiseDamaged(name, "something is left behind the array");
  }
};

DataFileReader::Variable::Variable(const DataFileReader& reader, const std::string& name)
    : impl_(std::make_unique<Impl>(*reader.impl_, name)) {}

DataFileReader::Variable::~Variable() = default;

std::vector<std::string> DataFileReader::Variable::beginStructure() {
  return impl_->decode([&] { return impl_->decoder.takeStructureHead(); });
}

std::size_t DataFileReader::Variable::beginCell() {
  return impl_->decode([&] { return impl_->decoder.takeCellHead(); });
}

host::HostArray DataFileReader::Variable::take() {
  return impl_->decode([&] { return impl_->decoder.take(); });
}

void DataFileReader::Variable::finish() {
  impl_->checkEnd();
}

}  // namespace datafile
