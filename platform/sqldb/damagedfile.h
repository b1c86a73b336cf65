// A damaged repository file, read row by row as far as it goes.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3_stmt;

namespace sqldb {

/// A private copy of a repository file that may be damaged.
///
/// The file itself is only read, and only when nobody has it open. Its log is applied to the
/// copy. Pages that are lost or contradict the file's own map of pages answer with an error, so
/// what is delivered was read whole; bytes changed inside a value cannot be recognised.
/// Threads: one.
class DamagedFile {
 public:
  /// Makes a fresh repository at that path, which lies in a private folder.
  using MakeTwin = std::function<void(const std::string& path)>;

  /// \param location  path of the file, UTF-8
  /// \param makeTwin  called when the list of tables in the file cannot be read whole: that of
  ///                  the twin then stands in for it
  /// \throws "RepositoryBusy" when somebody has it open, "KODD:kodd:NotARepository" when its
  ///         header is not that of a repository, "IOError"
  DamagedFile(const std::string& location, std::int32_t applicationId,
              const MakeTwin& makeTwin);
  ~DamagedFile();
  DamagedFile(const DamagedFile&) = delete;
  DamagedFile& operator=(const DamagedFile&) = delete;

  struct Table {
    std::string name;
    std::vector<std::string> columns;
  };
  /// The tables that are known, in no particular order.
  std::vector<Table> tables();

  enum class Type { integer, real, text, blob, null };
  /// A row; valid during the call it is given to. Columns count from 0, after the row ID.
  class Row {
   public:
    explicit Row(sqlite3_stmt* handle) : handle_(handle) {}

    long long id() const;
    Type type(int column) const;
    long long int64(int column) const;
    double real(int column) const;
    std::string_view text(int column) const;
    std::span<const std::byte> blob(int column) const;

   private:
    sqlite3_stmt* handle_;
  };
  using Use = std::function<void(const Row&)>;

  /// Reads every row of a table that can be read, each once, in no particular order: up to the
  /// first damage, from the end down to the last, then in ever finer ranges between.
  ///
  /// \param columns  SQL of the result columns, separated by commas
  /// \returns whether nothing was in the way
  bool forEachRow(const std::string& table, const std::string& columns, const Use& use);
  /// Reads one row. \returns false when there is none or it cannot be read
  bool readRow(const std::string& table, const std::string& columns, long long id,
               const Use& use);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace sqldb
