#include "scripting/wrapper.h"

#include <unistd.h>

#include <filesystem>
#include <mutex>
#include <utility>

#include "host/processmutex.h"
#include "scripting/errors.h"
#include "text/utf8.h"

namespace vela::scripting {
namespace {

[[noreturn]] void raiseUnusable(const std::string& location, const std::string& reason) {
  throwScriptingError({"KODD:kodd", "IOError"},
                      {{"Operation", "open"}, {"Location", location}, {"Reason", reason}});
}

/// Causes that time does not cure.
void refuseHopeless(const std::string& location, ObjectManager::Access access) {
  if (location.empty()) raiseUnusable(location, "the file name is empty");
  if (location.find('\0') != std::string::npos) {
    raiseUnusable(location, "the file name holds a character 0");
  }
  std::error_code unknown;
  const std::filesystem::path path = std::filesystem::absolute(location, unknown);
  if (std::filesystem::is_directory(path, unknown)) {
    raiseUnusable(location, "it is a folder");
  }
  if (unknown && unknown != std::errc::no_such_file_or_directory) {
    raiseUnusable(location, unknown.message());
  }
  const std::string folder = path.parent_path().string();
  if (!std::filesystem::is_directory(folder, unknown)) {
    raiseUnusable(location, "there is no folder \"" + folder + "\"");
  }
  if (access == ObjectManager::Access::read) return;
  // Lock file and log are made beside the repository.
  if (::access(folder.c_str(), W_OK) != 0) {
    raiseUnusable(location, "nothing can be written into the folder \"" + folder + "\"");
  }
}

/// Opens; raises what stood in the way as it was, without the report that the file is not open.
std::unique_ptr<ObjectManager> opened(std::unique_ptr<ObjectManager> manager) {
  manager->initializeObjectManager({}, {});
  if (manager->isOpen()) return manager;
  kodiag::util::diagnostics failure;
  manager->repository().metamodel(failure);
  kodiag::except::ExceptionWithCauses error = failure.extractExceptionWithCauses();
  if (error.message().causes.empty()) throw error;
  throw kodiag::except::ExceptionWithCauses(error.message().causes.front());
}

/// Guards which managers the wrappers hold.
host::ProcessMutex& managersMutex() {
  static auto& mutex = *new host::ProcessMutex;
  return mutex;
}

}  // namespace

std::shared_ptr<ObjectManager> ObjectManagerWrapper::getObjMgr() const {
  const std::lock_guard lock(managersMutex());
  return manager_;
}

void ObjectManagerWrapper::setObjMgr(std::unique_ptr<ObjectManager> own) {
  // Declared before the lock, so that a former manager dies after it has been let go of.
  std::shared_ptr<ObjectManager> former = std::move(own);
  const std::lock_guard lock(managersMutex());
  manager_.swap(former);
  isShared_ = false;
}

void ObjectManagerWrapper::setObjMgr(ObjectManager& shared) {
  std::shared_ptr<ObjectManager> former(std::shared_ptr<void>(), &shared);
  const std::lock_guard lock(managersMutex());
  manager_.swap(former);
  isShared_ = true;
}

std::string ObjectManagerWrapper::describe() const noexcept {
  const std::shared_ptr<ObjectManager> manager = getObjMgr();
  if (!manager) return "closed";
  if (isShared_) return "shared";
  try {
    return "private '" + text::toUtf8(manager->getDatabaseLocation()) + "'";
  } catch (const std::exception&) {
    return "private";
  }
}

void ObjectManagerWrapper::close() {
  if (isShared_) return;
  // Declared before the lock, so that the manager dies after it has been let go of.
  std::shared_ptr<ObjectManager> last;
  const std::lock_guard lock(managersMutex());
  last = std::move(manager_);
}

std::unique_ptr<ObjectManager> openPrivate(const std::wstring& location,
                                           ObjectManager::Access access) {
  refuseHopeless(text::toUtf8(location), access);
  kodiag::util::diagnostics refusal;
  ObjectManager::checkFile(location, refusal);
  refusal.raiseIfAny();
  return opened(std::make_unique<ObjectManager>(location, access));
}

std::unique_ptr<ObjectManager> openTemporary() {
  return opened(std::make_unique<ObjectManager>());
}

}  // namespace vela::scripting
