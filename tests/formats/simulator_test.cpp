// Files as a real simulator writes them.
#include <cstdlib>

#include "formatstest.h"

namespace formats::test {
namespace {

std::string contentOf(const std::filesystem::path& path) {
  std::ifstream stream(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(stream), {}};
}

/// The doubles after the `plot`-th "Binary:" line of a file, up to the next header, all of
/// them.
std::vector<double> valuesOfPlot(const std::string& content, std::size_t plot) {
  constexpr std::string_view kMark = "\nBinary:\n";
  std::size_t start = 0;
  for (std::size_t i = 0; i <= plot; ++i) start = content.find(kMark, start) + kMark.size();
  const std::size_t end = std::min(content.find("Title:", start), content.size());
  std::vector<double> values((end - start) / sizeof(double));
  std::memcpy(values.data(), content.data() + start, end - start);
  return values;
}

/// Whether a run holds the rows [firstRow, firstRow + its rows) of `values`, bit for bit.
void expectRows(const ReadRun& run, const std::vector<double>& values, std::size_t firstRow) {
  const bool isComplex = run.info.signals->front().isComplex;
  const std::size_t perSample = isComplex ? 2 : 1;
  const bool hasScale = run.info.axis.kind != AxisKind::kPoint;
  const std::size_t perRow = (run.columns.size() + (hasScale ? 1 : 0)) * perSample;
  for (std::size_t row = 0; row < run.info.rows; ++row) {
    const double* sample = values.data() + (firstRow + row) * perRow;
    ASSERT_EQ(run.axis[row], hasScale ? sample[0] : static_cast<double>(row));
    for (std::size_t i = 0; i < run.columns.size(); ++i) {
      const double* expected = sample + (i + (hasScale ? 1 : 0)) * perSample;
      const void* read = isComplex ? static_cast<const void*>(&run.complexes(i)[row])
                                   : static_cast<const void*>(&run.reals(i)[row]);
      ASSERT_EQ(std::memcmp(read, expected, perSample * sizeof(double)), 0)
          << i << " at row " << row;
    }
  }
}

TEST(SimulatorTest, ReadsEveryAnalysisAsTheSimulatorWroteIt) {
  const std::string program = NGSPICE_PROGRAM;
  if (program.empty()) GTEST_SKIP() << "no simulator installed";
  TemporaryFolder folder;
  const std::string command = "cd '" + folder.path().string() + "' && '" + program +
                              "' -b '" NETLIST_FOLDER "/analyses.cir' > log 2>&1";
  ASSERT_EQ(std::system(command.c_str()), 0);

  const std::string content = contentOf(folder.path() / "analyses.raw");
  const auto runs = readAll(folder.path() / "analyses.raw");
  ASSERT_EQ(runs.size(),
            8);  // transient, AC, two transients, three steps of DC, operating point
  for (const std::size_t plot : {0, 1, 2, 3})
    expectRows(runs[plot], valuesOfPlot(content, plot), 0);
  for (const std::size_t step : {0, 1, 2})
    expectRows(runs[4 + step], valuesOfPlot(content, 4), 5 * step);
  expectRows(runs[7], valuesOfPlot(content, 5), 0);
  EXPECT_EQ(runs[0].info.axis.kind, AxisKind::kTime);
  EXPECT_EQ(runs[1].info.axis.kind, AxisKind::kFrequency);
  EXPECT_EQ(runs[5].info.axis.kind, AxisKind::kSweep);
  EXPECT_EQ(runs[5].info.step, 2);
  EXPECT_EQ(runs[7].info.axis.kind, AxisKind::kPoint);
  for (const ReadRun& run : runs) EXPECT_TRUE(run.info.date);

  const auto text = readAll(folder.path() / "text.raw");
  ASSERT_EQ(text.size(), 1);
  ASSERT_EQ(text[0].info.rows, runs[0].info.rows);
  for (std::size_t row = 0; row < text[0].info.rows; ++row) {
    EXPECT_DOUBLE_EQ(text[0].axis[row], runs[0].axis[row]);
    EXPECT_DOUBLE_EQ(text[0].reals(2)[row], runs[0].reals(2)[row]);
  }
}

}  // namespace
}  // namespace formats::test
