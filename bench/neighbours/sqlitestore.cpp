#include "bench/neighbours/sqlitestore.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace neighbours {
namespace {

constexpr const char* kSettings = R"(
    PRAGMA page_size = 16384;
    PRAGMA auto_vacuum = INCREMENTAL;
    PRAGMA journal_mode = WAL;
    PRAGMA synchronous = OFF;
    PRAGMA secure_delete = OFF;
    PRAGMA cache_size = -32768;)";

constexpr const char* kTables = R"(
    CREATE TABLE IF NOT EXISTS run(id INTEGER PRIMARY KEY, date, name TEXT);
    CREATE TABLE IF NOT EXISTS signal(
      id INTEGER PRIMARY KEY, run INTEGER, parent INTEGER, source INTEGER, type INTEGER,
      points INTEGER DEFAULT 0, lastchunk INTEGER DEFAULT 0, lastbytes INTEGER DEFAULT 0,
      largestbytes INTEGER DEFAULT 0, minmaxcached INTEGER DEFAULT 0,
      newest DEFAULT 0.0, tolerance DEFAULT 0.0, name TEXT);
    CREATE INDEX IF NOT EXISTS signal_run ON signal(run);
    CREATE TABLE IF NOT EXISTS chunk(
      id INTEGER PRIMARY KEY, signal INTEGER, number INTEGER, points INTEGER, first, last);
    CREATE INDEX IF NOT EXISTS chunk_number ON chunk(signal, number);
    CREATE INDEX IF NOT EXISTS chunk_last ON chunk(signal, last);
    CREATE TABLE IF NOT EXISTS timechunk(id INTEGER PRIMARY KEY, chunk INTEGER, data BLOB);
    CREATE INDEX IF NOT EXISTS timechunk_chunk ON timechunk(chunk);
    CREATE TABLE IF NOT EXISTS datachunk(id INTEGER PRIMARY KEY, chunk INTEGER, data BLOB);
    CREATE INDEX IF NOT EXISTS datachunk_chunk ON datachunk(chunk);
    CREATE TABLE IF NOT EXISTS runowner(
      run INTEGER PRIMARY KEY, instance INTEGER, place INTEGER, streaming INTEGER DEFAULT 0);
    CREATE INDEX IF NOT EXISTS runowner_instance ON runowner(instance);
    CREATE TABLE IF NOT EXISTS runnumber(
      id INTEGER PRIMARY KEY, run INTEGER, instance INTEGER, number INTEGER);
    CREATE INDEX IF NOT EXISTS runnumber_run ON runnumber(run);
    CREATE INDEX IF NOT EXISTS runnumber_instance ON runnumber(instance);)";

constexpr const char* kSignalsOfRun = "(SELECT id FROM signal WHERE run = ?1)";
constexpr const char* kChunksOfRun =
    "(SELECT id FROM chunk WHERE signal IN (SELECT id FROM signal WHERE run = ?1))";

constexpr std::size_t kFirstCapacity = 16;

[[noreturn]] void fail(sqlite3* database) {
  throw std::runtime_error(sqlite3_errmsg(database));
}

void check(sqlite3_stmt* statement, int code) {
  if (code != SQLITE_OK) fail(sqlite3_db_handle(statement));
}

void bind(sqlite3_stmt* statement, int index, std::int64_t number) {
  check(statement, sqlite3_bind_int64(statement, index, number));
}

void bind(sqlite3_stmt* statement, int index, double number) {
  check(statement, sqlite3_bind_double(statement, index, number));
}

void bind(sqlite3_stmt* statement, int index, std::string_view text) {
  check(statement, sqlite3_bind_text64(statement, index, text.data(), text.size(),
                                       SQLITE_STATIC, SQLITE_UTF8));
}

void bind(sqlite3_stmt* statement, int index, std::span<const double> numbers) {
  check(statement, sqlite3_bind_blob64(statement, index, numbers.data(), numbers.size_bytes(),
                                       SQLITE_STATIC));
}

// Numbers in the engine's page, which are not aligned.
struct StoredNumbers {
  const std::byte* data;
  std::size_t size;

