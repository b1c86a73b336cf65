// What lies at the path of a repository, learnt without changing it.
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>

#include "sqldb/database.h"

namespace sqldb {

/// A file as the kernel names it; equal for two paths that lead to the same file.
struct FileIdentity {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  auto operator<=>(const FileIdentity&) const = default;
};

/// The files that stand beside a repository.
inline constexpr const char* kLogSuffix = "-wal";
inline constexpr const char* kIndexSuffix = "-shm";
inline constexpr const char* kJournalSuffix = "-journal";
inline constexpr const char* kLockSuffix = "-lock";

/// Of a name that a file beside a repository has, that repository's; else nothing. No
/// repository may have such a name: the engine would take it for the other's log or journal.
std::string repositoryBeside(const std::string& path);

enum class LastLink { keep, follow };

/// The absolute path with links in its folders resolved; one in the last place as asked for. A
/// link that leads nowhere stays as it is.
std::string resolvedPath(const std::string& location, LastLink last = LastLink::keep);

/// A path as a URI of the engine; "immutable" keeps it from locking, recovering or creating
/// anything.
std::string immutableUri(const std::string& path);

/// Nothing when the path leads nowhere.
std::optional<FileIdentity> fileIdentity(const std::string& path);

/// Bytes of a file; 0 when there is none.
std::uint64_t sizeOrZero(const std::string& path);

struct Finding {
  FileKind kind = FileKind::absent;
  /// Why the file is foreign, for the message; empty otherwise.
  std::string reason;
  /// Whether the file's changes go to a log.
  bool usesLog = false;
  /// How much of the file is missing, for the message; empty when nothing is. Of no meaning
  /// while a process has the file open: its log may have been removed.
  std::string truncation;
};

[[noreturn]] void raiseDamaged(const std::string& path, const std::string& reason);

/// Looks at the file through the engine, without locks, logs or recovery, so that nothing
/// changes. \throws as Database::identify
Finding inspectFile(const std::string& path, std::int32_t applicationId);

/// Whether a regular file begins as every database does, whoever made it. Looks as inspectFile
/// does; a link in the last place is refused. \throws the engine's error when it cannot be read
bool beginsLikeADatabase(const std::string& location);

/// Creates an empty file that only its owner can read. \returns false when there is one already
bool createEmptyFile(const std::string& path);

/// Sets the times of the file and of those beside it to now, for cleaners that go by age.
void touchFiles(const std::string& path) noexcept;

/// Deletes a file. \returns false when there was none  \throws "IOError" when it cannot be
/// deleted
bool deleteFile(const std::string& path);

/// Deletes the log, its index and the journal of a repository.
void deleteSideFiles(const std::string& path);

/// Throws "IOError" with the text of `errnoValue`.
[[noreturn]] void raiseSystemError(int errnoValue, const char* operation,
                                   const std::string& path);

}  // namespace sqldb
