#include "sqldb/opening.h"

#include <cerrno>

#include "kodiag/message.h"
#include "sqldb/processstate.h"

namespace sqldb {
namespace {

[[noreturn]] void raiseNotARepository(const std::string& path, const std::string& reason) {
  kodiag::raise({"KODD:kodd", "NotARepository"}, {{"Location", path}, {"Reason", reason}});
}

/// \returns whether there is a file
bool findRepository(const std::string& path, const OpenOptions& options) {
  const Finding finding = inspectFile(path, options.applicationId);
  if (finding.kind == FileKind::foreign) raiseNotARepository(path, finding.reason);
  if (finding.kind == FileKind::absent && !options.createIfAbsent) {
    raiseSystemError(ENOENT, "open", path);
  }
  return finding.kind == FileKind::ours;
}

/// The write lock for a scope in which there is no connection yet.
class WriteLockScope {
 public:
  WriteLockScope(RepositoryLock& lock, std::chrono::milliseconds timeout) : lock_(lock) {
    lock.acquireWrite("open", timeout);
  }
  ~WriteLockScope() { lock_.releaseWrite(); }
  WriteLockScope(const WriteLockScope&) = delete;
  WriteLockScope& operator=(const WriteLockScope&) = delete;

 private:
  RepositoryLock& lock_;
};

/// Makes an empty file for the engine to lay out.
void create(const std::string& path, RepositoryLock& lock, const OpenOptions& options) {
  const WriteLockScope writing(lock, options.busyTimeout);
  // Another process may have been faster.
  if (findRepository(path, options)) return;
  // Left behind by a file that is gone; the new one must not take their pages for its own.
  deleteSideFiles(path);
  createEmptyFile(path);
}

std::unique_ptr<Connection> connect(const std::string& path, RepositoryLock& lock,
                                    const OpenOptions& options) {
  const auto identity = fileIdentity(path);
  if (identity && !clearInheritedHandles(*identity)) {
    kodiag::raise({"KODD:kodd", "ForkedProcess"}, {{"Operation", "open"}, {"Location", path}});
  }
  auto connection = std::make_unique<Connection>(path, options);
  if (connection->usesLog()) return connection;
  const WriteLockScope writing(lock, options.busyTimeout);
  // Asked of the engine, not of the file: whoever made it may have been killed in the middle,
  // and the engine then takes its header back.
  if (connection->isEmpty()) connection->layOut(options.applicationId);
  connection->turnOnLog(options.busyTimeout);
  return connection;
}

}  // namespace

OpenedFile openFile(const std::string& location, const OpenOptions& options) {
  OpenedFile opened;
  opened.path = resolvedPath(location);
  findRepository(opened.path, options);
  opened.lock = std::make_unique<RepositoryLock>(opened.path, options.busyTimeout);
  // Looked at again: it may have been moved away before we were known to have it open.
  if (!findRepository(opened.path, options)) create(opened.path, *opened.lock, options);
  opened.connection = connect(opened.path, *opened.lock, options);
  // The engine knows the ID from the log as well, which the first look left alone.
  const std::string applicationId = opened.connection->queryText("PRAGMA application_id");
  if (applicationId != std::to_string(options.applicationId)) {
    raiseNotARepository(opened.path, "it is the database of another program");
  }
  opened.identity = fileIdentity(opened.path).value_or(FileIdentity{});
  if (opened.connection->findMoved()) opened.connection->raiseMoved("open");
  touchFiles(opened.path);
  return opened;
}

}  // namespace sqldb