  double operator[](std::size_t index) const {
    double number;
    std::memcpy(&number, data + index * sizeof number, sizeof number);
    return number;
  }
  void appendTo(std::vector<double>& all, std::size_t first, std::size_t count) const {
    const std::size_t before = all.size();
    all.resize(before + count);
    std::memcpy(all.data() + before, data + first * sizeof(double), count * sizeof(double));
  }
};

// One use of a prepared statement: binds, steps, and resets when it goes out of scope.
class Use {
 public:
  template <typename... Values>
  explicit Use(sqlite3_stmt* statement, Values... values) : statement_(statement) {
    int index = 0;
    (bind(statement, ++index, values), ...);
  }
  ~Use() { sqlite3_reset(statement_); }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;

  bool row() {
    const int code = sqlite3_step(statement_);
    if (code != SQLITE_ROW && code != SQLITE_DONE) fail(sqlite3_db_handle(statement_));
    return code == SQLITE_ROW;
  }
  void run() {
    while (row()) {
    }
  }
  std::int64_t integer(int column) const { return sqlite3_column_int64(statement_, column); }
  double real(int column) const { return sqlite3_column_double(statement_, column); }
  StoredNumbers blob(int column) const {
    const auto* data = static_cast<const std::byte*>(sqlite3_column_blob(statement_, column));
    return {data, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)) /
                      sizeof(double)};
  }

 private:
  sqlite3_stmt* statement_;
};

struct CloseBlob {
  void operator()(sqlite3_blob* blob) const { sqlite3_blob_close(blob); }
};

// The first index in [first, last) whose number does not satisfy `before`.
template <typename Predicate>
std::size_t partitionPoint(const StoredNumbers& numbers, std::size_t first, std::size_t last,
                           Predicate before) {
  while (first < last) {
    const std::size_t middle = first + (last - first) / 2;
    if (before(numbers[middle])) {
      first = middle + 1;
    } else {
      last = middle;
    }
  }
  return first;
}

}  // namespace

void SqliteStore::CloseDatabase::operator()(sqlite3* database) const {
  sqlite3_close(database);
}

void SqliteStore::FinalizeStatement::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

SqliteStore::SqliteStore(const std::string& path) {
  sqlite3* database = nullptr;
  const int code = sqlite3_open(path.c_str(), &database);
  database_.reset(database);
  if (code != SQLITE_OK) fail(database);
  execute(kSettings);
  execute(kTables);

  begin_ = prepare("BEGIN IMMEDIATE");
  commit_ = prepare("COMMIT");
  insertRun_ = prepare("INSERT INTO run(name) VALUES(?)");
  insertSignal_ = prepare("INSERT INTO signal(run, name) VALUES(?, ?)");
  selectCounters_ = prepare(
      "SELECT points, lastchunk, lastbytes, largestbytes, newest FROM signal WHERE id = ?");
  updateCounters_ = prepare(
      "UPDATE signal SET points = ?, lastchunk = ?, lastbytes = ?, largestbytes = ?, newest = "
      "?, "
      "minmaxcached = 0 WHERE id = ?");
  insertChunk_ =
      prepare("INSERT INTO chunk(signal, number, points, first, last) VALUES(?, ?, ?, ?, ?)");
  // The blobs share their chunk's ID, so that they can be opened without a look-up.
  insertTimes_ = prepare("INSERT INTO timechunk(id, chunk, data) VALUES(?1, ?1, ?2)");
  insertValues_ = prepare("INSERT INTO datachunk(id, chunk, data) VALUES(?1, ?1, ?2)");
  selectLastChunk_ = prepare(
      "SELECT c.id, c.points, length(t.data) FROM chunk c JOIN timechunk t ON t.chunk = c.id "
      "WHERE c.signal = ? AND c.number = ?");
  updateChunk_ = prepare("UPDATE chunk SET points = ?, last = ? WHERE id = ?");
  growTimes_ = prepare("UPDATE timechunk SET data = ?2 WHERE id = ?1");
  growValues_ = prepare("UPDATE datachunk SET data = ?2 WHERE id = ?1");
  selectAll_ = prepare(
      "SELECT c.points, c.first, t.data, d.data FROM chunk c JOIN timechunk t ON t.chunk = "
      "c.id "
      "JOIN datachunk d ON d.chunk = c.id WHERE c.signal = ? ORDER BY c.number");
  selectRange_ = prepare(
      "SELECT c.points, c.first, t.data, d.data FROM chunk c JOIN timechunk t ON t.chunk = "
      "c.id "
      "JOIN datachunk d ON d.chunk = c.id WHERE c.signal = ? AND c.last >= ? "
      "ORDER BY c.last, c.number");
  selectTolerance_ = prepare("SELECT tolerance FROM signal WHERE id = ?");
  updateTolerance_ = prepare("UPDATE signal SET tolerance = ?2 WHERE id = ?1");
}

