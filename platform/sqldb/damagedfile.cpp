#include "sqldb/damagedfile.h"

#include <sqlite3.h>
#include <stdlib.h>

#include <array>
#include <bit>
#include <cerrno>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <system_error>

#include "host/names.h"
#include "kodiag/diagnostics.h"
#include "kodiag/message.h"
#include "sqldb/damagedpages.h"
#include "sqldb/database.h"
#include "sqldb/error.h"
#include "sqldb/repositoryfile.h"
#include "sqldb/repositorylock.h"

namespace sqldb {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kHeaderBytes = 100;
constexpr long long kLastRow = 0x7FFFFFFF;

/// Ranges of row IDs of one table that are looked at in spite of damage. Enough to find every
/// page between a thousand broken ones, and over within a second.
constexpr int kMostBrokenRanges = 1 << 14;

struct CloseConnection {
  void operator()(sqlite3* connection) const { sqlite3_close_v2(connection); }
};
using ConnectionHandle = std::unique_ptr<sqlite3, CloseConnection>;

struct FinalizeStatement {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using StatementHandle = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

/// Null when it cannot be prepared.
StatementHandle prepare(sqlite3* connection, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(connection, sql.c_str(), -1, &statement, nullptr);
  return StatementHandle(statement);
}

/// The first column of the first row; -1 when there is none.
long long firstNumber(sqlite3* connection, const std::string& sql) {
  const StatementHandle query = prepare(connection, sql);
  if (!query || sqlite3_step(query.get()) != SQLITE_ROW) return -1;
  return sqlite3_column_int64(query.get(), 0);
}

void tryToRun(sqlite3* connection, const char* sql) {
  sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
}

/// A folder only we can enter, gone with this object.
class PrivateFolder {
 public:
  PrivateFolder() {
    std::string pattern = (host::systemTempDirectory() / "vela-salvage-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) raiseSystemError(errno, "create", pattern);
    path_ = pattern;
  }
  ~PrivateFolder() { remove(); }
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;

  std::string file() const { return (path_ / "copy.dmr").string(); }
  std::string twin() const { return (path_ / "twin.dmr").string(); }
  void remove() const noexcept {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }

 private:
  fs::path path_;
};

void copyFile(const std::string& from, const std::string& to) {
  std::error_code error;
  fs::copy_file(from, to, error);
  if (error) raiseSystemError(error.value(), "copy", from);
  fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write, error);
}

/// Copies the file with its log and journal, while nobody can open it.
void copyUnused(const std::string& path, const std::string& to) {
  std::error_code error;
  // Where no lock file is, none is made: the file may lie where nothing can be written.
  const auto isLockable = [&] { return fs::exists(path + kLockSuffix, error); };
  std::optional<ExclusivePresence> alone;
  if (isLockable()) alone.emplace(path);
  const auto refuse = [&] {
    kodiag::raise(
        {"KODD:kodd", "RepositoryBusy"},
        {{"Operation", "salvage"}, {"Location", path}, {"Reason", "a process has it open"}});
  };
  if (alone && !*alone) refuse();
  if (!fs::is_regular_file(path, error)) {
    raiseSystemError(error ? error.value() : EINVAL, "salvage", path);
  }
  copyFile(path, to);
  for (const char* suffix : {kLogSuffix, kJournalSuffix}) {
    if (fs::is_regular_file(path + suffix, error)) copyFile(path + suffix, to + suffix);
  }
  if (!alone && isLockable()) refuse();
}

using Header = std::array<unsigned char, kHeaderBytes>;

std::uint32_t pageBytesOf(const Header& header) {
  const std::uint32_t stored = std::uint32_t{header[16]} << 8 | header[17];
  return stored == 1 ? 65536 : stored;
}

std::int32_t applicationIdOf(const Header& header) {
  return static_cast<std::int32_t>(std::uint32_t{header[68]} << 24 |
                                   std::uint32_t{header[69]} << 16 |
                                   std::uint32_t{header[70]} << 8 | header[71]);
}

Header readHeader(const std::string& copy, const std::string& path,
                  std::int32_t applicationId) {
  Header header{};
  std::ifstream file(copy, std::ios::binary);
  file.read(reinterpret_cast<char*>(header.data()), kHeaderBytes);
  const std::string_view magic{"SQLite format 3\0", 16};
  std::string reason;
  if (!file) {
    reason = "it ends within its header";
  } else if (std::string_view(reinterpret_cast<const char*>(header.data()), magic.size()) !=
             magic) {
    reason = "its header is not that of a database";
  } else if (applicationIdOf(header) != applicationId) {
    reason = "it is the database of another program";
  } else if (!std::has_single_bit(pageBytesOf(header)) || pageBytesOf(header) < 512) {
    reason = "the page size in its header is impossible";
  }
  if (!reason.empty()) {
    kodiag::raise({"KODD:kodd", "NotARepository"}, {{"Location", path}, {"Reason", reason}});
  }
  return header;
}

/// Cuts a torn page at the end off. \returns the number of whole pages
std::uint32_t cutToWholePages(const std::string& copy, std::uint32_t pageBytes) {
  const std::uintmax_t pages = fs::file_size(copy) / pageBytes;
  fs::resize_file(copy, pages * pageBytes);
  return static_cast<std::uint32_t>(pages);
}

/// Numbers of the pages that hold the list of tables.
std::vector<std::uint32_t> listPages(sqlite3* connection) {
  std::vector<std::uint32_t> pages;
  const StatementHandle query =
      prepare(connection, "SELECT pageno FROM dbstat WHERE name='sqlite_schema'");
  while (query && sqlite3_step(query.get()) == SQLITE_ROW) {
    pages.push_back(static_cast<std::uint32_t>(sqlite3_column_int64(query.get(), 0)));
  }
  return pages;
}

/// Writes the list of tables of one file over that of another, page by page: files made with
/// one schema have it in the same pages. The header stays.
void transplantList(const std::string& twin, const std::string& copy, std::uint32_t pageBytes) {
  sqlite3* opened = nullptr;
  sqlite3_open_v2(twin.c_str(), &opened, SQLITE_OPEN_READONLY, nullptr);
  const ConnectionHandle connection(opened);
  std::ifstream from(twin, std::ios::binary);
  std::fstream to(copy, std::ios::binary | std::ios::in | std::ios::out);
  std::vector<char> bytes(pageBytes);
  for (const std::uint32_t page : listPages(connection.get())) {
    const auto offset = static_cast<std::streamoff>(std::uint64_t{page - 1} * pageBytes);
    const std::streamoff skipped = page == 1 ? kHeaderBytes : 0;
    from.seekg(offset + skipped);
    to.seekp(offset + skipped);
    const std::streamsize length = static_cast<std::streamsize>(pageBytes) - skipped;
    if (from.read(bytes.data(), length)) to.write(bytes.data(), length);
  }
}

}  // namespace

struct DamagedFile::Impl {
  Impl(const std::string& path, std::int32_t applicationId, const MakeTwin& makeTwin);

