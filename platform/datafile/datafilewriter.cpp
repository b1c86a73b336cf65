#include <fcntl.h>
#include <hdf5.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <optional>

#include "datafile/datafile.h"
#include "datafile/descriptor.h"
#include "datafile/filedriver.h"
#include "datafile/parts.h"
#include "datafile/seal.h"
#include "host/arraycodec.h"
#include "kodiag/message.h"

namespace datafile {
namespace {

/// Variables of more bytes are written in several steps.
constexpr std::size_t kStepBytes = std::size_t{4} << 20;
/// The unit in which they then grow.
constexpr hsize_t kChunkBytes = hsize_t{1} << 20;

/// By which a file without a name is named.
constexpr const char* kOwnDescriptors = "/proc/self/fd/";

Handle createProperties(Id (*fill)(Id)) {
  Handle properties(H5Pcreate(H5P_DATASET_CREATE), H5Pclose);
  checked(H5Pset_obj_track_times(properties, false));
  // Every byte is written anyway.
  checked(H5Pset_fill_time(properties, H5D_FILL_TIME_NEVER));
  if (fill) checked(fill(properties));
  return properties;
}

Id makeGrowing(Id properties) {
  return H5Pset_chunk(properties, 1, &kChunkBytes);
}

Handle byteSpace(hsize_t size, bool mayGrow) {
  const hsize_t most = mayGrow ? H5S_UNLIMITED : size;
  return {H5Screate_simple(1, &size, &most), H5Sclose};
}

}  // namespace

struct DataFileWriter::Impl {
  std::string target;
  std::string path;  ///< of the file being made; empty while it has no name of its own
  DiskFile disk;
  Handle file;
  std::string buffer;  ///< of the variable that is open
  bool hasOpenVariable = false;

  explicit Impl(const std::string& name) : target(name) {
    if (name.find('\0') != std::string::npos) raise("its name holds a zero character");
    checkTarget();
    removeAbandonedParts(target);
    openPart();
    try {
      attempt([&] { create(); });
    } catch (...) {
      discard();
      throw;
    }
  }
  ~Impl() { discard(); }

  [[noreturn]] void raise(const std::string& reason) const {
    kodiag::raise({"datafile:file", "CannotWrite"}, {{"Location", target}, {"Reason", reason}});
  }

  /// Runs calls of the library; their failures are raised, the disk's before the library's own.
  template <class Calls>
  void attempt(Calls&& calls) {
    const LibraryGuard guard;
    try {
      calls();
    } catch (const LibraryError& error) {
      if (disk.errorNumber == 0) raise(error.what());
    }
    if (disk.errorNumber != 0) raise(std::strerror(disk.errorNumber));
  }

  void checkTarget() const {
    struct stat status {};
    if (lstat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
      raise("something that is no regular file stands there");
    }
  }

  /// Without a name where the system can do that: then a kill leaves nothing behind.
  void openPart() {
    const std::string folder = folderOf(target);
    if (access(kOwnDescriptors, X_OK) == 0) {
      disk.descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0666);
    }
    if (disk.descriptor >= 0) {
      markAsInUse(disk.descriptor);
    } else {
      disk.descriptor = createPart(target, path);
      if (disk.descriptor < 0) raise(std::strerror(errno));
    }
  }

  void create() {
    const Handle access = accessThrough(disk);
    const Handle properties(H5Pcreate(H5P_FILE_CREATE), H5Pclose);
    checked(H5Pset_userblock(properties, kSealBytes));
    file = Handle(H5Fcreate(target.c_str(), H5F_ACC_TRUNC, properties, access), H5Fclose);
  }

  void closeLibraryFile() {
    attempt([&] {
      if (!file.close()) checked(-1);
    });
  }

  /// A new file is as private as the one it replaces.
  void takeOverMode() const {
    struct stat status {};
    if (stat(target.c_str(), &status) == 0) fchmod(disk.descriptor, status.st_mode & 07777);
  }

  void sealFile() const {
    const int errorNumber = seal(disk.descriptor);
    if (errorNumber != 0) raise(std::strerror(errorNumber));
  }

  void flush() const {
    if (fsync(disk.descriptor) != 0) raise(std::strerror(errno));
  }

  void moveIntoPlace() {
    if (path.empty() && linkAs(target)) return;
    if (path.empty()) {
      const std::string name = partName(target);
      if (!linkAs(name)) raise(std::strerror(errno));
      path = name;
    }
    if (rename(path.c_str(), target.c_str()) != 0) raise(std::strerror(errno));
    path.clear();
  }

  /// Gives a file without a name one that is not taken. \returns whether it has it
  bool linkAs(const std::string& name) const {
    const std::string self = kOwnDescriptors + std::to_string(disk.descriptor);
    return linkat(AT_FDCWD, self.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) == 0;
  }

