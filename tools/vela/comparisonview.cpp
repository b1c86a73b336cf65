#include "tools/vela/comparisonview.h"

#include <array>
#include <cstdio>

#include "text/numbers.h"
#include "text/printable.h"
#include "text/utf8.h"
#include "tools/vela/table.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

using Outcome = ComparisonOutcome;

constexpr std::array kOutcomes = {
    Outcome::within,       Outcome::outside,      Outcome::missing,
    Outcome::extra,        Outcome::unitMismatch, Outcome::typeMismatch,
    Outcome::timeMismatch, Outcome::empty,        Outcome::notComparable};

// Whole digits of a difference say nothing: it is the last digits of two numbers.
std::string rounded(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", value);
  return text;
}

bool wasCompared(const ComparedSignal& row) {
  return row.report.rows > 0;
}

// A row without a difference that fails is one with a missing value.
bool onlyMissingValuesDiffer(const comparison::Report& report) {
  return report.failedRows > 0 && report.maxDifference == 0;
}

std::string largestDifference(const comparison::Report& report) {
  return onlyMissingValuesDiffer(report) ? "NaN" : rounded(report.maxDifference);
}

std::string timeOfLargestDifference(const comparison::Report& report) {
  return text::shortest(onlyMissingValuesDiffer(report) ? report.firstFailingTime.value_or(0)
                                                        : report.timeOfMaxDifference);
}

std::string toleranceText(const comparison::Options& options) {
  std::string text;
  const auto add = [&text](const char* name, double value) {
    if (value != 0) text += (text.empty() ? "" : ", ") + (name + text::shortest(value));
  };
  add("abs ", options.absTol);
  add("rel ", options.relTol);
  add("time ", options.timeTol);
  return text.empty() ? "exact" : text;
}

std::string verdictOf(const RunComparison& comparison) {
  if (!comparison.comparedAnything()) return "nothing compared";
  return comparison.within ? "within" : "outside";
}

Json idOrNull(int id) {
  return id == 0 ? Json() : Json(id);
}

Json jsonOf(const ComparedSignal& row) {
  const comparison::Report& report = row.report;
  return {{"name", text::toUtf8(row.name)},
          {"path", text::toUtf8(row.path)},
          {"outcome", textOf(row.outcome)},
          {"reason", row.reason.empty() ? Json() : Json(row.reason)},
          {"baseline", idOrNull(row.baseline)},
          {"compared", idOrNull(row.compareTo)},
          {"comparison", idOrNull(row.comparison)},
          {"rows", report.rows},
          {"failedRows", report.failedRows},
          {"firstFailingTime",
           report.firstFailingTime ? jsonNumber(*report.firstFailingTime) : Json()},
          {"maxDifference", wasCompared(row) ? jsonNumber(report.maxDifference) : Json()},
          {"timeOfMaxDifference",
           wasCompared(row) ? jsonNumber(report.timeOfMaxDifference) : Json()},
          {"rmsDifference", wasCompared(row) ? jsonNumber(report.rms) : Json()},
          {"absTol", row.options.absTol},
          {"relTol", row.options.relTol},
          {"timeTol", row.options.timeTol},
          {"toleranceFrom", textOf(row.toleranceOrigin)},
          {"alignment", comparison::textOf(row.options.alignment)},
          {"alignmentFrom", textOf(row.alignmentOrigin)}};
}

}  // namespace

std::string tableOf(const ShownComparison& shown) {
  Table table({{"SIGNAL"},
               {"OUTCOME"},
               {"MAX DIFFERENCE", Table::Align::right},
               {labelled("AT", shown.axisUnit), Table::Align::right},
               {"TOLERANCE"},
               {"FROM"}});
  for (const ComparedSignal& row : shown.comparison.signals) {
    const bool compared = wasCompared(row);
    table.addRow({text::toUtf8(row.path), textOf(row.outcome),
                  compared ? largestDifference(row.report) : "",
                  compared ? timeOfLargestDifference(row.report) : "",
                  compared ? toleranceText(row.options) : "",
                  compared ? textOf(row.toleranceOrigin) : ""});
  }
  std::string reasons;
  for (const ComparedSignal& row : shown.comparison.signals) {
    if (row.outcome != Outcome::notComparable) continue;
    reasons += text::printable(text::toUtf8(row.path) + ": " + row.reason) + "\n";
  }
  return table.str() + reasons;
}

Json jsonOf(const ShownComparison& shown) {
  const RunComparison& comparison = shown.comparison;
  Json counts = Json::object();
  for (const Outcome outcome : kOutcomes) counts[textOf(outcome)] = comparison.count(outcome);
  Json signals = Json::array();
  for (const ComparedSignal& row : comparison.signals) signals.push_back(jsonOf(row));
  return {{"verdict", verdictOf(comparison)}, {"comparison", idOrNull(comparison.run)},
          {"baseline", shown.baseline},       {"compared", shown.compared},
          {"axisUnit", shown.axisUnit},       {"counts", std::move(counts)},
          {"signals", std::move(signals)}};
}

std::string summaryOf(const ShownComparison& shown) {
  std::string text = verdictOf(shown.comparison);
  const char* separator = ": ";
  for (const Outcome outcome : kOutcomes) {
    const std::size_t count = shown.comparison.count(outcome);
    if (count == 0) continue;
    text += separator + std::to_string(count) + " " + textOf(outcome);
    separator = ", ";
  }
  return text;
}

std::string wordsOf(const ComparedSignal& row, const std::string& axisUnit) {
  if (row.outcome == Outcome::notComparable) return textOf(row.outcome) + ": " + row.reason;
  if (!wasCompared(row)) return textOf(row.outcome) + ", not compared";
  const comparison::Report& report = row.report;
  const std::string unit = axisUnit.empty() ? "" : " " + axisUnit;
  std::string words = "largest difference " + largestDifference(report) + " at " +
                      timeOfLargestDifference(report) + unit + ", tolerance " +
                      toleranceText(row.options) + " (" + textOf(row.toleranceOrigin) + "), " +
                      std::to_string(report.failedRows) + " of " +
                      counted(report.rows, "value") + " outside";
  if (report.firstFailingTime) {
    words += ", the first at " + text::shortest(*report.firstFailingTime) + unit;
  }
  return words;
}

}  // namespace vela::tool
