#include "sqldb/opening.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <optional>

#include "kodiag/message.h"
#include "sqldb/processstate.h"

namespace sqldb {
namespace {

[[noreturn]] void raiseNotARepository(const std::string& path, const std::string& reason) {
  kodiag::raise({"KODD:kodd", "NotARepository"}, {{"Location", path}, {"Reason", reason}});
}

/// Raises what keeps the file from being opened.
Finding findRepository(const std::string& path, const OpenOptions& options) {
  Finding finding = inspectFile(path, options.applicationId);
  if (finding.kind == FileKind::foreign) raiseNotARepository(path, finding.reason);
  if (finding.kind == FileKind::absent && !options.createIfAbsent) {
    raiseSystemError(ENOENT, "open", path);
  }
  return finding;
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
  if (findRepository(path, options).kind == FileKind::ours) return;
  // Left behind by a file that is gone; the new one must not take their pages for its own.
  deleteSideFiles(path);
  lock.noteNumber(0);
  createEmptyFile(path);
}

bool lacksLogOrIndex(const std::string& path) {
  return !fileIdentity(path + kLogSuffix) || !fileIdentity(path + kIndexSuffix);
}

/// The index of somebody else's file may be there and still be closed to us.
bool canReadIndex(const std::string& path) {
  return faccessat(AT_FDCWD, (path + kIndexSuffix).c_str(), R_OK, AT_EACCESS) == 0;
}

/// Nobody makes a new log while the one that somebody else uses is gone: it may hold work that
/// only they can bring back.
void refuseLostLog(const std::string& path, const RepositoryLock& lock) {
  if (fileIdentity(path + kLogSuffix) || !lock.areOthersConnected()) return;
  kodiag::raise({"KODD:kodd", "FileRemoved"},
                {{"Operation", "open"},
                 {"Location", path + kLogSuffix},
                 {"Reason",
                  "a process still uses it and brings its content back when it next uses the "
                  "repository or closes it"}});
}

void refuseInheritedHandles(const std::string& path) {
  const auto identity = fileIdentity(path);
  if (!identity || clearInheritedHandles(*identity)) return;
  kodiag::raise({"KODD:kodd", "ForkedProcess"}, {{"Operation", "open"}, {"Location", path}});
}

std::unique_ptr<Connection> connect(const std::string& path, RepositoryLock& lock,
                                    const OpenOptions& options, bool fileUsesLog) {
  refuseInheritedHandles(path);
  std::optional<WriteLockScope> writing;
  if (fileUsesLog && lacksLogOrIndex(path)) {
    // The index is made from the log; one made beside a writer would lack what it writes.
    writing.emplace(lock, options.busyTimeout);
    refuseLostLog(path, lock);
  }
  auto connection = std::make_unique<Connection>(path, options);
  if (connection->usesLog()) {
    lock.noteConnected();
    return connection;
  }
  if (!writing) writing.emplace(lock, options.busyTimeout);
  // Asked of the engine, not of the file: whoever made it may have been killed in the middle,
  // and the engine then takes its header back.
  if (connection->isEmpty()) connection->layOut(options.applicationId);
  connection->turnOnLog(options.busyTimeout);
  if (connection->usesLog()) lock.noteConnected();
  return connection;
}

/// Whether files can be made beside the repository that go with its rights.
bool isWritable(const std::string& path) {
  const auto may = [](const std::string& name) {
    return faccessat(AT_FDCWD, name.c_str(), W_OK, AT_EACCESS) == 0;
  };
  return may(path) && may(path.substr(0, path.rfind('/') + 1));
}

std::unique_ptr<Connection> connectForReading(const std::string& path, RepositoryLock& lock,
                                              const OpenOptions& options, bool fileUsesLog) {
  refuseInheritedHandles(path);
  auto view = Connection::View::shared;
  std::optional<WriteLockScope> writing;
  if (fileUsesLog && (lacksLogOrIndex(path) || !canReadIndex(path))) {
    if (isWritable(path)) writing.emplace(lock, options.busyTimeout);
    refuseLostLog(path, lock);
    if (!writing) {
      if (sizeOrZero(path + kLogSuffix) > 0) {
        kodiag::raise({"KODD:kodd", "ReadOnly"},
                      {{"Operation", "open"},
                       {"Location", path},
                       {"Reason",
                        "its log holds work, and an index of it can be neither read nor made "
                        "here; copy both files to where you may write"}});
      }
      view = Connection::View::unchanged;
    }
  }
  auto connection = std::make_unique<Connection>(path, options, view);
  if (connection->usesLog()) lock.noteConnected();
  return connection;
}

OpenedFile openForReading(const std::string& path, const OpenOptions& options) {
  OpenedFile opened;
  opened.path = path;
  const Finding found = findRepository(path, options);
  if (found.kind == FileKind::absent) {
    if (!fileIdentity(path)) raiseSystemError(ENOENT, "open", path);
    raiseNotARepository(path, "it is empty");
  }
  opened.lock = isWritable(path) ? std::make_unique<RepositoryLock>(path, options.busyTimeout)
                                 : RepositoryLock::forReading(path, options.busyTimeout);
  if (!found.truncation.empty() && !opened.lock->areOthersConnected()) {
    raiseDamaged(path, found.truncation);
  }
  opened.connection = connectForReading(path, *opened.lock, options, found.usesLog);
  return opened;
}

OpenedFile openForWriting(const std::string& path, const OpenOptions& options) {
  OpenedFile opened;
  opened.path = path;
  const Finding before = findRepository(opened.path, options);
  if (!before.truncation.empty() && !fileIdentity(opened.path + kLockSuffix)) {
    raiseDamaged(opened.path, before.truncation);
  }
  opened.lock = std::make_unique<RepositoryLock>(opened.path, options.busyTimeout);
  // Looked at again: it may have been moved away before we were known to have it open.
  const Finding found = findRepository(opened.path, options);
  if (!found.truncation.empty() && !opened.lock->areOthersConnected()) {
    raiseDamaged(opened.path, found.truncation);
  }
  if (found.kind == FileKind::absent) create(opened.path, *opened.lock, options);
  opened.connection = connect(opened.path, *opened.lock, options, found.usesLog);
  return opened;
}

}  // namespace

OpenedFile openFile(const std::string& location, const OpenOptions& options) {
  const std::string path =
      resolvedPath(location, options.followLink ? LastLink::follow : LastLink::keep);
  OpenedFile opened = options.access == FileAccess::read ? openForReading(path, options)
                                                         : openForWriting(path, options);
  // The engine knows the ID from the log as well, which the first look left alone.
  const std::string applicationId = opened.connection->queryText("PRAGMA application_id");
  if (applicationId != std::to_string(options.applicationId)) {
    raiseNotARepository(opened.path, "it is the database of another program");
  }
  opened.identity = fileIdentity(opened.path).value_or(FileIdentity{});
  if (opened.connection->findMoved()) opened.connection->raiseMoved("open");
  if (options.access == FileAccess::write) touchFiles(opened.path);
  return opened;
}

}  // namespace sqldb
