#include "formats/rawreader.h"

#include <algorithm>
#include <iterator>
#include <type_traits>
#include <utility>

#include "formats/encoding.h"
#include "formats/rawheader.h"
#include "formats/rawrows.h"
#include "formats/stepfinder.h"
#include "formats/timestamp.h"
#include "text/numbers.h"

namespace formats {
namespace {

/// Every step is a run that is held by name: what a file may make of them is bounded.
constexpr std::size_t kMaxSteps = 100'000;
/// So are the bytes of title and names that the runs of a file repeat from their plots.
constexpr std::size_t kMaxTextOfRuns = std::size_t{64} << 20;

/// A plot that was checked, and the runs it makes: [firstRun, firstRun + runCount) of the
/// summary.
struct CheckedPlot {
  RawPlot header;
  bool scaleIsSignal = false;  ///< the first variable is a signal, points are ordered by number
  std::size_t firstRun = 0;
  std::size_t runCount = 0;
};

std::size_t rowsPerBlock(const RawPlot& plot) {
  return std::clamp<std::size_t>(kBlockBytes / plot.rowBytes(), 1, kMaxRowsPerBlock);
}

std::size_t valuesPerSample(const RawPlot& plot) {
  return plot.isComplex ? 2 : 1;
}

std::size_t rowLength(const RawPlot& plot) {
  return plot.variables.size() * valuesPerSample(plot);
}

std::optional<double> dateOf(const RawPlot& plot) {
  const auto instant = parseSimulatorDate(plot.date);
  if (!instant) return std::nullopt;
  return posixSeconds(*instant);
}

/// Feeds the scale of a block of rows to the finder, and refuses what cannot be a scale.
class ScaleCheck {
 public:
  ScaleCheck(const ByteSource& source, const RawPlot& plot, AxisKind kind)
      : source_(source), plot_(plot), kind_(kind), finder_(kind, plot.isStepped) {}

  void add(std::span<const double> values, const RawRows& rows) {
    for (std::size_t at = 0; at < values.size(); at += rowLength(plot_), ++row_) {
      // Of a complex scale only the real part means anything: simulators leave whatever stood
      // in memory in the other.
      const double scale = kind_ == AxisKind::kPoint ? static_cast<double>(row_) : values[at];
      const double previous = finder_.steps().empty() ? 0 : finder_.steps().back().last;
      switch (finder_.add(scale)) {
        case StepFinder::Verdict::kGood:
          break;
        case StepFinder::Verdict::kNotFinite:
          fail(rows, "the " + name() + " of point " + std::to_string(row_) + " is " +
                         text::shortest(scale));
        case StepFinder::Verdict::kTurned:
          fail(rows, "the " + name() + " of point " + std::to_string(row_) + " falls from " +
                         text::shortest(previous) + " to " + text::shortest(scale));
      }
      if (finder_.steps().size() > kMaxSteps) {
        fail(rows, "the " + name() + " starts again more than " + std::to_string(kMaxSteps) +
                       " times, too often for the steps of a sweep");
      }
    }
  }

  const StepFinder& finder() const { return finder_; }

 private:
  [[noreturn]] void fail(const RawRows& rows, const std::string& reason) const {
    raiseBrokenRaw(source_, rows.position(row_), reason);
  }
  const std::string& name() const { return plot_.variables.front().name; }

