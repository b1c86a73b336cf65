#include "sqldb/repositoryfile.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>

#include "kodiag/diagnostics.h"
#include "sqldb/enginegate.h"
#include "sqldb/error.h"

namespace sqldb {
namespace {

constexpr std::size_t kHeaderBytes = 100;
constexpr std::string_view kMagic{"SQLite format 3\0", 16};

/// The first bytes of a database file, whose layout is part of the engine's published file
/// format.
struct Header {
  std::array<unsigned char, kHeaderBytes> bytes{};
  std::uint64_t present = 0;  // bytes the file really has of them

  std::uint32_t big32(std::size_t at) const {
    return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 |
           std::uint32_t{bytes[at + 2]} << 8 | bytes[at + 3];
  }
  bool startsLikeADatabase() const {
    const auto n = std::min<std::size_t>(present, kMagic.size());
    // The engine's file layer takes one byte for none.
    return n > 0 && std::string_view(reinterpret_cast<const char*>(bytes.data()), n) ==
                        kMagic.substr(0, n);
  }
  std::uint32_t pageBytes() const {
    const std::uint32_t stored = std::uint32_t{bytes[16]} << 8 | bytes[17];
    return stored == 1 ? 65536 : stored;
  }
  std::uint32_t pageCount() const { return big32(28); }
  bool pageCountIsCurrent() const { return big32(24) == big32(92); }
  bool usesLog() const { return bytes[18] == 2 && bytes[19] == 2; }
  std::int32_t applicationId() const { return static_cast<std::int32_t>(big32(68)); }
};

/// The file as the engine's own file layer sees it. Going through that layer matters: closing a
/// descriptor of our own would drop the locks of every connection this process has on the file.
class FileView {
 public:
  explicit FileView(const std::string& path) : path_(path) {
    sqlite3* opened = nullptr;
    const int flags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI | SQLITE_OPEN_NOFOLLOW |
                      SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    const int code = sqlite3_open_v2(immutableUri(path).c_str(), &opened, flags, nullptr);
    connection_.reset(opened);
    if (code != SQLITE_OK) fail(code);
    check(sqlite3_file_control(opened, "main", SQLITE_FCNTL_FILE_POINTER, &file_));
  }

  std::uint64_t size() const {
    sqlite3_int64 bytes = 0;
    check(file_->pMethods->xFileSize(file_, &bytes));
    return static_cast<std::uint64_t>(bytes);
  }
  Header header() const {
    Header header;
    header.present = std::min<std::uint64_t>(size(), kHeaderBytes);
    const int code = file_->pMethods->xRead(file_, header.bytes.data(), kHeaderBytes, 0);
    if (code != SQLITE_IOERR_SHORT_READ) check(code);
    return header;
  }

 private:
  EngineGate::Scope gate_{EngineGate::ofOpening()};
  struct Close {
    void operator()(sqlite3* connection) const { sqlite3_close(connection); }
  };

  void check(int code) const {
    if (code != SQLITE_OK) fail(code);
  }
  [[noreturn]] void fail(int code) const {
    std::string text = sqlite3_errstr(code);
    if (const int errnoValue = sqlite3_system_errno(connection_.get()); errnoValue != 0) {
      text += ": " + std::generic_category().message(errnoValue);
    }
    throw kodiag::except::ExceptionWithCauses(errorMessage(code, "open", path_, text));
  }

  std::string path_;
  std::unique_ptr<sqlite3, Close> connection_;
  sqlite3_file* file_ = nullptr;
};

/// Why a directory entry cannot be a repository of ours; empty when it can.
std::string unsuitability(const struct stat& status) {
  if (S_ISDIR(status.st_mode)) return "it is a directory";
  if (S_ISLNK(status.st_mode))
    return "it is a symbolic link that leads nowhere or is not followed here";
  if (!S_ISREG(status.st_mode)) return "it is not a regular file";
  return {};
}

void refuseImpossibleHeader(const Header& header, const std::string& path) {
  if (header.present < kHeaderBytes) raiseDamaged(path, "the file ends within its header");
  if (!std::has_single_bit(header.pageBytes()) || header.pageBytes() < 512) {
    raiseDamaged(path, "the page size in its header is impossible");
  }
}

std::string truncationOf(const FileView& file, const Header& header, const std::string& path) {
  // While a log or a journal holds pages, the length of the main file says nothing. They are
  // looked at before the length: they are emptied only when the main file is whole.
  if (sizeOrZero(path + kLogSuffix) > 0 || sizeOrZero(path + kJournalSuffix) > 0) return {};
  const std::uint64_t promised = std::uint64_t{header.pageCount()} * header.pageBytes();
  if (!header.pageCountIsCurrent() || file.size() >= promised) return {};
  return "it has " + std::to_string(file.size()) + " of " + std::to_string(promised) + " bytes";
}

}  // namespace

void raiseSystemError(int errnoValue, const char* operation, const std::string& path) {
  kodiag::raise({"KODD:kodd", "IOError"},
                {{"Operation", operation},
                 {"Location", path},
                 {"Reason", std::generic_category().message(errnoValue)}});
}

void raiseDamaged(const std::string& path, const std::string& reason) {
  throw kodiag::except::ExceptionWithCauses(errorMessage(SQLITE_CORRUPT, "open", path, reason));
}

std::string immutableUri(const std::string& path) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string uri = "file://";
  for (const char c : path) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) || c == '/' || c == '.' || c == '_') {
      uri += c;
    } else {
      uri += {'%', kHex[byte >> 4], kHex[byte & 15]};
    }
  }
  return uri + "?immutable=1";
}

