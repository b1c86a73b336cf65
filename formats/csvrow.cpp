#include "formats/csvrow.h"

#include <cmath>
#include <map>
#include <utility>

#include "formats/encoding.h"
#include "text/numbers.h"

namespace formats {
namespace {

bool belongs(CellKind kind, ColumnPlan::Family family) {
  switch (kind) {
    case CellKind::kMissing:
      return true;
    case CellKind::kBoolean:
      return family == ColumnPlan::Family::kBooleans;
    case CellKind::kInteger:
    case CellKind::kReal:
      return family == ColumnPlan::Family::kNumbers;
    case CellKind::kText:
      break;
  }
  return false;
}

const std::map<std::string, TimeScale, std::less<>>& timeScales() {
  static const std::map<std::string, TimeScale, std::less<>> kScales = {
      {"", {1, 1}},          {"s", {1, 1}},    {"sec", {1, 1}},   {"second", {1, 1}},
      {"seconds", {1, 1}},   {"ms", {1, 1e3}}, {"us", {1, 1e6}},  {"\u00B5s", {1, 1e6}},
      {"\u03BCs", {1, 1e6}}, {"ns", {1, 1e9}}, {"ps", {1, 1e12}}, {"min", {60, 1}},
      {"h", {3600, 1}},
  };
  return kScales;
}

}  // namespace

void ColumnCounts::add(CellKind kind) {
  switch (kind) {
    case CellKind::kMissing:
      ++missing;
      break;
    case CellKind::kBoolean:
      ++booleans;
      break;
    case CellKind::kInteger:
      ++integers;
      break;
    case CellKind::kReal:
      ++reals;
      break;
    case CellKind::kText:
      ++texts;
      break;
  }
}

ColumnPlan ColumnCounts::plan() const {
  const std::uint64_t numbers = integers + reals;
  if (texts > numbers && texts > booleans)
    return {ColumnPlan::Family::kSkipped, ValueType::kDouble};
  if (booleans > numbers) {
    return {ColumnPlan::Family::kBooleans, missing ? ValueType::kDouble : ValueType::kBoolean};
  }
  const bool isWhole = reals == 0 && missing == 0;
  return {ColumnPlan::Family::kNumbers, isWhole ? ValueType::kInt64 : ValueType::kDouble};
}

AxisInfo axisOf(const CsvColumn& column) {
  const std::string name = column.isNamed ? column.name : "time";
  if (timeScales().contains(column.unit)) return {AxisKind::kTime, name, "s"};
  if (lowerCase(column.unit) == "hz") return {AxisKind::kFrequency, name, "Hz"};
  return {AxisKind::kSweep, name, column.unit};
}

TimeScale timeScaleOf(std::string_view unit) {
  const auto found = timeScales().find(unit);
  return found == timeScales().end() ? TimeScale{} : found->second;
}

bool fitsTable(const std::vector<std::string_view>& fields, std::size_t columnCount) {
  if (fields.size() == columnCount) return true;
  return fields.size() == columnCount + 1 && trimmed(fields.back()).empty();
}

CsvRowReader::CsvRowReader(const CsvPlan& plan)
    : plan_(plan), scale_(timeScaleOf(plan.layout.columns[plan.layout.timeColumn].unit)) {}

CsvRowReader::Verdict CsvRowReader::verdict(Verdict verdict, std::string reason) {
  reason_ = std::move(reason);
  return verdict;
}

CsvRowReader::Verdict CsvRowReader::read(const std::vector<std::string_view>& fields) {
  const std::size_t count = plan_.layout.columns.size();
  if (!fitsTable(fields, count)) {
    return verdict(Verdict::kUseless, std::to_string(fields.size()) + " fields where " +
                                          std::to_string(count) + " are expected");
  }
  if (const Verdict cells = readCells(fields); cells != Verdict::kGood) return cells;
  const std::string_view field = trimmed(fields[plan_.layout.timeColumn]);
  double time = 0;
  const Verdict read =
      plan_.hasTimestamps ? readTimestamp(field, time) : readNumber(field, time);
  if (read != Verdict::kGood) return read;
  if (hasTime_ && time < time_) {
    return verdict(Verdict::kBrokenTime, "the time falls from " + text::shortest(time_) +
                                             " to " + text::shortest(time) + "; is column " +
                                             std::to_string(plan_.layout.timeColumn + 1) +
                                             " the time column?");
  }
  hasTime_ = true;
  time_ = time;
  return Verdict::kGood;
}

CsvRowReader::Verdict CsvRowReader::readCells(const std::vector<std::string_view>& fields) {
  cells_.clear();
  for (std::size_t i = 0; i < plan_.columns.size(); ++i) {
    cells_.push_back(readCell(fields[i], plan_.layout.decimal));
    const ColumnPlan::Family family = plan_.columns[i].family;
    if (i == plan_.layout.timeColumn || family == ColumnPlan::Family::kSkipped) continue;
    if (belongs(cells_.back().kind, family)) continue;
    return verdict(Verdict::kUseless,
                   inQuotes(fields[i]) + " in column " + std::to_string(i + 1) +
                       (family == ColumnPlan::Family::kBooleans ? " is neither true nor false"
                                                                : " is no number"));
  }
  return Verdict::kGood;
}

CsvRowReader::Verdict CsvRowReader::readNumber(std::string_view field, double& time) {
  const Cell& cell = cells_[plan_.layout.timeColumn];
  if (cell.kind == CellKind::kText || cell.kind == CellKind::kBoolean) {
    return verdict(Verdict::kUseless, inQuotes(field) + " is no time");
  }
  time = cell.real * scale_.numerator / scale_.denominator;
  if (std::isfinite(time)) return Verdict::kGood;
  return verdict(Verdict::kBrokenTime,
                 field.empty() ? "the time is missing" : inQuotes(field) + " cannot be a time");
}

CsvRowReader::Verdict CsvRowReader::readTimestamp(std::string_view field, double& time) {
  if (cells_[plan_.layout.timeColumn].kind == CellKind::kMissing) {
    return verdict(Verdict::kBrokenTime, "the time stamp is missing");
  }
  const auto instant = parseIsoTimestamp(field);
  if (!instant) return verdict(Verdict::kUseless, inQuotes(field) + " is no time stamp");
  if (start_ && start_->zoned != instant->zoned) {
    return verdict(Verdict::kUseless, inQuotes(field) +
                                          (instant->zoned ? " has a zone" : " has no zone") +
                                          ", unlike the first time stamp");
  }
  if (!start_) start_ = instant;
  time = secondsBetween(*start_, *instant);
  return Verdict::kGood;
}

}  // namespace formats