  const ByteSource& source_;
  const RawPlot& plot_;
  AxisKind kind_;
  StepFinder finder_;
  std::uint64_t row_ = 0;
};

std::shared_ptr<const std::vector<SignalInfo>> signalsOf(const RawPlot& plot,
                                                         bool scaleIsSignal) {
  auto signals = std::make_shared<std::vector<SignalInfo>>();
  for (std::size_t i = scaleIsSignal ? 0 : 1; i < plot.variables.size(); ++i) {
    const RawVariable& variable = plot.variables[i];
    signals->push_back({variable.name, std::string(unitOfRawType(variable.type).value_or("")),
                        ValueType::kDouble, plot.isComplex,
                        "variable " + std::to_string(i) + ", " + variable.type});
  }
  return signals;
}

/// The runs of a plot whose points were all added to the finder.
std::vector<RunInfo> runsOf(const RawPlot& plot, const AxisInfo& scale,
                            const StepFinder& finder, bool scaleIsSignal) {
  RunInfo run;
  run.title = plot.title;
  run.plot = plot.plotName;
  run.date = dateOf(plot);
  run.axis = scaleIsSignal ? AxisInfo{AxisKind::kPoint, "point", ""} : scale;
  run.signals = signalsOf(plot, scaleIsSignal);
  const std::string name = plot.plotName.empty() ? "plot" : plot.plotName;
  const bool isStepped = finder.steps().size() > 1;
  std::vector<RunInfo> runs;
  for (const Step& step : finder.steps()) {
    if (isStepped) run.step = runs.size() + 1;
    run.name = isStepped ? name + ", step " + std::to_string(*run.step) : name;
    run.rows = step.rows;
    run.first = scaleIsSignal ? 0 : step.first;
    run.last = scaleIsSignal ? static_cast<double>(step.rows - 1) : step.last;
    runs.push_back(run);
  }
  return runs;
}

/// Sorts rows into the columns of a block.
class BlockColumns {
 public:
  explicit BlockColumns(const CheckedPlot& plot) : plot_(plot) {
    const std::size_t count = plot.header.variables.size() - (plot.scaleIsSignal ? 0 : 1);
    if (plot.header.isComplex) {
      columns_.assign(count, std::vector<std::complex<double>>());
    } else {
      columns_.assign(count, std::vector<double>());
    }
  }

  /// \param firstNumber  of the first row within its run
  void set(std::span<const double> values, std::uint64_t firstNumber) {
    setAxis(values, firstNumber);
    const std::size_t first = plot_.scaleIsSignal ? 0 : 1;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      std::visit([&](auto& column) { setColumn(column, values, first + i); }, columns_[i]);
    }
  }

  std::span<const double> axis() const { return axis_; }
  std::span<const Column> columns() const { return columns_; }

 private:
  void setAxis(std::span<const double> values, std::uint64_t firstNumber) {
    axis_.clear();
    for (std::size_t at = 0; at < values.size(); at += rowLength(plot_.header)) {
      axis_.push_back(plot_.scaleIsSignal ? static_cast<double>(firstNumber++) : values[at]);
    }
  }

  template <class Value>
  void setColumn(std::vector<Value>& column, std::span<const double> values,
                 std::size_t variable) {
    column.clear();
    const std::size_t offset = variable * valuesPerSample(plot_.header);
    for (std::size_t at = offset; at < values.size(); at += rowLength(plot_.header)) {
      if constexpr (std::is_same_v<Value, std::complex<double>>) {
        column.emplace_back(values[at], values[at + 1]);
      } else {
        column.push_back(static_cast<Value>(values[at]));
      }
    }
  }

  const CheckedPlot& plot_;
  std::vector<double> axis_;
  std::vector<Column> columns_;
};

class RawReader : public Reader {
 public:
  explicit RawReader(SteadyFile file) : Reader(std::move(file)) {}

 private:
  Summary check() override {
    plots_.clear();
    textOfRuns_ = 0;
    Summary summary;
    summary.format = "circuit-simulator raw file";
    ByteSource source = file().open();
    while (std::optional<RawPlot> plot = readRawHeader(source)) {
      checkPlot(std::move(*plot), source, summary);
    }
    if (plots_.empty()) raiseBrokenRawLine(source, "it holds no points");
    file().endPass(source);
    return summary;
  }