SqliteStore::~SqliteStore() = default;

void SqliteStore::beginTransaction() {
  Use(begin_.get()).run();
}

void SqliteStore::commitTransaction() {
  Use(commit_.get()).run();
}

void SqliteStore::createRun(std::string_view name) {
  Use(insertRun_.get(), name).run();
  run_ = sqlite3_last_insert_rowid(database_.get());
}

SqliteStore::Id SqliteStore::createSignal(std::string_view name) {
  Use(insertSignal_.get(), run_, name).run();
  return sqlite3_last_insert_rowid(database_.get());
}

void SqliteStore::removeRun() {
  beginTransaction();
  for (const std::string& sql :
       {std::string("DELETE FROM timechunk WHERE chunk IN ") + kChunksOfRun,
        std::string("DELETE FROM datachunk WHERE chunk IN ") + kChunksOfRun,
        std::string("DELETE FROM chunk WHERE signal IN ") + kSignalsOfRun,
        std::string("DELETE FROM signal WHERE run = ?1"),
        std::string("DELETE FROM run WHERE id = ?1")}) {
    const Statement statement = prepare(sql.c_str());
    Use(statement.get(), run_).run();
  }
  commitTransaction();
}

void SqliteStore::copyRun() {
  const auto last = [this](const char* table) {
    const Statement statement = prepare((std::string("SELECT max(id) FROM ") + table).c_str());
    Use use(statement.get());
    return use.row() ? use.integer(0) : 0;
  };
  const auto copy = [this](const std::string& sql, auto... values) {
    const Statement statement = prepare(sql.c_str());
    Use(statement.get(), run_, values...).run();
  };
  beginTransaction();
  const Id run = last("run");
  const Id signal = last("signal");
  const Id chunk = last("chunk");
  copy("INSERT INTO run SELECT id + ?2, date, name FROM run WHERE id = ?1", run);
  copy(
      "INSERT INTO signal SELECT id + ?2, run + ?3, parent, source, type, points, lastchunk, "
      "lastbytes, largestbytes, minmaxcached, newest, tolerance, name FROM signal "
      "WHERE run = ?1",
      signal, run);
  copy(std::string("INSERT INTO chunk SELECT id + ?2, signal + ?3, number, points, first, "
                   "last FROM chunk WHERE signal IN ") +
           kSignalsOfRun,
       chunk, signal);
  for (const char* table : {"timechunk", "datachunk"}) {
    copy(std::string("INSERT INTO ") + table + " SELECT id + ?2, chunk + ?2, data FROM " +
             table + " WHERE chunk IN " + kChunksOfRun,
         chunk);
  }
  commitTransaction();
}

void SqliteStore::addRunsOfInstance(std::int64_t instance, std::int64_t count) {
  const Statement own = prepare("INSERT INTO runowner(run, instance, place) VALUES(?, ?, ?)");
  const Statement number =
      prepare("INSERT INTO runnumber(run, instance, number) VALUES(?, ?, ?)");
  beginTransaction();
  for (std::int64_t i = 1; i <= count; ++i) {
    createRun("run");
    Use(own.get(), run_, instance, i).run();
    Use(number.get(), run_, instance, i).run();
  }
  commitTransaction();
}

