// Files to read and what a reader made of them.
#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "formats/reader.h"
#include "kodiag/diagnostics.h"

namespace formats::test {

/// A folder that goes with the test.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "formatsXXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    path_ = name;
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }

  std::filesystem::path write(const std::string& name, std::string_view content) const {
    // Cutting a file short and writing it anew makes some file systems wait for the disk.
    std::filesystem::remove(path_ / name);
    std::ofstream(path_ / name, std::ios::binary) << content;
    return path_ / name;
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// A run with its blocks put together again.
struct ReadRun {
  RunInfo info;
  std::vector<double> axis;
  std::vector<Column> columns;
  std::size_t blocks = 0;

  const std::vector<double>& reals(std::size_t i) const { return std::get<0>(columns.at(i)); }
  const std::vector<std::complex<double>>& complexes(std::size_t i) const {
    return std::get<1>(columns.at(i));
  }
  const std::vector<std::int64_t>& integers(std::size_t i) const {
    return std::get<2>(columns.at(i));
  }
  const std::vector<std::uint8_t>& booleans(std::size_t i) const {
    return std::get<3>(columns.at(i));
  }
};

/// Collects runs and checks what every sink may rely on.
class Collector : public Sink {
 public:
  void beginRun(const RunInfo& run) override {
    EXPECT_FALSE(isOpen_);
    isOpen_ = true;
    runs.push_back({run, {}, {}, 0});
  }

  void block(std::span<const double> axis, std::span<const Column> columns) override {
    ReadRun& run = runs.back();
    EXPECT_TRUE(isOpen_);
    EXPECT_TRUE(!axis.empty() && axis.size() <= kMaxRowsPerBlock);
    EXPECT_EQ(columns.size(), run.info.signals->size());
    for (const double value : axis) {
      EXPECT_TRUE(std::isfinite(value) && (run.axis.empty() || value >= run.axis.back()));
      run.axis.push_back(value);
    }
    if (run.columns.empty()) {
      run.columns.assign(columns.begin(), columns.end());
    } else {
      for (std::size_t i = 0; i < columns.size(); ++i) append(run.columns[i], columns[i]);
    }
    for (std::size_t i = 0; i < columns.size(); ++i) {
      EXPECT_EQ(columns[i].index(), columnIndex((*run.info.signals)[i]));
      EXPECT_EQ(std::visit([](const auto& values) { return values.size(); }, columns[i]),
                axis.size());
    }
    ++run.blocks;
  }

  void endRun() override {
    isOpen_ = false;
    const ReadRun& run = runs.back();
    EXPECT_EQ(run.axis.size(), run.info.rows);
    if (run.axis.empty()) return;
    EXPECT_EQ(run.axis.front(), run.info.first);
    EXPECT_EQ(run.axis.back(), run.info.last);
  }

  std::vector<ReadRun> runs;

 private:
  static std::size_t columnIndex(const SignalInfo& signal) {
    if (signal.isComplex) return 1;
    return signal.type == ValueType::kDouble ? 0 : signal.type == ValueType::kInt64 ? 2 : 3;
  }

  static void append(Column& to, const Column& from) {
    std::visit(
        [&from](auto& values) {
          const auto& more = std::get<std::decay_t<decltype(values)>>(from);
          values.insert(values.end(), more.begin(), more.end());
        },
        to);
  }

  bool isOpen_ = false;
};

inline std::vector<ReadRun> readAll(const std::filesystem::path& path,
                                    const ReadOptions& options = {}) {
  Collector collector;
  const auto reader = openReader(path, options);
  const ReadReport report = reader->read(collector);
  EXPECT_EQ(report.rows, reader->describe().report.rows);
  EXPECT_EQ(report.badLines, reader->describe().report.badLines);
  EXPECT_EQ(report.noticeCount, reader->describe().report.noticeCount);
  EXPECT_EQ(collector.runs.size(), reader->describe().runs.size());
  return std::move(collector.runs);
}

/// The text of the failure of reading a file, with its ID in front; "" if it can be read.
inline std::string failure(const std::filesystem::path& path, const ReadOptions& options = {}) {
  Collector collector;
  try {
    openReader(path, options)->read(collector);
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    EXPECT_TRUE(collector.runs.empty()) << "data of a refused file reached the sink";
    return error.id() + " " + error.what();
  }
  return {};
}

/// The doubles as a raw file holds them.
inline std::string bytesOf(const std::vector<double>& values) {
  std::string bytes(values.size() * sizeof(double), '\0');
  std::memcpy(bytes.data(), values.data(), bytes.size());
  return bytes;
}

/// Equal bit by bit, NaN and -0.0 included.
MATCHER_P(BitsAre, expected, "has the same bits") {
  return arg.size() == expected.size() &&
         std::memcmp(arg.data(), expected.data(), arg.size() * sizeof(arg[0])) == 0;
}

}  // namespace formats::test
