// The one way into a recording of another program: what is in it, and its samples in blocks.
#pragma once

#include <complex>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "formats/steadyfile.h"

namespace formats {

enum class ValueType { kDouble, kInt64, kBoolean };

/// "double", "int64" or "boolean".
std::string_view valueTypeName(ValueType type);

/// One recorded quantity. All text is UTF-8; an unknown unit is empty.
struct SignalInfo {
  std::string name;
  std::string unit;
  ValueType type = ValueType::kDouble;
  bool isComplex = false;  ///< only with kDouble
  std::string origin;      ///< where in the file it comes from, for people: "column 3"
};

/// What the samples of a run are ordered by.
enum class AxisKind {
  kTime,       ///< in seconds unless the unit says otherwise
  kFrequency,  ///< in hertz
  kSweep,      ///< a swept quantity, in the axis unit
  kPoint       ///< nothing that can order them: samples are numbered 0, 1, 2, ...
};

struct AxisInfo {
  AxisKind kind = AxisKind::kTime;
  std::string name = "time";
  std::string unit = "s";
};

/// One run of a file: signals sampled together on one axis.
struct RunInfo {
  std::string name;
  std::string title;
  std::string plot;            ///< the analysis or table it comes from, as the file names it
  std::optional<double> date;  ///< POSIX seconds of its start, or of when it was recorded
  AxisInfo axis;
  std::optional<std::size_t> step;  ///< 1, 2, ... for the steps of a stepped sweep
  /// Shared by the runs of one plot; never null.
  std::shared_ptr<const std::vector<SignalInfo>> signals;
  std::uint64_t rows = 0;  ///< samples of every signal, at least 1
  double first = 0;        ///< axis value of the first sample
  double last = 0;         ///< axis value of the last sample
};

/// The values of one signal in a block; the alternative follows the signal's type, booleans as
/// 0 and 1.
using Column = std::variant<std::vector<double>, std::vector<std::complex<double>>,
                            std::vector<std::int64_t>, std::vector<std::uint8_t>>;

constexpr std::size_t kMaxRowsPerBlock = 65536;
/// Aim for the bytes of a block; one row of very many signals may exceed it.
constexpr std::size_t kBlockBytes = std::size_t{8} << 20;

/// Takes what a reader yields. May throw; the reader then stops and passes the exception on.
class Sink {
 public:
  virtual ~Sink() = default;
  virtual void beginRun(const RunInfo& run) = 0;
  /// \param axis     shape (n), 1 <= n <= kMaxRowsPerBlock, finite, never decreasing within a
  /// run \param columns  one per signal of the run, in their order, each of shape (n)
  virtual void block(std::span<const double> axis, std::span<const Column> columns) = 0;
  virtual void endRun() = 0;
};

/// Something the reader of the file should know.
struct Notice {
  std::uint64_t line;  ///< 1, 2, ...; 0 when it concerns no single line
  std::string text;
};

/// What became of the rows of a file.
struct ReadReport {
  static constexpr std::size_t kNoticesKept = 100;

  std::uint64_t rows = 0;            ///< read, over all runs
  std::uint64_t badLines = 0;        ///< left out
  std::uint64_t skippedColumns = 0;  ///< left out since they hold neither numbers nor booleans
  std::uint64_t noticeCount = 0;
  std::vector<Notice> notices;  ///< the first kNoticesKept of noticeCount

  /// Whether data of the file was left out.
  bool lossy() const { return badLines > 0 || skippedColumns > 0; }
  void notice(std::uint64_t line, std::string text);
};

/// What a file holds, without its samples.
struct Summary {
  std::string format;                ///< "circuit-simulator raw file", "CSV"
  std::vector<std::string> details;  ///< how it is read: "delimiter: semicolon"
  std::vector<RunInfo> runs;
  ReadReport report;
  Content content;  ///< of the file that all this was found in
};

enum class Choice { kAuto, kYes, kNo };

/// How to read a table of text; what is left out is found out from the file.
struct ReadOptions {
  std::optional<char> delimiter;
  std::optional<char> decimal;  ///< '.' or ','
  std::string timeColumn;       ///< a name, or a position 1, 2, ...; empty: found out
  Choice header = Choice::kAuto;
  Choice unitRow = Choice::kAuto;
};

/// The options that differ from the defaults, "delimiter=; time-column=t"; empty when none
/// does.
std::string optionsText(const ReadOptions& options);

/// Reads one file. Holds one block and what describe() returns, whatever the size of the file.
class Reader {
 public:
  virtual ~Reader() = default;

  /// Checks the whole file and tells what read() will yield; later calls read nothing.
  ///
  /// \throws ExceptionWithCauses "VELA:vela:BrokenRawFile" or "VELA:vela:BrokenCsvFile" naming
  ///         file, line or byte, and cause; "VELA:vela:CannotReadFile";
  ///         "VELA:vela:SourceChanged" if the file changed since the reader was made
  const Summary& describe();

  /// Yields every run with its samples. Checks the whole file first: what describe() refuses
  /// never reaches the sink.
  ///
  /// \throws as describe(), and whatever the sink throws; "VELA:vela:SourceChanged" after
  ///         blocks were given if these are not those of the file that was described
  ReadReport read(Sink& sink);

 protected:
  explicit Reader(SteadyFile file) : file_(std::move(file)) {}

  /// Passes over the file, all of it, every pass ended with endPass().
  virtual Summary check() = 0;
  virtual ReadReport yield(const Summary& summary, Sink& sink) = 0;

  SteadyFile& file() { return file_; }
  const SteadyFile& file() const { return file_; }

 private:
  template <class Work>
  auto whileUnchanged(const Work& work);

  SteadyFile file_;
  std::optional<Summary> summary_;
};

/// The reader for a file, chosen by its content.
/// \throws ExceptionWithCauses "VELA:vela:UnknownFormat" if no reader knows it, naming the
/// known
///         formats; "VELA:vela:CannotReadFile"; "VELA:vela:InvalidReadOption" for options that
///         contradict each other or the file
std::unique_ptr<Reader> openReader(const std::filesystem::path& path,
                                   const ReadOptions& options = {});

}  // namespace formats
