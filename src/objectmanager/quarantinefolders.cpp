#include "objectmanager/quarantinefolders.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <vector>

namespace vela {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kKeptFolders = 3;
constexpr auto kKeptTime = std::chrono::days(30);

struct Folder {
  fs::path path;
  fs::file_time_type time;
};

/// Newest first.
std::vector<Folder> quarantineFolders(const fs::path& location) {
  const std::string prefix = location.filename().string() + ".quarantine-";
  std::vector<Folder> folders;
  for (const fs::directory_entry& entry : fs::directory_iterator(location.parent_path())) {
    const bool isFolder = entry.symlink_status().type() == fs::file_type::directory;
    if (isFolder && entry.path().filename().string().starts_with(prefix)) {
      folders.push_back({entry.path(), entry.last_write_time()});
    }
  }
  std::ranges::sort(folders, std::ranges::greater(), &Folder::time);
  return folders;
}

}  // namespace

void pruneQuarantineFolders(const std::string& location) noexcept {
  try {
    const fs::file_time_type oldest = fs::file_time_type::clock::now() - kKeptTime;
    const std::vector<Folder> folders = quarantineFolders(location);
    for (std::size_t i = kKeptFolders; i < folders.size(); ++i) {
      std::error_code ignored;
      if (folders[i].time < oldest) fs::remove_all(folders[i].path, ignored);
    }
  } catch (const std::exception&) {
    // A folder too many does no harm.
  }
}

}  // namespace vela
