#include "formats/csvreader.h"

#include <algorithm>
#include <utility>

#include "formats/csvlayout.h"
#include "formats/csvrecords.h"
#include "formats/csvrow.h"
#include "formats/encoding.h"

namespace formats {
namespace {

std::string characterName(char character) {
  switch (character) {
    case ',':
      return "comma";
    case ';':
      return "semicolon";
    case '\t':
      return "tab";
    case '.':
      return "point";
    default:
      return std::string(1, character);
  }
}

/// The rows of a block, sorted into columns.
class CsvBlock {
 public:
  explicit CsvBlock(const CsvPlan& plan) {
    for (std::size_t i = 0; i < plan.columns.size(); ++i) {
      const ColumnPlan& column = plan.columns[i];
      if (i == plan.layout.timeColumn || column.family == ColumnPlan::Family::kSkipped)
        continue;
      sources_.push_back(i);
      columns_.push_back(emptyColumn(column.type));
    }
    capacity_ = std::clamp<std::size_t>(kBlockBytes / (sizeof(double) * (columns_.size() + 1)),
                                        1, kMaxRowsPerBlock);
  }

  void add(double time, const std::vector<Cell>& cells) {
    times_.push_back(time);
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      const Cell& cell = cells[sources_[i]];
      std::visit([&cell](auto& column) { append(column, cell); }, columns_[i]);
    }
  }

  bool isFull() const { return times_.size() == capacity_; }

  void giveTo(Sink& sink) {
    if (times_.empty()) return;
    sink.block(times_, columns_);
    times_.clear();
    for (Column& column : columns_) {
      std::visit([](auto& values) { values.clear(); }, column);
    }
  }

 private:
  static Column emptyColumn(ValueType type) {
    if (type == ValueType::kInt64) return std::vector<std::int64_t>();
    if (type == ValueType::kBoolean) return std::vector<std::uint8_t>();
    return std::vector<double>();
  }

  static void append(std::vector<double>& column, const Cell& cell) {
    column.push_back(cell.real);
  }
  static void append(std::vector<std::complex<double>>& column, const Cell& cell) {
    column.emplace_back(cell.real);
  }
  template <class Whole>
  static void append(std::vector<Whole>& column, const Cell& cell) {
    column.push_back(static_cast<Whole>(cell.integer));
  }

  std::vector<std::size_t> sources_;  ///< the column of the table that each column here is
  std::vector<Column> columns_;
  std::vector<double> times_;
  std::size_t capacity_ = 1;
};

class CsvReader : public Reader {
 public:
  CsvReader(SteadyFile file, const FileHead& head, const ReadOptions& options)
      : Reader(std::move(file)), name_(head.name) {
    plan_.layout = findCsvLayout(head, options);
  }

 private:
  Summary check() override {
    planColumns();
    RunInfo run = describeRun();
    ReadReport report = notedReport_;
    walk(report, [&run](const CsvRowReader& row) {
      run.last = row.time();
      if (run.rows++ > 0) return;
      run.first = row.time();
      if (row.start()) run.date = posixSeconds(*row.start());
    });
    if (run.rows == 0) raiseNoRows(report);
    report.rows = run.rows;
    return {"CSV", details(), {run}, report, {}};
  }

  ReadReport yield(const Summary& summary, Sink& sink) override {
    ReadReport report = notedReport_;
    CsvBlock block(plan_);
    sink.beginRun(summary.runs.front());
    walk(report, [&](const CsvRowReader& row) {
      ++report.rows;
      block.add(row.time(), row.cells());
      if (block.isFull()) block.giveTo(sink);
    });
    block.giveTo(sink);
    sink.endRun();
    return report;
  }

  /// Calls `take(records)` for every record of data, `drop(line, reason)` for every one that is
  /// none.
  template <class Take, class Drop>
  void forEachRecord(const Take& take, const Drop& drop) {
    CsvRecords records(file().open(), plan_.layout.delimiter);
    for (std::size_t leading = plan_.layout.leadingRecords();;) {
      switch (records.next()) {
        case CsvRecords::Outcome::kRecord:
          if (leading == 0) {
            take(records);
          } else {
            --leading;
          }
          break;
        case CsvRecords::Outcome::kMalformed:
          drop(records.line(), "characters follow a closing quote");
          break;
        case CsvRecords::Outcome::kUnclosed:
          raiseBrokenCsv(name_, records.line(),
                         "a quote opened in this record is never closed");
        case CsvRecords::Outcome::kTooLong:
          raiseBrokenCsv(name_, records.line(), "the line has no end");
        case CsvRecords::Outcome::kEnd:
          file().endPass(records.source());
          return;
      }
    }
  }

