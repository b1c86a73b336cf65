// Compares two runs signal by signal, and stores the comparison as a run.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "comparison/options.h"
#include "comparison/report.h"

namespace vela {

class ObjectManager;
class Set;

/// What became of a signal of either run.
enum class ComparisonOutcome {
  within,
  outside,
  missing,        ///< the compared run has no such signal
  extra,          ///< the baseline has no such signal
  unitMismatch,   ///< not compared
  typeMismatch,   ///< one of the two carries no numbers, or only one is that enumeration
  timeMismatch,   ///< no common time; or equal where both are, but one covers less time
  empty,          ///< one of the two has no samples
  notComparable,  ///< its settings or samples make no sense; `ComparedSignal::reason` says why
};

/// "within", "outside", "missing", "extra", "unit mismatch", "type mismatch", "time mismatch",
/// "empty", "not comparable"
std::string textOf(ComparisonOutcome outcome);

/// Where an effective setting came from.
enum class SettingOrigin { option, signal, runDefault };

/// "option", "signal", "default"
std::string textOf(SettingOrigin origin);

/// What is set here holds for all signals and goes before what they say themselves.
struct RunComparisonOptions {
  std::optional<double> absTol;   ///< else the baseline signal's own, else the default below
  std::optional<double> relTol;   ///< the same
  std::optional<double> timeTol;  ///< seconds; else 0
  std::optional<comparison::Alignment> alignment;  ///< else the baseline signal's own
  std::optional<double> step;                      ///< of the uniform alignment
  std::optional<std::size_t> count;                ///< of the uniform alignment
  std::optional<bool> strictSpan;
  std::optional<double> timeMatch;  ///< else as comparison::Options has it
  /// For signals whose own absolute and relative tolerance are both 0.
  double defaultAbsTol = 0;
  double defaultRelTol = 0;
  /// Only signals whose name or path fits this shell pattern; empty: all.
  std::string signals;
  /// Whether a signal that only the compared run has makes the runs differ.
  bool extraIsFailure = true;
  /// Of the stored run; empty: made from the names of the two.
  std::wstring name;
  /// Told before each signal how many of how many are done. May be empty.
  std::function<void(std::size_t done, std::size_t total)> progress;
};

/// One line of the table.
struct ComparedSignal {
  std::wstring name;
  std::wstring path;  ///< the names of the signals above it and its own, joined by "."
  int baseline = 0;   ///< IDs of the signals compared; 0 where there is none
  int compareTo = 0;
  int comparison = 0;  ///< the stored comparison signal; 0 when nothing was stored
  ComparisonOutcome outcome = ComparisonOutcome::empty;
  std::string reason;  ///< why it is not comparable, UTF-8; else empty
  /// What was used; `absTol` and `relTol` come from the same place.
  comparison::Options options;
  SettingOrigin toleranceOrigin = SettingOrigin::runDefault;
  SettingOrigin alignmentOrigin = SettingOrigin::signal;
  comparison::Report report;
};

struct RunComparison {
  int run = 0;  ///< the stored comparison run; 0 when nothing was stored
  int baselineRun = 0;
  int compareToRun = 0;
  /// Whether at least one signal was compared and none differs.
  bool within = false;
  /// In the order of the baseline's signals, then the extra ones.
  std::vector<ComparedSignal> signals;
  bool extraIsFailure = true;

  /// Whether this signal makes the runs differ.
  bool isDifference(const ComparedSignal& signal) const;
  std::size_t count(ComparisonOutcome outcome) const;
  /// Whether there is a signal whose samples were compared.
  bool comparedAnything() const;
};

/// Compares the leaf signals of two runs. Leaves are paired by identifier, name, block path and
/// port, element and bus leaf, and the names above them; of several alike the first of one
/// with the first of the other.
///
/// A signal that cannot be compared has that as its outcome; the others are compared.
///
/// \throws "nexstore:nex:InvalidData" when a run is missing;
///         "nexstore:nex:InvalidSetting" for bad options, before anything is read
RunComparison compareRuns(ObjectManager& manager, int baselineRun, int compareToRun,
                          const RunComparisonOptions& options);

/// The same for runs that may be in two repositories.
RunComparison compareRuns(Set& baseline, Set& compareTo, const RunComparisonOptions& options);

/// The same, stored as a comparison run in one unit of work: a family a row, with copies of
/// the two signals, so that it can be checked again when the runs are gone. Where nothing
/// could be compared nothing is stored.
RunComparison compareAndStoreRuns(ObjectManager& manager, int baselineRun, int compareToRun,
                                  const RunComparisonOptions& options);

/// Repeats a stored comparison on the signals it keeps, with the settings it was made with
/// where `options` sets none. Differences and tolerances are replaced and keep their plots.
/// `signals`, `name` and the defaults are not looked at.
///
/// \throws "nexstore:nex:InvalidData" when the run is no comparison
RunComparison recheckRun(ObjectManager& manager, int comparisonRun,
                         const RunComparisonOptions& options);
/// The same, only looked at: what is stored stays as it is.
RunComparison lookAgain(ObjectManager& manager, int comparisonRun,
                        const RunComparisonOptions& options);

}  // namespace vela
