#include "formats/csvlayout.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <tuple>

#include "formats/csvcell.h"
#include "formats/csvrecords.h"
#include "formats/encoding.h"
#include "formats/timestamp.h"
#include "kodiag/message.h"
#include "text/numbers.h"

namespace formats {
namespace {

using Record = std::vector<std::string>;
using Sample = std::vector<Record>;

constexpr std::size_t kSampleRecords = 5000;
constexpr std::size_t kLongestUnit = 16;
constexpr std::size_t kNamesInMessage = 50;
constexpr std::array kDelimiters = {',', ';', '\t', '|'};

[[noreturn]] void raiseOption(const FileHead& head, const std::string& option,
                              const std::string& reason) {
  kodiag::raise({"VELA:vela", "InvalidReadOption"},
                {{"FileName", head.name}, {"Option", option}, {"Reason", reason}});
}

void checkOptions(const FileHead& head, const ReadOptions& options) {
  const std::string text = optionsText(options);
  if (options.decimal && *options.decimal != '.' && *options.decimal != ',') {
    raiseOption(head, text, "the decimal mark is '.' or ','");
  }
  if (!options.delimiter) return;
  if (std::string_view(" \"\r\n.+-").find(*options.delimiter) != std::string_view::npos ||
      (*options.delimiter >= '0' && *options.delimiter <= '9') || *options.delimiter == '\0') {
    raiseOption(head, text, "this character cannot part the fields of a table");
  }
}

/// The whole lines of the head.
std::string wholeLines(const FileHead& head) {
  if (head.isWhole) return head.bytes;
  return head.bytes.substr(0, head.bytes.rfind('\n') + 1);
}

Sample readSample(const FileHead& head, char delimiter) {
  Sample sample;
  CsvRecords records(ByteSource(head.name, wholeLines(head)), delimiter);
  for (;;) {
    const CsvRecords::Outcome outcome = records.next();
    if (outcome == CsvRecords::Outcome::kMalformed) continue;
    if (outcome != CsvRecords::Outcome::kRecord) return sample;
    sample.emplace_back(records.fields().begin(), records.fields().end());
    if (sample.size() == kSampleRecords) return sample;
  }
}

bool isValue(std::string_view field, char decimal) {
  return readCell(field, decimal).kind != CellKind::kText || parseIsoTimestamp(trimmed(field));
}

bool isGivenValue(std::string_view field, char decimal) {
  return !trimmed(field).empty() && isValue(field, decimal);
}

/// The number of fields that most records have; the first such number when several are as
/// common.
std::size_t commonLength(const Sample& sample) {
  std::map<std::size_t, std::size_t> counts;
  for (const Record& record : sample) ++counts[record.size()];
  std::size_t common = 0;
  for (const Record& record : sample) {
    if (common == 0 || counts[record.size()] > counts[common]) common = record.size();
  }
  return common;
}

/// How well a sample reads as a table of values.
struct Fit {
  bool hasColumns = false;
  double quality = 0;  ///< share of records of common length times share of values in the cells

