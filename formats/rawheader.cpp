#include "formats/rawheader.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <utility>

#include "formats/encoding.h"
#include "kodiag/message.h"
#include "text/numbers.h"

namespace formats {
namespace {

struct HeaderLine {
  std::string key;  ///< lower case
  std::string_view value;
};

std::optional<HeaderLine> splitHeaderLine(std::string_view line) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  return HeaderLine{lowerCase(trimmed(line.substr(0, colon))), trimmed(line.substr(colon + 1))};
}

std::vector<std::string> words(std::string_view text) {
  std::istringstream stream{std::string(text)};
  std::vector<std::string> found;
  for (std::string word; stream >> word;) found.push_back(std::move(word));
  return found;
}

/// The parts of a variable's line. Tabs part them where there are any, so that names may hold
/// blanks.
std::vector<std::string> variableParts(std::string_view line) {
  const std::string_view content = trimmed(line);
  if (content.find('\t') == std::string_view::npos) return words(content);
  std::vector<std::string> parts;
  for (std::size_t at = 0; at <= content.size();) {
    const std::size_t tab = std::min(content.find('\t', at), content.size());
    const std::string_view part = trimmed(content.substr(at, tab - at));
    if (!part.empty()) parts.emplace_back(part);
    at = tab + 1;
  }
  return parts;
}

class HeaderReader {
 public:
  explicit HeaderReader(ByteSource& source) : source_(source) {}

  std::optional<RawPlot> read() {
    if (!skipToFirstLine()) return std::nullopt;
    if (!startsHeader()) {
      fail(
          "a plot must start with \"Title:\" or \"Plotname:\" here; the count of points before "
          "it is "
          "too small, or the simulator was stopped before it wrote the count");
    }
    while (!takeLine()) nextLine();
    checkComplete();
    plot_.points = *pointCount_;
    plot_.dataOffset = source_.offset();
    plot_.dataLine = source_.line();
    return std::move(plot_);
  }

 private:
  [[noreturn]] void fail(const std::string& reason) const {
    raiseBrokenRawLine(source_, reason);
  }

  bool skipToFirstLine() {
    do {
      if (!readLine()) return false;
    } while (trimmed(line_).empty());
    return true;
  }

  bool startsHeader() const {
    const auto header = splitHeaderLine(line_);
    return header && (header->key == "title" || header->key == "plotname");
  }

  bool readLine() {
    switch (source_.readLine(line_)) {
      case ByteSource::Line::kTooLong:
        fail("a header line has no end");
      case ByteSource::Line::kEnd:
        return false;
      case ByteSource::Line::kRead:
        break;
    }
    return true;
  }

  void nextLine() {
    if (!readLine()) fail("the file ends within the header of a plot");
  }

  /// Whether the header ends with this line.
  bool takeLine() {
    if (trimmed(line_).empty()) return false;
    const auto header = splitHeaderLine(line_);
    if (!header) fail(inQuotes(line_) + " is no header line \"Key: value\"");
    const auto& [key, value] = *header;
    if (key == "title") plot_.title = utf8FromBytes(value);
    if (key == "date") plot_.date = std::string(value);
    if (key == "plotname") plot_.plotName = utf8FromBytes(value);
    if (key == "flags") takeFlags(value);
    if (key == "no. variables") variableCount_ = count(value);
    if (key == "no. points") pointCount_ = count(value);
    if (key == "variables") takeVariables(std::string(value));
    plot_.isBinary = key == "binary";
    return key == "binary" || key == "values";
  }

  std::uint64_t count(std::string_view digits) const {
    const auto number = text::parseInteger(digits);
    if (!number || *number < 0) fail(inQuotes(digits) + " is no count");
    return static_cast<std::uint64_t>(*number);
  }

  void takeFlags(std::string_view value) {
    for (const std::string& flag : words(lowerCase(value))) {
      if (flag == "complex") plot_.isComplex = true;
      if (flag == "stepped") plot_.isStepped = true;
      if (flag == "unpadded") isUnpadded_ = true;
      if (flag == "fastaccess") fail("the layout \"fastaccess\" is not supported");
    }
  }

  void takeVariables(const std::string& firstOnTheSameLine) {
    if (!variableCount_) fail("\"Variables:\" comes before \"No. Variables:\"");
    if (!plot_.variables.empty()) fail("the variables are listed twice");
    if (!firstOnTheSameLine.empty()) takeVariable(firstOnTheSameLine);
    while (plot_.variables.size() < *variableCount_) {
      nextLine();
      takeVariable(line_);
    }
  }