void SqliteStore::importRuns(std::int64_t from, std::int64_t to) {
  const Statement select = prepare(
      "SELECT run FROM runowner WHERE instance = ? AND streaming = 0 ORDER BY place, run");
  const Statement own =
      prepare("UPDATE runowner SET instance = ?2, place = ?3, streaming = 0 WHERE run = ?1");
  const Statement number =
      prepare("UPDATE runnumber SET instance = ?2, number = ?3 WHERE run = ?1");
  beginTransaction();
  std::vector<Id> runs;
  {
    Use found(select.get(), from);
    while (found.row()) runs.push_back(found.integer(0));
  }
  std::int64_t next = 0;
  for (const Id run : runs) {
    ++next;
    Use(own.get(), run, to, next).run();
    Use(number.get(), run, to, next).run();
  }
  commitTransaction();
}

void SqliteStore::append(Id signal, std::span<const double> times,
                         std::span<const double> values) {
  beginTransaction();
  SignalCounters now = counters(signal);
  insertChunk(signal, ++now.lastChunkIndex, times, values, times.size());
  now.points += static_cast<std::int64_t>(times.size());
  now.lastChunkBytes = static_cast<std::int64_t>(values.size_bytes());
  now.largestChunkBytes = std::max(now.largestChunkBytes, now.lastChunkBytes);
  now.newestTime = times.back();
  storeCounters(signal, now);
  commitTransaction();
}

void SqliteStore::appendMerging(Id signal, double time, double value,
                                std::size_t minimumChunkBytes) {
  beginTransaction();
  SignalCounters now = counters(signal);
  if (now.lastChunkIndex > 0 &&
      static_cast<std::size_t>(now.lastChunkBytes) < minimumChunkBytes) {
    growLastChunk(signal, now, time, value, minimumChunkBytes);
    now.lastChunkBytes += static_cast<std::int64_t>(sizeof(double));
  } else {
    insertChunk(signal, ++now.lastChunkIndex, {&time, 1}, {&value, 1}, kFirstCapacity);
    now.lastChunkBytes = sizeof(double);
  }
  now.points += 1;
  now.largestChunkBytes = std::max(now.largestChunkBytes, now.lastChunkBytes);
  now.newestTime = time;
  storeCounters(signal, now);
  commitTransaction();
}

void SqliteStore::read(Id signal, std::vector<double>& times, std::vector<double>& values) {
  times.clear();
  values.clear();
  const auto points = static_cast<std::size_t>(counters(signal).points);
  times.reserve(points);
  values.reserve(points);
  Use chunks(selectAll_.get(), signal);
  while (chunks.row()) {
    const auto inChunk = static_cast<std::size_t>(chunks.integer(0));
    chunks.blob(2).appendTo(times, 0, inChunk);
    chunks.blob(3).appendTo(values, 0, inChunk);
  }
}

void SqliteStore::readRange(Id signal, double from, double to, std::vector<double>& times,
                            std::vector<double>& values) {
  times.clear();
  values.clear();
  Use chunks(selectRange_.get(), signal, from);
  while (chunks.row() && chunks.real(1) <= to) {
    const auto inChunk = static_cast<std::size_t>(chunks.integer(0));
    const StoredNumbers stored = chunks.blob(2);
    const std::size_t first =
        partitionPoint(stored, 0, inChunk, [from](double time) { return time < from; });
    const std::size_t last =
        partitionPoint(stored, first, inChunk, [to](double time) { return time <= to; });
    stored.appendTo(times, first, last - first);
    chunks.blob(3).appendTo(values, first, last - first);
  }
}

double SqliteStore::tolerance(Id signal) {
  Use select(selectTolerance_.get(), signal);
  if (!select.row()) throw std::runtime_error("no such signal");
  return select.real(0);
}

void SqliteStore::setTolerance(Id signal, double tolerance) {
  Use(updateTolerance_.get(), signal, tolerance).run();
}

void SqliteStore::execute(const char* sql) {
  if (sqlite3_exec(database_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    fail(database_.get());
  }
}

SqliteStore::Statement SqliteStore::prepare(const char* sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v3(database_.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement,
                         nullptr) != SQLITE_OK) {
    fail(database_.get());
  }
  return Statement(statement);
}