  void checkPlot(RawPlot plot, ByteSource& source, Summary& summary) {
    noteWhatIsOdd(plot, summary.report);
    const AxisInfo scale = axisOf(plot);
    ScaleCheck check(source, plot, scale.kind);
    const std::unique_ptr<RawRows> rows = openRawRows(source, plot);
    readBlocks(plot, *rows, plot.points, [&](std::uint64_t) { check.add(values_, *rows); });
    if (plot.points == 0) return;
    limitText(plot, check.finder().steps().size(), source);
    summary.report.rows += plot.points;
    const bool scaleIsSignal = scale.kind == AxisKind::kPoint || !check.finder().ordersPoints();
    std::vector<RunInfo> runs = runsOf(plot, scale, check.finder(), scaleIsSignal);
    plots_.push_back({std::move(plot), scaleIsSignal, summary.runs.size(), runs.size()});
    std::ranges::move(runs, std::back_inserter(summary.runs));
  }

  /// Refuses a plot whose texts, repeated for every step, would outgrow the file.
  void limitText(const RawPlot& plot, std::size_t steps, const ByteSource& source) {
    const std::size_t textOfStep =
        plot.title.size() + 2 * plot.plotName.size() + plot.variables.front().name.size();
    if (steps == 1) return;
    textOfRuns_ += steps * textOfStep;
    if (textOfRuns_ <= kMaxTextOfRuns) return;
    raiseBrokenRaw(source, "line " + std::to_string(plot.dataLine),
                   "title and names of " + std::to_string(textOfStep) + " bytes for each of " +
                       std::to_string(steps) + " steps are too much");
  }

  static void noteWhatIsOdd(const RawPlot& plot, ReadReport& report) {
    if (plot.points == 0) {
      report.notice(plot.dataLine, "the plot \"" + plot.plotName + "\" has no points");
    }
    for (const RawVariable& variable : plot.variables) {
      if (unitOfRawType(variable.type)) continue;
      report.notice(plot.dataLine, "variable \"" + variable.name +
                                       "\" has the unknown type \"" + variable.type +
                                       "\" and gets no unit");
    }
  }

  /// Reads the next `rowCount` rows into values_, a block at a time.
  /// \param take  is given the number of rows before the block
  template <class Take>
  void readBlocks(const RawPlot& plot, RawRows& rows, std::uint64_t rowCount,
                  const Take& take) {
    for (std::uint64_t done = 0; done < rowCount;) {
      const std::uint64_t count = std::min<std::uint64_t>(rowsPerBlock(plot), rowCount - done);
      values_.resize(count * rowLength(plot));
      rows.read(values_);
      take(done);
      done += count;
    }
  }

  ReadReport yield(const Summary& summary, Sink& sink) override {
    ByteSource source = file().open();
    for (const CheckedPlot& plot : plots_) {
      passToPlot(plot, source);
      const auto runs = std::span(summary.runs).subspan(plot.firstRun, plot.runCount);
      yieldPlot(plot, runs, source, sink);
    }
    file().endPass(source);
    return summary.report;
  }

  /// Reads on to the first point of the plot; those between hold none.
  void passToPlot(const CheckedPlot& plot, ByteSource& source) const {
    std::optional<RawPlot> header;
    do {
      header = readRawHeader(source);
    } while (header && header->points == 0);
    if (header != plot.header) file().raiseChanged("reading it again gave another header");
  }

  void yieldPlot(const CheckedPlot& plot, std::span<const RunInfo> runs, ByteSource& source,
                 Sink& sink) {
    const std::unique_ptr<RawRows> rows = openRawRows(source, plot.header);
    BlockColumns block(plot);
    for (const RunInfo& run : runs) {
      sink.beginRun(run);
      readBlocks(plot.header, *rows, run.rows, [&](std::uint64_t done) {
        block.set(values_, done);
        sink.block(block.axis(), block.columns());
      });
      sink.endRun();
    }
  }

  std::vector<CheckedPlot> plots_;
  std::size_t textOfRuns_ = 0;  ///< repeated from the plots checked so far
  std::vector<double> values_;  ///< the rows of one block, row by row
};

}  // namespace

std::unique_ptr<Reader> openRawReader(SteadyFile file) {
  return std::make_unique<RawReader>(std::move(file));
}

}  // namespace formats
