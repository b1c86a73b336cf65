#include "objectmanager/persistentdmr.h"

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "host/locks.h"
#include "host/names.h"
#include "objectmanager/objectmanager.h"
#include "objectmanager/opening.h"
#include "objectmanager/schemaxmlparser.h"
#include "sqldb/database.h"
#include "text/utf8.h"

namespace vela::persistentdmr {
namespace {

std::atomic<bool> opened = false;

std::string fileName() {
  SchemaXMLParser schema(ObjectManager::getSchemaPath(""));
  return host::userName() + "_" + host::fitForFileName(schema.signature()) + ".dmr";
}

const std::string& utf8Path() {
  static const std::string path = (host::systemTempDirectory() / fileName()).string();
  return path;
}

}  // namespace

const std::wstring& path() {
  static const std::wstring wide = text::toWide(utf8Path());
  return wide;
}

bool isUsable() {
  return unusableReason().empty();
}

std::string unusableReason() {
  struct stat status {};
  if (lstat(utf8Path().c_str(), &status) != 0) return {};
  if (S_ISLNK(status.st_mode)) return "it is a symbolic link";
  if (!S_ISREG(status.st_mode)) return "it is no regular file";
  if (status.st_uid != geteuid() && status.st_uid != 0) return "it belongs to another user";
  return {};
}

void deleteFile() {
  const host::NamedLock creation(opening::kCreationLockName);
  std::error_code ignored;
  const auto kind = std::filesystem::symlink_status(utf8Path(), ignored).type();
  if (kind != std::filesystem::file_type::directory) sqldb::removeFile(utf8Path());
}

bool wasOpened() {
  return opened;
}

void noteOpened() {
  opened = true;
}

}  // namespace vela::persistentdmr