  /// Calls `take` for every usable row; counts and notes the others in the report.
  template <class Take>
  void walk(ReadReport& report, const Take& take) {
    const auto drop = [&report](std::uint64_t line, const std::string& reason) {
      ++report.badLines;
      report.notice(line, reason);
    };
    CsvRowReader row(plan_);
    forEachRecord(
        [&](const CsvRecords& records) {
          switch (row.read(records.fields())) {
            case CsvRowReader::Verdict::kGood:
              take(row);
              break;
            case CsvRowReader::Verdict::kUseless:
              drop(records.line(), row.reason());
              break;
            case CsvRowReader::Verdict::kBrokenTime:
              raiseBrokenCsv(name_, records.line(), row.reason());
          }
        },
        drop);
  }

  void planColumns() {
    const std::size_t count = plan_.layout.columns.size();
    std::vector<ColumnCounts> counts(count);
    std::uint64_t timestamps = 0;
    forEachRecord(
        [&](const CsvRecords& records) {
          const auto& fields = records.fields();
          if (!fitsTable(fields, count)) return;
          for (std::size_t i = 0; i < count; ++i) {
            counts[i].add(readCell(fields[i], plan_.layout.decimal).kind);
          }
          if (parseIsoTimestamp(trimmed(fields[plan_.layout.timeColumn]))) ++timestamps;
        },
        [](std::uint64_t, const std::string&) {});
    const ColumnCounts& times = counts[plan_.layout.timeColumn];
    plan_.hasTimestamps = timestamps > times.integers + times.reals;
    plan_.columns.clear();
    notedReport_ = {};
    for (const std::string& text : plan_.layout.notices) notedReport_.notice(0, text);
    for (std::size_t i = 0; i < count; ++i) {
      plan_.columns.push_back(counts[i].plan());
      if (i != plan_.layout.timeColumn) noteOddColumn(i, counts[i]);
    }
  }

  void noteOddColumn(std::size_t index, const ColumnCounts& counts) {
    const CsvColumn& column = plan_.layout.columns[index];
    ColumnPlan& plan = plan_.columns[index];
    const std::string name =
        "column " + std::to_string(index + 1) + " (\"" + column.name + "\")";
    if (plan.family == ColumnPlan::Family::kSkipped) {
      ++notedReport_.skippedColumns;
      notedReport_.notice(0, name + " holds text and is left out");
    } else if (counts.isEmpty() && !column.isNamed) {
      plan.family = ColumnPlan::Family::kSkipped;
    } else if (counts.isEmpty()) {
      plan.type = ValueType::kDouble;
      notedReport_.notice(0, name + " holds no value");
    }
  }

  RunInfo describeRun() const {
    auto signals = std::make_shared<std::vector<SignalInfo>>();
    for (std::size_t i = 0; i < plan_.columns.size(); ++i) {
      if (i == plan_.layout.timeColumn ||
          plan_.columns[i].family == ColumnPlan::Family::kSkipped) {
        continue;
      }
      const CsvColumn& column = plan_.layout.columns[i];
      signals->push_back({column.name, column.unit, plan_.columns[i].type, false,
                          "column " + std::to_string(i + 1)});
    }
    if (signals->empty()) raiseBrokenCsv(name_, 1, "no column but that of time holds numbers");
    RunInfo run;
    run.name = displayName(file().path().stem());
    run.axis = axis();
    run.signals = std::move(signals);
    return run;
  }

  AxisInfo axis() const {
    AxisInfo axis = axisOf(plan_.layout.columns[plan_.layout.timeColumn]);
    if (plan_.hasTimestamps) axis = {AxisKind::kTime, axis.name, "s"};
    return axis;
  }

  std::vector<std::string> details() const {
    const CsvLayout& layout = plan_.layout;
    const CsvColumn& time = layout.columns[layout.timeColumn];
    return {"delimiter: " + characterName(layout.delimiter),
            "decimal mark: " + characterName(layout.decimal),
            std::string("header: ") + (layout.hasHeader ? "yes" : "no"),
            std::string("unit row: ") + (layout.hasUnitRow ? "yes" : "no"),
            "time column: " + std::to_string(layout.timeColumn + 1) + " (\"" + time.name +
                "\")" +
                (plan_.hasTimestamps ? ", time stamps"
                 : time.unit.empty() ? ""
                                     : ", in " + time.unit)};
  }

  [[noreturn]] void raiseNoRows(const ReadReport& report) const {
    for (const Notice& notice : report.notices) {
      if (notice.line == 0) continue;
      raiseBrokenCsv(name_, notice.line, "no row can be used; here " + notice.text);
    }
    raiseBrokenCsv(name_, plan_.layout.leadingRecords() + 1, "it has no row of data");
  }

  std::string name_;
  CsvPlan plan_;
  ReadReport notedReport_;  ///< what is odd about the columns, rows not counted
};

}  // namespace

std::unique_ptr<Reader> openCsvReader(SteadyFile file, const FileHead& head,
                                      const ReadOptions& options) {
  return std::make_unique<CsvReader>(std::move(file), head, options);
}

}  // namespace formats
