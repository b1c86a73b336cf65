#include "datafile/memoryfile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

namespace datafile {
namespace {

constexpr int kFixedSize = F_SEAL_SHRINK | F_SEAL_GROW;
constexpr int kAllSeals = kFixedSize | F_SEAL_WRITE | F_SEAL_SEAL;

[[noreturn]] void raiseErrno(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace

MemoryFile::MemoryFile(std::size_t size)
    : size_(size), file_(memfd_create("vela", MFD_CLOEXEC | MFD_ALLOW_SEALING)) {
  if (file_ < 0 || ftruncate(file_, static_cast<off_t>(size)) != 0 ||
      fcntl(file_, F_ADD_SEALS, kFixedSize) != 0) {
    raiseErrno("cannot make a file in memory");
  }
}

MemoryFile::~MemoryFile() {
  if (begin_) munmap(const_cast<char*>(begin_), size_);
}

bool MemoryFile::seal() {
  if (fcntl(file_, F_ADD_SEALS, F_SEAL_WRITE | F_SEAL_SEAL) != 0) return false;
  struct stat status {};
  const bool isSealed = fcntl(file_, F_GET_SEALS) == kAllSeals && fstat(file_, &status) == 0 &&
                        status.st_size == static_cast<off_t>(size_);
  if (!isSealed) return false;
  void* const begin = mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_POPULATE, file_, 0);
  if (begin == MAP_FAILED) raiseErrno("cannot map a file in memory");
  begin_ = static_cast<const char*>(begin);
  file_ = Descriptor();
  return true;
}

}  // namespace datafile
