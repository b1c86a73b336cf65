// A store of signals written by hand on the bare SQLite API: what Vela's speed is measured
// against.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace neighbours {

/// Runs and their signals in a SQLite file of the same tables and settings as Vela's, without
/// any of its checks, its object layer or its locks.
///
/// Every statement is prepared once. Samples are (time, value) pairs of doubles. Errors of the
/// engine are thrown as std::runtime_error.
/// Threads: one.
class SqliteStore {
 public:
  using Id = std::int64_t;

  /// Opens the file, creating it with its tables if it is new.
  explicit SqliteStore(const std::string& path);
  ~SqliteStore();
  SqliteStore(const SqliteStore&) = delete;
  SqliteStore& operator=(const SqliteStore&) = delete;

  void beginTransaction();
  void commitTransaction();

  /// Signals created afterwards belong to it.
  void createRun(std::string_view name);
  Id createSignal(std::string_view name);

  /// Removes the newest run with its signals and samples: five statements in one transaction.
  void removeRun();
  /// Copies the newest run with its signals and samples, IDs shifted behind the last ones.
  void copyRun();
  /// Runs without signals that belong to an instance, numbered and placed from 1 on.
  void addRunsOfInstance(std::int64_t instance, std::int64_t count);
  /// Makes them runs of another instance, numbered and placed from 1 on in their old order.
  void importRuns(std::int64_t from, std::int64_t to);

  /// Appends samples as a chunk of their own: five statements in one transaction.
  void append(Id signal, std::span<const double> times, std::span<const double> values);

  /// Appends one sample to the last chunk in place while its values take less than
  /// `minimumChunkBytes`, else as a new chunk.
  void appendMerging(Id signal, double time, double value, std::size_t minimumChunkBytes);

  /// Replaces the vectors' content by all samples of the signal.
  void read(Id signal, std::vector<double>& times, std::vector<double>& values);

  /// Replaces the vectors' content by the samples with from <= time <= to.
  void readRange(Id signal, double from, double to, std::vector<double>& times,
                 std::vector<double>& values);

  /// One stored number of the signal, its absolute tolerance.
  double tolerance(Id signal);
  void setTolerance(Id signal, double tolerance);

 private:
  struct CloseDatabase {
    void operator()(sqlite3* database) const;
  };
  struct FinalizeStatement {
    void operator()(sqlite3_stmt* statement) const;
  };
  using Statement = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

  struct SignalCounters {
    std::int64_t points;
    std::int64_t lastChunkIndex;
    std::int64_t lastChunkBytes;
    std::int64_t largestChunkBytes;
    double newestTime;
  };

  void execute(const char* sql);
  Statement prepare(const char* sql);
  SignalCounters counters(Id signal);
  void storeCounters(Id signal, const SignalCounters& counters);
  void insertChunk(Id signal, std::int64_t number, std::span<const double> times,
                   std::span<const double> values, std::size_t capacity);
  void growLastChunk(Id signal, const SignalCounters& counters, double time, double value,
                     std::size_t minimumChunkBytes);
  void reserveInBlob(const char* table, sqlite3_stmt* update, Id chunk, std::size_t points,
                     std::size_t capacity);
  void writeBlob(const char* table, Id chunk, std::size_t point, double number);

  std::unique_ptr<sqlite3, CloseDatabase> database_;
  Id run_ = 0;
  Statement begin_, commit_, insertRun_, insertSignal_, selectCounters_, updateCounters_;
  Statement insertChunk_, insertTimes_, insertValues_;
  Statement selectLastChunk_, updateChunk_, growTimes_, growValues_;
  Statement selectAll_, selectRange_;
  Statement selectTolerance_, updateTolerance_;
};

}  // namespace neighbours