SqliteStore::SignalCounters SqliteStore::counters(Id signal) {
  Use select(selectCounters_.get(), signal);
  if (!select.row()) throw std::runtime_error("no such signal");
  return {select.integer(0), select.integer(1), select.integer(2), select.integer(3),
          select.real(4)};
}

void SqliteStore::storeCounters(Id signal, const SignalCounters& counters) {
  Use(updateCounters_.get(), counters.points, counters.lastChunkIndex, counters.lastChunkBytes,
      counters.largestChunkBytes, counters.newestTime, signal)
      .run();
}

void SqliteStore::insertChunk(Id signal, std::int64_t number, std::span<const double> times,
                              std::span<const double> values, std::size_t capacity) {
  Use(insertChunk_.get(), signal, number, static_cast<std::int64_t>(times.size()),
      times.front(), times.back())
      .run();
  const Id chunk = sqlite3_last_insert_rowid(database_.get());
  if (capacity == times.size()) {
    Use(insertTimes_.get(), chunk, times).run();
    Use(insertValues_.get(), chunk, values).run();
    return;
  }
  const auto padded = [capacity](std::span<const double> numbers) {
    std::vector<double> all(numbers.begin(), numbers.end());
    all.resize(capacity);
    return all;
  };
  const std::vector<double> paddedTimes = padded(times);
  const std::vector<double> paddedValues = padded(values);
  Use(insertTimes_.get(), chunk, std::span<const double>(paddedTimes)).run();
  Use(insertValues_.get(), chunk, std::span<const double>(paddedValues)).run();
}

void SqliteStore::growLastChunk(Id signal, const SignalCounters& counters, double time,
                                double value, std::size_t minimumChunkBytes) {
  Id chunk = 0;
  std::size_t points = 0;
  std::size_t capacity = 0;
  {
    Use select(selectLastChunk_.get(), signal, counters.lastChunkIndex);
    if (!select.row()) throw std::runtime_error("the last chunk is missing");
    chunk = select.integer(0);
    points = static_cast<std::size_t>(select.integer(1));
    capacity = static_cast<std::size_t>(select.integer(2)) / sizeof(double);
  }
  if (points == capacity) {
    const std::size_t most = minimumChunkBytes / sizeof(double) + 1;
    const std::size_t grown = std::max(points + 1, std::min(2 * capacity, most));
    reserveInBlob("timechunk", growTimes_.get(), chunk, points, grown);
    reserveInBlob("datachunk", growValues_.get(), chunk, points, grown);
  }
  writeBlob("timechunk", chunk, points, time);
  writeBlob("datachunk", chunk, points, value);
  Use(updateChunk_.get(), static_cast<std::int64_t>(points + 1), time, chunk).run();
}

void SqliteStore::reserveInBlob(const char* table, sqlite3_stmt* update, Id chunk,
                                std::size_t points, std::size_t capacity) {
  std::vector<double> content(capacity);
  sqlite3_blob* opened = nullptr;
  if (sqlite3_blob_open(database_.get(), "main", table, "data", chunk, 0, &opened) !=
      SQLITE_OK) {
    fail(database_.get());
  }
  std::unique_ptr<sqlite3_blob, CloseBlob> blob(opened);
  if (sqlite3_blob_read(opened, content.data(), static_cast<int>(points * sizeof(double)), 0) !=
      SQLITE_OK) {
    fail(database_.get());
  }
  blob.reset();
  Use(update, chunk, std::span<const double>(content)).run();
}

void SqliteStore::writeBlob(const char* table, Id chunk, std::size_t point, double number) {
  sqlite3_blob* opened = nullptr;
  if (sqlite3_blob_open(database_.get(), "main", table, "data", chunk, 1, &opened) !=
      SQLITE_OK) {
    fail(database_.get());
  }
  const std::unique_ptr<sqlite3_blob, CloseBlob> blob(opened);
  if (sqlite3_blob_write(opened, &number, sizeof number,
                         static_cast<int>(point * sizeof number)) != SQLITE_OK) {
    fail(database_.get());
  }
}

}  // namespace neighbours