  void takeVariable(std::string_view line) {
    const std::vector<std::string> parts = variableParts(line);
    const std::size_t index = plot_.variables.size();
    if (parts.size() < 3 || text::parseInteger(parts[0]) != static_cast<long long>(index)) {
      fail(inQuotes(line) + " does not describe variable " + std::to_string(index) + " of " +
           std::to_string(*variableCount_) + " as number, name and type");
    }
    if (isUnpadded_ && line.find("dims=") != std::string_view::npos) {
      fail("unpadded plots with variables of different length are not supported");
    }
    // What follows the type ("grid=3", "dims=4") says how to draw the variable.
    const std::string& type = parts[2];
    plot_.variables.push_back(
        {utf8FromBytes(parts[1]), utf8FromBytes(type.substr(0, type.find(' ')))});
  }

  void checkComplete() const {
    if (!variableCount_ || *variableCount_ == 0) fail("the header names no variables");
    if (plot_.variables.size() != *variableCount_)
      fail("the header does not list its variables");
    if (!pointCount_) fail("the header does not give \"No. Points:\"");
  }

  ByteSource& source_;
  std::string line_;
  RawPlot plot_;
  std::optional<std::uint64_t> variableCount_;
  std::optional<std::uint64_t> pointCount_;
  bool isUnpadded_ = false;
};

}  // namespace

std::optional<RawPlot> readRawHeader(ByteSource& source) {
  return HeaderReader(source).read();
}

bool looksLikeRawFile(std::string_view head) {
  constexpr std::size_t kHeaderBytes = 65536;
  const std::string text = lowerCase(trimmed(head.substr(0, kHeaderBytes)));
  const bool starts = text.starts_with("title:") || text.starts_with("plotname:");
  return starts && (text.find("\nplotname:") != std::string::npos ||
                    text.find("\nno. variables:") != std::string::npos);
}

std::optional<std::string_view> unitOfRawType(std::string_view type) {
  static const std::map<std::string, std::string_view, std::less<>> kUnits = {
      {"notype", ""},
      {"time", "s"},
      {"frequency", "Hz"},
      {"voltage", "V"},
      {"current", "A"},
      {"device_current", "A"},
      {"subckt_current", "A"},
      {"voltage-density", "V/sqrt(Hz)"},
      {"current-density", "A/sqrt(Hz)"},
      {"voltage^2-density", "V^2/Hz"},
      {"current^2-density", "A^2/Hz"},
      {"voltage^2", "V^2"},
      {"current^2", "A^2"},
      {"temperature", "degC"},
      {"temp-sweep", "degC"},
      {"res-sweep", "Ohm"},
      {"impedance", "Ohm"},
      {"admittance", "S"},
      {"capacitance", "F"},
      {"inductance", "H"},
      {"charge", "C"},
      {"power", "W"},
      {"phase", ""},
      {"decibel", "dB"},
      {"pole", ""},
      {"zero", ""},
      {"s-param", ""},
  };
  const auto found = kUnits.find(lowerCase(type));
  if (found == kUnits.end()) return std::nullopt;
  return found->second;
}

AxisInfo axisOf(const RawPlot& plot) {
  const AxisInfo numbers{AxisKind::kPoint, "point", ""};
  if (plot.variables.size() == 1) return numbers;
  const RawVariable& scale = plot.variables.front();
  const std::string type = lowerCase(scale.type);
  const std::string unit(unitOfRawType(type).value_or(""));
  if (type == "time") return {AxisKind::kTime, scale.name, unit};
  if (type == "frequency") return {AxisKind::kFrequency, scale.name, unit};
  const bool isSwept = lowerCase(scale.name).find("-sweep") != std::string::npos;
  if (isSwept) return {AxisKind::kSweep, scale.name, unit};
  return numbers;
}

void raiseBrokenRaw(const ByteSource& source, const std::string& position,
                    const std::string& reason) {
  kodiag::raise({"VELA:vela", "BrokenRawFile"},
                {{"FileName", source.name()}, {"Position", position}, {"Reason", reason}});
}

void raiseBrokenRawLine(const ByteSource& source, const std::string& reason) {
  // Points in binary count for no line, so that after them the byte is what tells.
  raiseBrokenRaw(source,
                 "line " + std::to_string(source.line()) + " (before byte " +
                     std::to_string(source.offset()) + ")",
                 reason);
}

}  // namespace formats
