#include "formats/rawrows.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <string_view>
#include <vector>

#include "formats/encoding.h"
#include "text/numbers.h"

namespace formats {
namespace {

static_assert(std::endian::native == std::endian::little,
              "raw files are read in the byte order written");

/// Refuses a count of points that the rest of the file is too short for.
void checkCount(const ByteSource& source, const RawPlot& plot, std::uint64_t leastRowBytes) {
  const std::uint64_t left = source.size() - std::min(source.size(), source.offset());
  if (plot.points <= left / leastRowBytes) return;
  raiseBrokenRaw(source, "byte " + std::to_string(source.offset()),
                 "the header promises " + std::to_string(plot.points) + " points of " +
                     std::to_string(leastRowBytes) + " bytes or more, but only " +
                     std::to_string(left) +
                     " bytes follow; the file is cut off or the count is wrong");
}

class BinaryRows : public RawRows {
 public:
  BinaryRows(ByteSource& source, const RawPlot& plot) : source_(source), plot_(plot) {
    checkCount(source, plot, plot.rowBytes());
  }

  void read(std::span<double> values) override {
    const auto bytes = std::as_writable_bytes(values);
    const std::span<char> target(reinterpret_cast<char*>(bytes.data()), bytes.size());
    if (source_.read(target) != target.size()) {
      raiseBrokenRaw(source_, "byte " + std::to_string(source_.offset()),
                     "the points are cut off");
    }
  }

  std::string position(std::uint64_t row) const override {
    return "byte " + std::to_string(plot_.dataOffset + row * plot_.rowBytes());
  }

 private:
  ByteSource& source_;
  const RawPlot& plot_;
};

/// Points as text: the number of the point, then its values, all parted by blanks or line ends.
class TextRows : public RawRows {
 public:
  TextRows(ByteSource& source, const RawPlot& plot)
      : source_(source),
        rowLength_(plot.variables.size() * (plot.isComplex ? 2 : 1)),
        isComplex_(plot.isComplex) {
    // A digit and a separator for the number of the point and for every value but the last.
    checkCount(source, plot, 2 * plot.variables.size() + 1);
  }

  void read(std::span<double> values) override {
    rowLines_.clear();
    for (std::size_t start = 0; start < values.size(); start += rowLength_) {
      takePointNumber();
      rowLines_.push_back(source_.line());
      takeValues(values.subspan(start, rowLength_));
      ++rowsRead_;
    }
  }

  std::string position(std::uint64_t row) const override {
    return "line " + std::to_string(rowLines_.at(row + rowLines_.size() - rowsRead_));
  }

 private:
  [[noreturn]] void fail(const std::string& reason) const {
    raiseBrokenRawLine(source_, reason);
  }

  void takePointNumber() {
    const std::string_view word = takeWord();
    if (text::parseInteger(word) != static_cast<long long>(rowsRead_)) {
      fail("point " + std::to_string(rowsRead_) + " should start here, not " + inQuotes(word));
    }
  }

  void takeValues(std::span<double> values) {
    for (std::size_t i = 0; i < values.size(); ++i) {
      const std::string_view word = takeWord();
      if (!isComplex_) {
        values[i] = number(word, word);
        continue;
      }
      const std::size_t comma = word.find(',');
      if (comma == std::string_view::npos) fail(inQuotes(word) + " is no complex number");
      values[i] = number(word.substr(0, comma), word);
      values[++i] = number(word.substr(comma + 1), word);
    }
  }

  double number(std::string_view digits, std::string_view word) const {
    const auto value = text::parseDouble(digits);
    if (!value) fail(inQuotes(word) + " is no number");
    return *value;
  }

  std::string_view takeWord() {
    constexpr std::string_view kBlank = " \t\r\v\f";
    while ((at_ = line_.find_first_not_of(kBlank, at_)) == std::string::npos) {
      nextLine();
      at_ = 0;
    }
    const std::size_t start = at_;
    at_ = std::min(line_.find_first_of(kBlank, start), line_.size());
    return std::string_view(line_).substr(start, at_ - start);
  }

  void nextLine() {
    switch (source_.readLine(line_)) {
      case ByteSource::Line::kRead:
        return;
      case ByteSource::Line::kTooLong:
        fail("the line has no end");
      case ByteSource::Line::kEnd:
        fail("the points are cut off after " + std::to_string(rowsRead_) + " whole ones");
    }
  }

  ByteSource& source_;
  std::size_t rowLength_;
  bool isComplex_;
  std::uint64_t rowsRead_ = 0;
  std::vector<std::uint64_t> rowLines_;  ///< of the rows of the last read()
  std::string line_;
  std::size_t at_ = 0;  ///< next character in line_
};

}  // namespace

std::unique_ptr<RawRows> openRawRows(ByteSource& source, const RawPlot& plot) {
  if (plot.isBinary) return std::make_unique<BinaryRows>(source, plot);
  return std::make_unique<TextRows>(source, plot);
}

}  // namespace formats