  auto operator<=>(const Fit&) const = default;
};

Fit fitOf(const Sample& sample, char decimal) {
  const std::size_t length = commonLength(sample);
  std::size_t common = 0;
  std::size_t cells = 0;
  std::size_t values = 0;
  for (std::size_t i = 0; i < sample.size(); ++i) {
    if (sample[i].size() == length) ++common;
    if (i == 0 && sample.size() > 1) continue;  // most likely names
    cells += sample[i].size();
    values += static_cast<std::size_t>(
        std::count_if(sample[i].begin(), sample[i].end(),
                      [decimal](const std::string& field) { return isValue(field, decimal); }));
  }
  if (cells == 0) return {};
  return {length > 1, static_cast<double>(common) / static_cast<double>(sample.size()) *
                          static_cast<double>(values) / static_cast<double>(cells)};
}

struct Dialect {
  char delimiter = ',';
  char decimal = '.';
  Fit fit;
  Sample sample;
};

Dialect findDialect(const FileHead& head, const ReadOptions& options) {
  std::vector<char> delimiters(kDelimiters.begin(), kDelimiters.end());
  if (options.delimiter) delimiters = {*options.delimiter};
  std::optional<Dialect> best;
  for (const char delimiter : delimiters) {
    Sample sample = readSample(head, delimiter);
    for (const char decimal : {'.', ','}) {
      // Both may be commas: then the numbers are quoted.
      if (decimal != options.decimal.value_or(decimal)) continue;
      const Fit fit = fitOf(sample, decimal);
      if (!best || best->fit < fit) best = Dialect{delimiter, decimal, fit, sample};
    }
  }
  return best.value_or(Dialect{});
}

bool findHeader(const Sample& sample, char decimal, Choice choice) {
  if (choice != Choice::kAuto || sample.empty()) return choice == Choice::kYes;
  const Record& first = sample.front();
  bool holdsValues = false;
  for (std::size_t column = 0; column < first.size(); ++column) {
    const bool isText = !isValue(first[column], decimal);
    if (isGivenValue(first[column], decimal)) holdsValues = true;
    const bool hasValueBelow =
        std::any_of(sample.begin() + 1, sample.end(), [&](const Record& record) {
          return column < record.size() && isGivenValue(record[column], decimal);
        });
    if (isText && hasValueBelow) return true;
  }
  return !holdsValues;
}

bool findUnitRow(const Sample& sample, bool hasHeader, char decimal, Choice choice) {
  if (choice != Choice::kAuto) return choice == Choice::kYes;
  if (!hasHeader || sample.size() < 3) return false;
  const Record& units = sample[1];
  bool hasUnit = false;
  for (const std::string& field : units) {
    const std::string_view unit = trimmed(field);
    if (unit.size() > kLongestUnit || isGivenValue(unit, decimal)) return false;
    if (!unit.empty()) hasUnit = true;
  }
  return hasUnit && units.size() == sample[0].size();
}

bool isIndex(std::string_view text) {
  return text.find_first_not_of("0123456789,:; ") == std::string_view::npos;
}

/// "[m/s]" and "(m/s)" as "m/s", "-" as nothing.
std::string unitOf(std::string_view field) {
  std::string_view unit = trimmed(field);
  if (unit.size() >= 2 && ((unit.front() == '[' && unit.back() == ']') ||
                           (unit.front() == '(' && unit.back() == ')'))) {
    unit = trimmed(unit.substr(1, unit.size() - 2));
  }
  return unit == "-" ? std::string() : utf8FromBytes(unit);
}

/// Parts "speed [m/s]" and "speed (m/s)"; "v(out)" and "x[3]" are names.
CsvColumn columnOf(std::string_view field) {
  const std::string_view text = trimmed(field);
  const char open = text.ends_with(']') ? '[' : text.ends_with(')') ? '(' : '\0';
  const std::size_t start = open ? text.rfind(open) : std::string_view::npos;
  if (start != std::string_view::npos && start > 0) {
    const std::string_view name = trimmed(text.substr(0, start));
    const std::string_view inside = text.substr(start + 1, text.size() - start - 2);
    const bool isParted = name.size() < start;
    if (!name.empty() && !isIndex(inside) && (isParted || open == '[')) {
      return {utf8FromBytes(name), unitOf(text.substr(start)), true};
    }
  }
  return {utf8FromBytes(text), "", !text.empty()};
}

void nameColumns(CsvLayout& layout) {
  std::set<std::string> names;
  // How far each repeated name has been counted: trying from 2 again at every one of n equal
  // names would take n^2 tries.
  std::map<std::string, std::size_t> lastNumbers;
  for (std::size_t i = 0; i < layout.columns.size(); ++i) {
    CsvColumn& column = layout.columns[i];
    if (!column.isNamed) column.name = "column " + std::to_string(i + 1);
    if (names.insert(column.name).second) continue;
    const std::string repeated = column.name;
    std::size_t& last = lastNumbers.try_emplace(repeated, 1).first->second;
    do {
      column.name = repeated + " (" + std::to_string(++last) + ")";
    } while (!names.insert(column.name).second);
    layout.notices.push_back("the name \"" + repeated + "\" comes again in column " +
                             std::to_string(i + 1) + ", which is called \"" + column.name +
                             "\"");
  }
}

void findColumns(CsvLayout& layout, const Sample& sample) {
  const Sample data(sample.begin() + std::min(layout.leadingRecords(), sample.size()),
                    sample.end());
  std::size_t count = commonLength(data.empty() ? sample : data);
  if (layout.hasHeader && !sample.empty()) {
    const Record& header = sample.front();
    // A delimiter may end the line of the header only.
    const bool endsWithDelimiter = header.size() == count + 1 && trimmed(header.back()).empty();
    if (!endsWithDelimiter) count = header.size();
    for (std::size_t i = 0; i < count; ++i) layout.columns.push_back(columnOf(header[i]));
  } else {
    layout.columns.assign(count, {"", "", false});
  }
  const std::size_t unitRecord = layout.hasHeader ? 1 : 0;
  if (layout.hasUnitRow && unitRecord < sample.size()) {
    const Record& units = sample[unitRecord];
    for (std::size_t i = 0; i < std::min(count, units.size()); ++i) {
      if (layout.columns[i].unit.empty()) layout.columns[i].unit = unitOf(units[i]);
    }
  }
  nameColumns(layout);
}

std::optional<std::size_t> columnCalled(const CsvLayout& layout, std::string_view name) {
  for (std::size_t i = 0; i < layout.columns.size(); ++i) {
    if (layout.columns[i].name == name) return i;
  }
  for (std::size_t i = 0; i < layout.columns.size(); ++i) {
    if (lowerCase(layout.columns[i].name) == lowerCase(name)) return i;
  }
  return std::nullopt;
}

std::size_t findTimeColumn(const CsvLayout& layout, const FileHead& head,
                           const ReadOptions& options) {
  if (options.timeColumn.empty()) {
    for (const char* name : {"time", "t", "zeit", "timestamp", "zeitstempel", "datetime",
                             "date", "datum", "seconds", "sec"}) {
      if (const auto column = columnCalled(layout, name)) return *column;
    }
    return 0;
  }
  if (const auto column = columnCalled(layout, columnOf(options.timeColumn).name))
    return *column;
  const auto position = text::parseInteger(options.timeColumn);
  const auto count = static_cast<long long>(layout.columns.size());
  if (position && *position >= 1 && *position <= count)
    return static_cast<std::size_t>(*position - 1);
  std::string names;
  for (const CsvColumn& column :
       std::span(layout.columns).first(std::min(layout.columns.size(), kNamesInMessage))) {
    names += (names.empty() ? "" : ", ") + inQuotes(column.name);
  }
  if (layout.columns.size() > kNamesInMessage) names += ", ...";
  raiseOption(head, "time-column=" + options.timeColumn,
              "its " + std::to_string(count) + " columns are: " + names);
}

}  // namespace

CsvLayout findCsvLayout(const FileHead& head, const ReadOptions& options) {
  checkOptions(head, options);
  const Dialect dialect = findDialect(head, options);
  CsvLayout layout;
  layout.delimiter = dialect.delimiter;
  layout.decimal = dialect.decimal;
  if (dialect.sample.empty()) raiseBrokenCsv(head.name, 1, "it has no whole record");
  layout.hasHeader = findHeader(dialect.sample, dialect.decimal, options.header);
  layout.hasUnitRow =
      findUnitRow(dialect.sample, layout.hasHeader, dialect.decimal, options.unitRow);
  findColumns(layout, dialect.sample);
  layout.timeColumn = findTimeColumn(layout, head, options);
  return layout;
}

bool looksLikeCsv(const FileHead& head, const ReadOptions& options) {
  if (head.bytes.find('\0') != std::string::npos) return false;
  const std::string name = lowerCase(head.name);
  if (name.ends_with(".csv") || name.ends_with(".tsv")) return true;
  constexpr double kLeastQuality = 0.5;
  const Dialect dialect = findDialect(head, options);
  return dialect.sample.size() > 1 && dialect.fit.hasColumns &&
         dialect.fit.quality >= kLeastQuality;
}

void raiseBrokenCsv(const std::string& name, std::uint64_t line, const std::string& reason) {
  kodiag::raise({"VELA:vela", "BrokenCsvFile"},
                {{"FileName", name}, {"Line", std::to_string(line)}, {"Reason", reason}});
}

}  // namespace formats
