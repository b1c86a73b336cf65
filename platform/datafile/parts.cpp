#include "datafile/parts.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <string_view>
#include <vector>

#include "datafile/descriptor.h"

namespace datafile {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kHex = "0123456789abcdef";
constexpr std::string_view kEnd = ".part";
constexpr std::size_t kDigits = 12;

bool isPartOf(std::string_view name, std::string_view target) {
  if (!name.starts_with(target) || !name.ends_with(kEnd)) return false;
  name.remove_prefix(target.size());
  return name.size() == 1 + kDigits + kEnd.size() && name[0] == '.' &&
         name.find_first_not_of(kHex, 1) == 1 + kDigits;
}

void removeIfAbandoned(const fs::path& path) {
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  const bool isFile = file >= 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  if (isFile && flock(file, LOCK_EX | LOCK_NB) == 0) unlink(path.c_str());
}

}  // namespace

std::string folderOf(const std::string& path) {
  const fs::path folder = fs::path(path).parent_path();
  return folder.empty() ? "." : folder.string();
}

std::string partName(const std::string& target) {
  std::random_device random;
  std::string name = target + ".";
  for (std::size_t i = 0; i < kDigits; ++i) name += kHex[random() % kHex.size()];
  return name.append(kEnd);
}

int createPart(const std::string& target, std::string& name) {
  for (;;) {
    name = partName(target);
    Descriptor file(open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (file < 0) return -1;
    markAsInUse(file);
    // Until it was marked, another process may have taken it for abandoned.
    struct stat status {};
    if (fstat(file, &status) == 0 && status.st_nlink > 0) return file.release();
  }
}

void markAsInUse(int file) {
  flock(file, LOCK_EX);
}

void removeAbandonedParts(const std::string& target) {
  const std::string name = fs::path(target).filename();
  std::error_code error;
  std::vector<fs::path> parts;
  for (fs::directory_iterator place(folderOf(target), error), end; !error && place != end;
       place.increment(error)) {
    if (isPartOf(place->path().filename().string(), name)) parts.push_back(place->path());
  }
  for (const fs::path& part : parts) removeIfAbandoned(part);
}

}  // namespace datafile
