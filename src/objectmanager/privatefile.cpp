#include "objectmanager/privatefile.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
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

}  // namespace

PrivateFile::PrivateFile() : owner_(getpid()) {
  sweepPrivateFiles();
  location_ = host::reserveTemporaryName(kPrefix, kExtension).string();
  presence_ = std::make_unique<sqldb::Presence>(location_);
}

PrivateFile::~PrivateFile() {
  remove();
}

void PrivateFile::remove() noexcept {
  if (owner_ != getpid()) return;
  presence_.reset();
  try {
    sqldb::removeFile(location_);
    fs::remove(location_ + "-lock");
  } catch (const std::exception&) {
    // The sweep of a later process finds it.
  }
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