  void open();
  void applyLog();
  bool canListTables();
  sqlite3_stmt* statement(const std::string& sql);

  /// Ends of a range of row IDs, both included.
  struct Range {
    long long first;
    long long last;
    bool isEmpty() const { return first > last; }
  };
  enum class Direction { up, down };
  Range scan(sqlite3_stmt* query, Range range, Direction direction, const Use& use);

  std::string path;
  PrivateFolder folder;
  std::unique_ptr<DamagedPages> pages;
  ConnectionHandle connection;
  std::map<std::string, StatementHandle> statements;
};

DamagedFile::Impl::Impl(const std::string& source, std::int32_t applicationId,
                        const MakeTwin& makeTwin)
    : path(resolvedPath(source)) {
  const std::string copy = folder.file();
  copyUnused(path, copy);
  const std::uint32_t pageBytes = pageBytesOf(readHeader(copy, path, applicationId));
  pages = std::make_unique<DamagedPages>(pageBytes, cutToWholePages(copy, pageBytes));
  open();
  applyLog();
  if (!canListTables()) {
    connection.reset();
    makeTwin(folder.twin());
    transplantList(folder.twin(), copy, pageBytes);
    open();
  }
  // The engine has its files open: from here on not even a killed process leaves a copy.
  folder.remove();
}

void DamagedFile::Impl::open() {
  sqlite3* opened = nullptr;
  const int code = sqlite3_open_v2(
      folder.file().c_str(), &opened,
      SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE, pages->name());
  connection.reset(opened);
  if (code != SQLITE_OK) {
    throw kodiag::except::ExceptionWithCauses(
        errorMessage(code, "salvage", path, sqlite3_errstr(code)));
  }
  for (const auto& [option, value] :
       std::initializer_list<std::pair<int, int>>{{SQLITE_DBCONFIG_DEFENSIVE, 0},
                                                  {SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0},
                                                  {SQLITE_DBCONFIG_ENABLE_TRIGGER, 0},
                                                  {SQLITE_DBCONFIG_ENABLE_VIEW, 0},
                                                  {SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1}}) {
    sqlite3_db_config(opened, option, value, nullptr);
  }
  sqlite3_limit(opened, SQLITE_LIMIT_ATTACHED, 0);
  // A list of tables with holes, and a file shorter than its header says, are accepted only by
  // an engine that lets the list be changed.
  for (const char* setting : {"PRAGMA locking_mode = EXCLUSIVE", "PRAGMA writable_schema = ON",
                              "PRAGMA cell_size_check = ON", "PRAGMA temp_store = MEMORY",
                              "PRAGMA mmap_size = 0", "PRAGMA synchronous = OFF"}) {
    tryToRun(opened, setting);
  }
}

void DamagedFile::Impl::applyLog() {
  // The map is right about pages that come from the file only once nothing is left in the log.
  const bool isApplied = firstNumber(connection.get(), "PRAGMA wal_checkpoint(TRUNCATE)") == 0;
  const bool hasMap = firstNumber(connection.get(), "PRAGMA auto_vacuum") > 0;
  if (isApplied && hasMap) pages->beginChecking();
}

bool DamagedFile::Impl::canListTables() {
  const StatementHandle query =
      prepare(connection.get(), "SELECT name,sql FROM sqlite_schema ORDER BY rowid");
  if (!query) return false;
  int tables = 0;
  int code = SQLITE_ROW;
  while ((code = sqlite3_step(query.get())) == SQLITE_ROW) ++tables;
  return code == SQLITE_DONE && tables > 0;
}

sqlite3_stmt* DamagedFile::Impl::statement(const std::string& sql) {
  StatementHandle& known = statements[sql];
  if (!known) known = prepare(connection.get(), sql);
  return known.get();
}

/// \returns what of the range was not reached because of damage
DamagedFile::Impl::Range DamagedFile::Impl::scan(sqlite3_stmt* query, Range range,
                                                 Direction direction, const Use& use) {
  struct Reset {
    ~Reset() { sqlite3_reset(query); }
    sqlite3_stmt* query;
  } const atEnd{query};
  sqlite3_bind_int64(query, 1, range.first);
  sqlite3_bind_int64(query, 2, range.last);
  int code = SQLITE_ROW;
  while (!range.isEmpty() && (code = sqlite3_step(query)) == SQLITE_ROW) {
    const Row row(query);
    // Pages that are linked wrongly lead back or astray.
    if (row.id() < range.first || row.id() > range.last) return range;
    use(row);
    if (direction == Direction::up) {
      range.first = row.id() + 1;
    } else {
      range.last = row.id() - 1;
    }
  }
  return code == SQLITE_DONE ? Range{1, 0} : range;
}

DamagedFile::DamagedFile(const std::string& location, std::int32_t applicationId,
                         const MakeTwin& makeTwin)
    : impl_(std::make_unique<Impl>(location, applicationId, makeTwin)) {}

DamagedFile::~DamagedFile() = default;

std::vector<DamagedFile::Table> DamagedFile::tables() {
  std::vector<Table> tables;
  sqlite3_stmt* const names =
      impl_->statement("SELECT name FROM pragma_table_list WHERE type='table'");
  sqlite3_stmt* const columns = impl_->statement("SELECT name FROM pragma_table_info(?)");
  if (!names || !columns) return tables;
  while (sqlite3_step(names) == SQLITE_ROW) {
    Table& table = tables.emplace_back();
    table.name = Row(names).text(-1);
    sqlite3_bind_text(columns, 1, table.name.data(), static_cast<int>(table.name.size()),
                      SQLITE_TRANSIENT);
    while (sqlite3_step(columns) == SQLITE_ROW) {
      table.columns.emplace_back(Row(columns).text(-1));
    }
    sqlite3_reset(columns);
  }
  sqlite3_reset(names);
  return tables;
}

bool DamagedFile::forEachRow(const std::string& table, const std::string& columns,
                             const Use& use) {
  const std::string select = "SELECT rowid," + columns + " FROM \"" + table +
                             "\" NOT INDEXED WHERE rowid BETWEEN ? AND ? ORDER BY rowid";
  sqlite3_stmt* const upward = impl_->statement(select);
  sqlite3_stmt* const downward = impl_->statement(select + " DESC");
  if (!upward || !downward) return false;

  bool complete = true;
  // The widest ranges come first, so that those at hand when patience ends are the narrowest.
  std::deque<Impl::Range> ranges = {{1, kLastRow}};
  for (int broken = 0; !ranges.empty() && broken < kMostBrokenRanges;) {
    Impl::Range rest = impl_->scan(upward, ranges.front(), Impl::Direction::up, use);
    ranges.pop_front();
    if (rest.isEmpty()) continue;
    complete = false;
    ++broken;
    rest = impl_->scan(downward, rest, Impl::Direction::down, use);
    if (rest.first >= rest.last) continue;
    const long long middle = rest.first + (rest.last - rest.first) / 2;
    ranges.push_back({rest.first, middle});
    ranges.push_back({middle + 1, rest.last});
  }
  return complete;
}

bool DamagedFile::readRow(const std::string& table, const std::string& columns, long long id,
                          const Use& use) {
  bool found = false;
  sqlite3_stmt* const query = impl_->statement("SELECT rowid," + columns + " FROM \"" + table +
                                               "\" NOT INDEXED WHERE rowid BETWEEN ? AND ?");
  if (!query) return false;
  impl_->scan(query, {id, id}, Impl::Direction::up, [&](const Row& row) {
    found = true;
    use(row);
  });
  return found;
}

long long DamagedFile::Row::id() const {
  return sqlite3_column_int64(handle_, 0);
}

DamagedFile::Type DamagedFile::Row::type(int column) const {
  switch (sqlite3_column_type(handle_, column + 1)) {
    case SQLITE_INTEGER:
      return Type::integer;
    case SQLITE_FLOAT:
      return Type::real;
    case SQLITE_TEXT:
      return Type::text;
    case SQLITE_BLOB:
      return Type::blob;
    default:
      return Type::null;
  }
}

long long DamagedFile::Row::int64(int column) const {
  return sqlite3_column_int64(handle_, column + 1);
}

double DamagedFile::Row::real(int column) const {
  return sqlite3_column_double(handle_, column + 1);
}

std::string_view DamagedFile::Row::text(int column) const {
  const auto* const bytes =
      reinterpret_cast<const char*>(sqlite3_column_text(handle_, column + 1));
  return {bytes ? bytes : "",
          static_cast<std::size_t>(sqlite3_column_bytes(handle_, column + 1))};
}

std::span<const std::byte> DamagedFile::Row::blob(int column) const {
  const void* const bytes = sqlite3_column_blob(handle_, column + 1);
  return {static_cast<const std::byte*>(bytes),
          static_cast<std::size_t>(sqlite3_column_bytes(handle_, column + 1))};
}

}  // namespace sqldb
