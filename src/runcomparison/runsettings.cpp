#include "runcomparison/runsettings.h"

#include <variant>

namespace vela {
namespace {

// Names of the metadata entries of a comparison run. // Stored; never change.
const char* const kTimeTol = "ComparisonTimeTolerance";
const char* const kTimeMatch = "ComparisonTimeMatch";
const char* const kStep = "ComparisonStep";
const char* const kCount = "ComparisonCount";
const char* const kStrictSpan = "ComparisonStrictSpan";
const char* const kAllowsExtra = "ComparisonAllowsExtra";

bool setsGrid(const RunComparisonOptions& options) {
  return options.step || options.count;
}

std::optional<comparison::Alignment> chosenAlignment(const RunComparisonOptions& options) {
  if (options.alignment || !setsGrid(options)) return options.alignment;
  return comparison::Alignment::uniform;
}

/// The options every row has in common.
comparison::Options commonOptions(const RunComparisonOptions& options) {
  comparison::Options common;
  common.timeTol = options.timeTol.value_or(0);
  common.timeMatch = options.timeMatch.value_or(common.timeMatch);
  common.step = options.step;
  common.count = options.count;
  common.strictSpan = options.strictSpan;
  common.alignment = chosenAlignment(options).value_or(common.alignment);
  return common;
}

std::optional<double> storedNumber(const Set& run, const char* name) {
  const metadata::Value entry = run.getMetaData(name);
  const double* number = std::get_if<double>(&entry.value);
  return number ? std::optional(*number) : std::nullopt;
}

void storeNumber(Set& run, const char* name, std::optional<double> number) {
  run.setMetaData(name, number ? kodd::EntryValue(*number) : kodd::EntryValue());
}

}  // namespace

void checkSettings(const RunComparisonOptions& options) {
  comparison::Options trial = commonOptions(options);
  trial.absTol = options.absTol.value_or(0);
  trial.relTol = options.relTol.value_or(0);
  comparison::check(trial);
  trial.absTol = options.defaultAbsTol;
  trial.relTol = options.defaultRelTol;
  comparison::check(trial);
}

void applySettings(const Signal& signal, const RunComparisonOptions& options,
                   ComparedSignal& row) {
  row.options = commonOptions(options);
  row.alignmentOrigin = SettingOrigin::option;
  if (!chosenAlignment(options)) {
    row.options.alignment = comparison::alignmentFromText(signal.getTimeAlignmentMethod());
    row.alignmentOrigin = SettingOrigin::signal;
  }
  const double abs = signal.getAbsTol(), rel = signal.getRelTol();
  if (options.absTol || options.relTol) {
    row.options.absTol = options.absTol.value_or(0);
    row.options.relTol = options.relTol.value_or(0);
    row.toleranceOrigin = SettingOrigin::option;
  } else if (abs != 0 || rel != 0) {
    row.options.absTol = abs;
    row.options.relTol = rel;
    row.toleranceOrigin = SettingOrigin::signal;
  } else {
    row.options.absTol = options.defaultAbsTol;
    row.options.relTol = options.defaultRelTol;
    row.toleranceOrigin = SettingOrigin::runDefault;
  }
}

void storeSettings(Signal& comparison, const ComparedSignal& row) {
  comparison.setAbsTol(row.options.absTol);
  comparison.setRelTol(row.options.relTol);
  comparison.setTimeAlignmentMethod(comparison::textOf(row.options.alignment));
}

void storeRunSettings(Set& run, const RunComparisonOptions& options) {
  storeNumber(run, kTimeTol, options.timeTol);
  storeNumber(run, kTimeMatch, options.timeMatch);
  storeNumber(run, kStep, options.step);
  // At most 10^9, which a double holds.
  storeNumber(
      run, kCount,
      options.count ? std::optional(static_cast<double>(*options.count)) : std::nullopt);
  storeNumber(run, kStrictSpan,
              options.strictSpan ? std::optional(*options.strictSpan ? 1. : 0.) : std::nullopt);
  storeNumber(run, kAllowsExtra, options.extraIsFailure ? std::nullopt : std::optional(1.));
}

RunComparisonOptions withStoredSettings(RunComparisonOptions options, const Set& run) {
  if (!options.timeTol) options.timeTol = storedNumber(run, kTimeTol);
  if (!options.strictSpan) {
    const auto stored = storedNumber(run, kStrictSpan);
    if (stored) options.strictSpan = *stored != 0;
  }
  // Another alignment has no use for the stored grid.
  if (!setsGrid(options) && options.alignment.value_or(comparison::Alignment::uniform) ==
                                comparison::Alignment::uniform) {
    options.step = storedNumber(run, kStep);
    const auto count = storedNumber(run, kCount);
    if (count) options.count = static_cast<std::size_t>(*count);
  }
  if (!options.timeMatch) options.timeMatch = storedNumber(run, kTimeMatch);
  if (storedNumber(run, kAllowsExtra)) options.extraIsFailure = false;
  options.defaultAbsTol = options.defaultRelTol = 0;
  checkSettings(options);
  return options;
}

}  // namespace vela