  // The file is in its place; a folder that cannot be flushed changes nothing about that.
  void flushFolder() const {
    const Descriptor opened(open(folderOf(target).c_str(), O_RDONLY | O_CLOEXEC));
    if (opened >= 0) fsync(opened);
  }

  void discard() noexcept {
    if (file.isOpen()) {
      const LibraryGuard guard;
      // What is still to be written is lost on purpose.
      if (disk.errorNumber == 0) disk.errorNumber = ECANCELED;
      file.close();
    }
    if (disk.descriptor < 0) return;
    close(disk.descriptor);
    disk.descriptor = -1;
    if (!path.empty()) unlink(path.c_str());
  }
};

DataFileWriter::DataFileWriter(const std::string& target)
    : impl_(std::make_unique<Impl>(target)) {}

DataFileWriter::~DataFileWriter() = default;

void DataFileWriter::put(const std::string& name, const host::HostArray& value) {
  Variable variable(*this, name);
  variable.put(value);
  variable.finish();
}

void DataFileWriter::commit(Durability durability) {
  if (impl_->hasOpenVariable) impl_->raise("a variable was not finished");
  const bool isDurable = durability == Durability::durable;
  impl_->closeLibraryFile();
  impl_->sealFile();
  impl_->takeOverMode();
  if (isDurable) impl_->flush();
  impl_->moveIntoPlace();
  if (isDurable) impl_->flushFolder();
}

struct DataFileWriter::Variable::Impl {
  DataFileWriter::Impl& writer;
  std::string name;
  std::string& bytes;  ///< encoded and not yet written
  host::ArrayEncoder encoder{bytes};
  Handle dataset;  ///< open once more than one step is needed
  hsize_t written = 0;

  Impl(DataFileWriter::Impl& owner, std::string variableName)
      : writer(owner), name(std::move(variableName)), bytes(owner.buffer) {
    if (writer.hasOpenVariable) writer.raise("another variable is not finished");
    if (name.empty() || name == "." || name.find('/') != std::string::npos) {
      writer.raise("\"" + name + "\" cannot be the name of a variable");
    }
    writer.hasOpenVariable = true;
    bytes.clear();
  }

  ~Impl() {
    if (!dataset.isOpen()) return;
    const LibraryGuard guard;
    dataset.close();
  }

  void create(hsize_t size, bool mayGrow) {
    const Handle space = byteSpace(size, mayGrow);
    const Handle properties = createProperties(mayGrow ? makeGrowing : nullptr);
    const Handle access(H5Pcreate(H5P_DATASET_ACCESS), H5Pclose);
    // What is written comes in long pieces: nothing of it is worth a second copy in memory.
    checked(H5Pset_chunk_cache(access, 0, 0, H5D_CHUNK_CACHE_W0_DEFAULT));
    dataset = Handle(H5Dcreate2(writer.file, name.c_str(), H5T_STD_U8LE, space, H5P_DEFAULT,
                                properties, access),
                     H5Dclose);
  }

  void writeBytes() {
    const hsize_t count = bytes.size();
    const hsize_t size = written + count;
    checked(H5Dset_extent(dataset, &size));
    const Handle stored(H5Dget_space(dataset), H5Sclose);
    checked(H5Sselect_hyperslab(stored, H5S_SELECT_SET, &written, nullptr, &count, nullptr));
    const Handle memory = byteSpace(count, false);
    checked(H5Dwrite(dataset, H5T_NATIVE_UINT8, memory, stored, H5P_DEFAULT, bytes.data()));
    written = size;
    bytes.clear();
  }

  void writeStep() {
    writer.attempt([&] {
      if (!dataset.isOpen()) create(0, true);
      writeBytes();
    });
  }

  void writeRest() {
    writer.attempt([&] {
      if (dataset.isOpen()) {
        writeBytes();
      } else {
        create(bytes.size(), false);
        checked(
            H5Dwrite(dataset, H5T_NATIVE_UINT8, H5S_ALL, H5S_ALL, H5P_DEFAULT, bytes.data()));
      }
      if (!dataset.close()) checked(-1);
    });
  }
};

DataFileWriter::Variable::Variable(DataFileWriter& writer, std::string name)
    : impl_(std::make_unique<Impl>(*writer.impl_, std::move(name))) {}

DataFileWriter::Variable::~Variable() = default;

void DataFileWriter::Variable::beginStructure(std::span<const std::string> fieldNames) {
  impl_->encoder.putStructureHead(fieldNames);
}

void DataFileWriter::Variable::beginCell(std::size_t count) {
  impl_->encoder.putCellHead(count);
}

void DataFileWriter::Variable::put(const host::HostArray& array) {
  impl_->encoder.put(array);
  if (impl_->bytes.size() >= kStepBytes) impl_->writeStep();
}

void DataFileWriter::Variable::finish() {
  impl_->writeRest();
  impl_->writer.hasOpenVariable = false;
}

}  // namespace datafile