std::string resolvedPath(const std::string& location, LastLink last) {
  namespace fs = std::filesystem;
  if (location.empty() || location.find('\0') != std::string::npos) {
    raiseSystemError(EINVAL, "open", location);
  }
  std::error_code error;
  const fs::path absolute = fs::absolute(location, error);
  fs::path folder;
  if (!error && last == LastLink::follow) {
    std::error_code nowhere;
    const fs::path followed = fs::canonical(absolute, nowhere);
    if (!nowhere) return followed.string();
  }
  if (!error) folder = fs::weakly_canonical(absolute.parent_path(), error);
  if (error) raiseSystemError(error.value(), "open", location);
  return (folder / absolute.filename()).string();
}

std::optional<FileIdentity> fileIdentity(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return std::nullopt;
  return FileIdentity{status.st_dev, status.st_ino};
}

std::string repositoryBeside(const std::string& path) {
  for (const std::string_view suffix :
       {kLogSuffix, kIndexSuffix, kJournalSuffix, kLockSuffix}) {
    if (path.ends_with(suffix)) return path.substr(0, path.size() - suffix.size());
  }
  return {};
}

std::uint64_t sizeOrZero(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

Finding inspectFile(const std::string& path, std::int32_t applicationId) {
  if (!repositoryBeside(path).empty()) {
    return {
        FileKind::foreign, "its name is that of a file beside another repository", false, {}};
  }
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) {
    if (errno == ENOENT) return {};
    raiseSystemError(errno, "open", path);
  }
  if (std::string reason = unsuitability(status); !reason.empty()) {
    return {FileKind::foreign, std::move(reason), false, {}};
  }
  if (status.st_size == 0) return {};

  const FileView file(path);
  const Header header = file.header();
  if (!header.startsLikeADatabase())
    return {FileKind::foreign, "it is not a database", false, {}};
  if (header.present == kHeaderBytes && header.applicationId() != applicationId) {
    return {FileKind::foreign, "it is the database of another program", false, {}};
  }
  refuseImpossibleHeader(header, path);
  return {FileKind::ours, {}, header.usesLog(), truncationOf(file, header, path)};
}

bool beginsLikeADatabase(const std::string& location) {
  return FileView(resolvedPath(location)).header().startsLikeADatabase();
}

bool createEmptyFile(const std::string& path) {
  // Not the engine: it would create the file readable for everybody. A file made here can have
  // no connection whose locks the closing could drop.
  const int file =
      open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (file >= 0) {
    close(file);
    return true;
  }
  if (errno == EEXIST) return false;
  raiseSystemError(errno, "create", path);
}

void touchFiles(const std::string& path) noexcept {
  for (const char* suffix : {"", kLogSuffix, kIndexSuffix, kLockSuffix}) {
    // A file that is not there needs no new time, and one that is not ours keeps its own.
    (void)utimensat(AT_FDCWD, (path + suffix).c_str(), nullptr, AT_SYMLINK_NOFOLLOW);
  }
}

bool deleteFile(const std::string& path) {
  if (unlink(path.c_str()) == 0) return true;
  if (errno == ENOENT) return false;
  raiseSystemError(errno, "delete", path);
}

void deleteSideFiles(const std::string& path) {
  for (const char* suffix : {kIndexSuffix, kLogSuffix, kJournalSuffix}) {
    deleteFile(path + suffix);
  }
}

}  // namespace sqldb
