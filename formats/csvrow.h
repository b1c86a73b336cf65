// From the fields of one record to a checked row of a table: its time and its values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/csvcell.h"
#include "formats/csvlayout.h"
#include "formats/reader.h"
#include "formats/timestamp.h"

namespace formats {

/// What a column of a table is read as.
struct ColumnPlan {
  enum class Family { kNumbers, kBooleans, kSkipped };
  Family family = Family::kNumbers;
  ValueType type = ValueType::kDouble;
};

/// What the cells of a column are, counted over the whole file.
struct ColumnCounts {
  std::uint64_t missing = 0;
  std::uint64_t booleans = 0;
  std::uint64_t integers = 0;
  std::uint64_t reals = 0;
  std::uint64_t texts = 0;

  void add(CellKind kind);
  bool isEmpty() const { return booleans + integers + reals + texts == 0; }
  /// The kind that most cells are of. Integers and booleans stay such when no cell is missing.
  ColumnPlan plan() const;
};

/// How a table is read; fixed before any of its rows is used.
struct CsvPlan {
  CsvLayout layout;
  std::vector<ColumnPlan> columns;  ///< one per column of the layout
  bool hasTimestamps = false;
};

/// What scales a time column to seconds: time * numerator / denominator.
struct TimeScale {
  double numerator = 1;
  double denominator = 1;
};

/// The axis that the time column makes, and how its numbers are scaled to the unit of that
/// axis.
AxisInfo axisOf(const CsvColumn& column);
TimeScale timeScaleOf(std::string_view unit);

/// Trims a record to the columns of the table: a delimiter may end it. False if the lengths
/// differ.
bool fitsTable(const std::vector<std::string_view>& fields, std::size_t columnCount);

/// Checks records against the plan, one after the other; remembers the start of a table of time
/// stamps and the time of the row before.
class CsvRowReader {
 public:
  explicit CsvRowReader(const CsvPlan& plan);

  /// Reads a record; what is wrong with it, or nothing.
  ///
  /// kUseless: its line is left out. kBrokenTime: the table is in no order of time.
  enum class Verdict { kGood, kUseless, kBrokenTime };
  Verdict read(const std::vector<std::string_view>& fields);

  /// Why the last verdict was not kGood.
  const std::string& reason() const { return reason_; }
  double time() const { return time_; }
  /// One per column of the layout.
  const std::vector<Cell>& cells() const { return cells_; }
  /// Where the times of a table of time stamps start.
  const std::optional<Instant>& start() const { return start_; }

 private:
  Verdict readCells(const std::vector<std::string_view>& fields);
  Verdict readNumber(std::string_view field, double& time);
  Verdict readTimestamp(std::string_view field, double& time);
  Verdict verdict(Verdict verdict, std::string reason);

  const CsvPlan& plan_;
  TimeScale scale_;
  std::vector<Cell> cells_;
  std::optional<Instant> start_;
  bool hasTime_ = false;
  double time_ = 0;
  std::string reason_;
};

}  // namespace formats
