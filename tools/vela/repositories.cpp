#include "tools/vela/repositories.h"

#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "kodiag/message.h"
#include "text/utf8.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

constexpr const char* kFileSetAside = "FileSetAside";

std::wstring locationOf(const Context& context) {
  return context.repository.empty() ? ObjectManager::persistentDMRPath()
                                    : text::toWide(context.repository);
}

void refuseWhatIsNoRepository(const std::wstring& location) {
  kodiag::util::diagnostics diag;
  ObjectManager::checkFile(location, diag);
  diag.raiseIfAny();
}

// Damage is worth a line even to those who want no words.
void tellWhatOpeningFound(const ObjectManager& manager) {
  for (const kodiag::Message& message : manager.getOpeningNotices().messages()) {
    warn(message.textWithCauses());
    if (message.id.key != kFileSetAside) continue;
    say("\"vela salvage --help\" tells how to bring back what can be read of it.");
  }
}

void requireFile(const std::wstring& location) {
  const std::string path = text::toUtf8(location);
  if (std::filesystem::symlink_status(path).type() == std::filesystem::file_type::not_found) {
    kodiag::raise({"VELA:vela", "NoRepository"}, {{"Location", path}});
  }
}

// The store would wait for a folder to appear, as it waits for whatever else keeps it from
// opening.
void requirePlaceFor(const std::wstring& location) {
  const std::string path = text::toUtf8(location);
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  if (folder.empty() || access(path.c_str(), F_OK) == 0) return;
  if (access((folder / ".").c_str(), W_OK | X_OK) == 0) return;
  const std::string reason =
      "folder \"" + folder.string() + "\": " + std::generic_category().message(errno);
  kodiag::raise({"VELA:vela", "CannotWriteFile"}, {{"File", path}, {"Reason", reason}});
}

// A manager of its own keeps instance ID 0: it sees the runs of every session and enters no row
// of its own in the instance table.
std::unique_ptr<ObjectManager> opened(const std::wstring& location,
                                      ObjectManager::Access access) {
  requirePlaceFor(location);
  refuseWhatIsNoRepository(location);
  auto manager = std::make_unique<ObjectManager>(location, access);
  manager->initializeObjectManager({}, {});
  kodiag::util::diagnostics diag;
  manager->repository().metamodel(diag);
  diag.raiseIfAny();
  tellWhatOpeningFound(*manager);
  return manager;
}

}  // namespace

Repository Repository::openForReading(const Context& context) {
  const std::wstring location = locationOf(context);
  requireFile(location);
  return Repository(opened(location, ObjectManager::Access::read));
}

Repository Repository::openForChanging(const Context& context) {
  const std::wstring location = locationOf(context);
  requireFile(location);
  return Repository(opened(location, ObjectManager::Access::write));
}

Repository Repository::openForWriting(const Context& context) {
  if (!context.repository.empty())
    return Repository(opened(locationOf(context), ObjectManager::Access::write));
  refuseWhatIsNoRepository(locationOf(context));
  return Repository(VelaInstance::getInstance());
}

Repository Repository::openAsSession(const Context& context) {
  requireFile(locationOf(context));
  return openForWriting(context);
}

Repository Repository::openForAdoption(const Context& context) {
  Repository repository = openForWriting(context);
  if (repository.manager().getInstanceID() == 0) {
    repository.manager().setInstanceID(VelaInstance::getInstance().getInstanceID());
  }
  return repository;
}

Repository::Repository(VelaInstance& session)
    : session_(&session), manager_(&session.getObjectManager({}, {})) {
  tellWhatOpeningFound(*manager_);
}

void Repository::EndSession::operator()(VelaInstance* session) const {
  try {
    session->setInstanceClosed();
    session->disconnectAll();
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    // The runs are stored; who opens the repository next finds this process gone.
    warn(error.innermost().textWithCauses());
  }
}

std::string Repository::location() const {
  return text::toUtf8(manager_->getDatabaseLocation());
}

}  // namespace vela::tool
