#include "objectmanager/privatefile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <map>
#include <mutex>
#include <string_view>
#include <system_error>

#include "host/names.h"
#include "sqldb/database.h"

namespace vela {
namespace {

namespace fs = std::filesystem;

// A person's own file must never look like one of these.
constexpr std::string_view kPrefix = "vela-private-";
constexpr std::string_view kExtension = ".dmr";
constexpr std::size_t kRandomCharacters = 6;

/// Between its reservation and the moment its owner holds its lock, a file looks unused.
constexpr std::time_t kGraceSeconds = 60;

bool isPrivateName(std::string_view name) {
  if (name.size() != kPrefix.size() + kRandomCharacters + kExtension.size()) return false;
  const std::string_view random = name.substr(kPrefix.size(), kRandomCharacters);
  return name.starts_with(kPrefix) && name.ends_with(kExtension) &&
         std::ranges::all_of(random, [](char c) {
           return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
         });
}

bool isOldFileOfOurs(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         status.st_uid == geteuid() && status.st_nlink == 1 &&
         std::time(nullptr) - status.st_mtim.tv_sec > kGraceSeconds;
}

void deleteFiles(const std::string& location) noexcept {
  try {
    sqldb::removeFile(location);
    fs::remove(location + "-lock");
  } catch (const std::exception&) {
    // The sweep of a later process finds it.
  }
}

/// The private files of this process, of which exit() leaves none behind.
class FilesOfProcess {
 public:
  static FilesOfProcess& instance() {
    // Leaked on purpose: managers with static storage may outlive any destructor here.
    static FilesOfProcess* const files = [] {
      std::atexit([] { instance().deleteAll(); });
      return new FilesOfProcess;
    }();
    return *files;
  }
  void add(const std::string& location) {
    const std::lock_guard guard(mutex_);
    owners_[location] = getpid();
  }
  void remove(const std::string& location) noexcept {
    const std::lock_guard guard(mutex_);
    owners_.erase(location);
  }

 private:
  void deleteAll() noexcept {
    // A thread that the end of the process stops may hold it for ever.
    const std::unique_lock guard(mutex_, std::try_to_lock);
    if (!guard) return;
    for (const auto& [location, owner] : owners_) {
      if (owner == getpid()) deleteFiles(location);
    }
  }

  std::mutex mutex_;
  std::map<std::string, pid_t> owners_;
};

}  // namespace

PrivateFile::PrivateFile() : owner_(getpid()) {
  sweepPrivateFiles();
  location_ = host::reserveTemporaryName(kPrefix, kExtension).string();
  FilesOfProcess::instance().add(location_);
  presence_ = std::make_unique<sqldb::Presence>(location_);
}

PrivateFile::~PrivateFile() {
  remove();
  // Not before: a manager may have made the file again.
  FilesOfProcess::instance().remove(location_);
}

void PrivateFile::remove() noexcept {
  if (owner_ != getpid()) return;
  presence_.reset();
  deleteFiles(location_);
}

void sweepPrivateFiles() noexcept {
  try {
    for (const fs::directory_entry& entry :
         fs::directory_iterator(host::systemTempDirectory())) {
      const std::string path = entry.path().string();
      if (!isPrivateName(entry.path().filename().string()) || !isOldFileOfOurs(path)) continue;
      try {
        sqldb::removeUnusedFile(path);
      } catch (const std::exception&) {
        // It stays for the next sweep.
      }
    }
  } catch (const std::exception&) {
    // A temporary directory that cannot be listed is reported when a file is reserved in it.
  }
}

}  // namespace vela
