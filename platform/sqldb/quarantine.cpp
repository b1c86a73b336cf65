#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <string>

#include "sqldb/database.h"
#include "sqldb/repositorylock.h"

namespace sqldb {
namespace {

std::string folderName(const std::string& path) {
  const std::time_t now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  std::array<char, 32> date{};
  std::strftime(date.data(), date.size(), "%Y%m%dT%H%M%SZ", &utc);
  return path + ".quarantine-" + date.data() + "-" + std::to_string(getpid());
}

std::string createFolder(const std::string& path) {
  const std::string name = folderName(path);
  std::string folder = name;
  for (int next = 2; mkdir(folder.c_str(), 0700) != 0; ++next) {
    if (errno != EEXIST) raiseSystemError(errno, "move aside", path);
    folder = name + "-" + std::to_string(next);
  }
  return folder;
}

void moveInto(const std::string& folder, const std::string& path, const char* suffix) {
  const std::string from = path + suffix;
  const std::string to = folder + from.substr(from.rfind('/'));
  if (std::rename(from.c_str(), to.c_str()) == 0 || errno == ENOENT) return;
  raiseSystemError(errno, "move aside", from);
}

}  // namespace

std::string quarantine(const std::string& location) {
  const std::string path = resolvedPath(location);
  if (!fileIdentity(path)) raiseSystemError(ENOENT, "move aside", path);
  const ExclusivePresence alone(path);
  if (!alone) return {};

  const std::string folder = createFolder(path);
  // The log and the journal belong to the file and go first: while the file is at its place,
  // nobody creates a new one there, whose opening would delete them. The index is made from the
  // log.
  moveInto(folder, path, kLogSuffix);
  moveInto(folder, path, kJournalSuffix);
  moveInto(folder, path, "");
  deleteFile(path + kIndexSuffix);
  return folder;
}

void removeFile(const std::string& location) {
  const std::string path = resolvedPath(location);
  // The file goes first: without its log it would be a wreck, while side files without a file
  // go when the next one is made.
  deleteFile(path);
  deleteSideFiles(path);
}

}  // namespace sqldb
