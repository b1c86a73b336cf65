#include "objectmanager/outputpath.h"

#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>

#include "kodiag/diagnostics.h"
#include "sqldb/repositoryfile.h"

namespace vela {
namespace {

constexpr std::string_view kRepositoryExtension = ".dmr";
constexpr std::array<std::string_view, 4> kSideSuffixes = {
    sqldb::kLogSuffix, sqldb::kIndexSuffix, sqldb::kJournalSuffix, sqldb::kLockSuffix};

bool exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

bool isRegularFile(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

bool hasSideFile(const std::string& path) {
  return std::ranges::any_of(kSideSuffixes, [&](std::string_view suffix) {
    return exists(path + std::string(suffix));
  });
}

/// A header may be damaged, so that a name and what stands beside it count as well.
bool looksLikeARepository(const std::string& path) {
  if (hasSideFile(path)) return true;
  return isRegularFile(path) &&
         (path.ends_with(kRepositoryExtension) || sqldb::beginsLikeADatabase(path));
}

}  // namespace

std::string whyNotToWrite(const std::string& path) try {
  if (path.empty()) return "its name is empty";
  if (path.find('\0') != std::string::npos) return "its name holds a zero character";
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0) {
    if (S_ISDIR(status.st_mode)) return "it is a directory";
    if (S_ISLNK(status.st_mode)) return "it is a symbolic link";
    if (!S_ISREG(status.st_mode)) return "it is no regular file";
  } else if (errno != ENOENT) {
    return std::generic_category().message(errno);
  }
  if (looksLikeARepository(path)) return "it is a repository or another database";
  const std::string repository = sqldb::repositoryBeside(path);
  if (repository.ends_with(kRepositoryExtension) ||
      (!repository.empty() && looksLikeARepository(repository))) {
    return "a file of that name belongs to the repository \"" + repository + "\"";
  }
  return {};
} catch (const kodiag::except::ExceptionWithCauses& error) {
  return "what lies there cannot be looked at: " + error.innermost().text();
}

}  // namespace vela
