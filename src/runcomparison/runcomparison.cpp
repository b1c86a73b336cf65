#include "runcomparison/runcomparison.h"

#include <algorithm>

#include "comparison/compare.h"
#include "host/interrupt.h"
#include "kodiag/catalog.h"
#include "kodiag/message.h"
#include "objects/datatypes.h"
#include "objects/set.h"
#include "objects/signalcomparison.h"
#include "objects/strings.h"
#include "runcomparison/pairing.h"
#include "runcomparison/runsettings.h"
#include "runcomparison/signalseries.h"
#include "text/utf8.h"

namespace vela {
namespace {

using Outcome = ComparisonOutcome;
using SignalPtr = boost::shared_ptr<Signal>;
using SourceType = Signal::SourceType;

const std::wstring kPairedBy = L"name and path";

[[noreturn]] void refuse(const std::string& operation, const std::string& reason,
                         std::vector<kodiag::Message> causes = {}) {
  kodiag::raise({"nexstore:nex", "InvalidData"}, {{"Operation", operation}, {"Reason", reason}},
                std::move(causes));
}

boost::shared_ptr<Set> runOf(ObjectManager& manager, int id) {
  boost::shared_ptr<Set> run;
  if (!Set::lookupSet(id, run, manager))
    refuse("Comparing runs", "there is no run " + std::to_string(id));
  return run;
}

Outcome outcomeOf(const comparison::Report& report) {
  switch (report.status) {
    case comparison::Status::unitsDiffer:
      return Outcome::unitMismatch;
    case comparison::Status::noSamples:
      return Outcome::empty;
    case comparison::Status::noCommonTime:
      return Outcome::timeMismatch;
    case comparison::Status::spansDiffer:
      return report.failedRows > 0 ? Outcome::outside : Outcome::timeMismatch;
    case comparison::Status::compared:
      break;
  }
  return report.within ? Outcome::within : Outcome::outside;
}

/// Compares the two and fills in outcome and report.
void judge(const SignalPair& pair, const comparison::Sink& sink, ComparedSignal& result) {
  if (!pair.baseline || !pair.compareTo) {
    result.outcome = pair.baseline    ? Outcome::missing
                     : pair.compareTo ? Outcome::extra
                                      : Outcome::empty;
    return;
  }
  for (const SignalPtr& signal : {pair.baseline, pair.compareTo})
    if (!Signal::isLeafSignal(signal->getObjectReference().getObjectManager(), signal->getID()))
      refuse("Comparing", "signal " + std::to_string(signal->getID()) + " consists of parts");
  if (pair.baseline->getExtent().samples == 0 || pair.compareTo->getExtent().samples == 0) {
    result.outcome = Outcome::empty;
    result.report.status = comparison::Status::noSamples;
    return;
  }
  const auto baseline = seriesOf(*pair.baseline);
  const auto compareTo = seriesOf(*pair.compareTo);
  if (!baseline || !compareTo || !haveSameKind(*pair.baseline, *pair.compareTo)) {
    result.outcome = Outcome::typeMismatch;
    result.report.typesDiffer = true;
    return;
  }
  result.report = comparison::compare(*baseline, *compareTo, result.options, sink);
  result.outcome = outcomeOf(result.report);
}

ComparedSignal rowFor(const SignalPair& pair) {
  ComparedSignal row;
  row.name = pair.name;
  row.path = pair.path;
  if (pair.baseline) row.baseline = pair.baseline->getID();
  if (pair.compareTo) row.compareTo = pair.compareTo->getID();
  return row;
}

/// Whether a failure lies in what one signal is or says of itself, and not in the repository.
bool concernsOneSignal(const kodiag::Message& message) {
  const std::string id = message.id.str();
  return id == "nexstore:nex:InvalidSetting" || id == "nexstore:nex:InvalidData" ||
         id == "nexstore:nex:InvalidDimensions";
}

/// Does the work that decides about a row; what makes its signals incomparable becomes its
/// outcome.
template <class Work>
void decide(const SignalPair& pair, ComparedSignal& row, const Work& work) {
  try {
    work();
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    const kodiag::Message& cause = error.innermost();
    if (!concernsOneSignal(cause)) throw;
    if (!pair.baseline || !pair.compareTo) return judge(pair, {}, row);
    row.outcome = Outcome::notComparable;
    row.reason = cause.text();
    row.report = {};
  }
}

/// Does the work for one pair; a failure names it.
template <class Work>
auto forPair(const SignalPair& pair, const Work& work) {
  try {
    return work();
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    if (host::isInterruption(error)) throw;
    const kodiag::Message& cause = error.innermost();
    refuse("Comparing signal \"" + text::toUtf8(pair.path) + "\"", cause.text(), {cause});
  }
}

/// The difference and tolerance signals of a comparison, made with their first samples.
class Results {
 public:
  Results(Signal& compareTo, const std::wstring& name) : compareTo_(compareTo), name_(name) {}

  void write(const comparison::Rows& rows) {
    if (!difference_) {
      difference_ = make(SourceType::Difference);
      tolerance_ = make(SourceType::Tolerance);
    }
    append(*difference_, rows.times, rows.difference);
    append(*tolerance_, rows.times, rows.tolerance);
  }
  /// After the unit of work they were written in was undone.
  void forget() { difference_ = tolerance_ = nullptr; }
  /// Puts them in place of those the family has.
  void publish(const SignalPtr& comparison, const ComparisonFamily& family) {
    ObjectManager& manager = comparison->getObjectReference().getObjectManager();
    if (difference_) {
      giveTo(*comparison);
      replaceResults(comparison, family.differences, difference_);
      replaceResults(comparison, family.tolerances, tolerance_);
      return;
    }
    for (const std::vector<int>& old : {family.differences, family.tolerances})
      for (const int id : old) Signal::getSignalFromID(manager, id)->remove();
  }

 private:
  SignalPtr make(SourceType type) {
    const SignalPtr result = newResult(compareTo_, type, name_);
    ObjectManager& manager = result->getObjectReference().getObjectManager();
    long long handle = 0;
    DataTypeUtil::getBuiltInDataTypeHandle(dtypeDouble, manager, handle);
    bool found = false;
    // IDs of stored objects are 32-bit numbers.
    result->setDataType(
        *manager.findObject(static_cast<int>(handle), strings::DataType, found));
    return result;
  }

  /// Whoever repeats a comparison, its results stay with the session that made it.
  void giveTo(const Signal& comparison) {
    const ObjectRef& reference = comparison.getObjectReference();
    const long long owner = reference.getPropertyInt64(strings::InstanceID);
    if (owner == reference.getObjectManager().getInstanceID()) return;
    difference_->setInstanceID(owner);
    tolerance_->setInstanceID(owner);
  }

  static void append(Signal& signal, std::span<const double> times,
                     std::span<const double> values) {
    // A block of rows is far smaller than an unsigned.
    signal.addData(values.data(), times.data(), dtypeDouble, nullptr,
                   static_cast<unsigned>(times.size()), 0, nullptr);
  }

  Signal& compareTo_;
  std::wstring name_;
  SignalPtr difference_;
  SignalPtr tolerance_;
};

/// Compares and stores what came out below a comparison signal that has its inputs.
void judgeAndStore(const SignalPair& pair, const Signal& settingsFrom,
                   const SignalPtr& comparison, const RunComparisonOptions& options,
                   ComparedSignal& row) {
  const bool isComplete = pair.baseline && pair.compareTo;
  Signal& described = pair.compareTo ? *pair.compareTo : *comparison;
  Results results(described, comparison->getName());
  const auto sink = [&results](const comparison::Rows& rows) { results.write(rows); };
  decide(pair, row, [&] {
    comparison->getObjectReference().getObjectManager().inTransaction([&] {
      applySettings(settingsFrom, options, row);
      judge(pair, isComplete ? comparison::Sink(sink) : comparison::Sink(), row);
    });
  });
  const bool isComparable = row.outcome != Outcome::notComparable;
  if (!isComparable) results.forget();
  results.publish(comparison, familyOf(*comparison));
  row.comparison = comparison->getID();
  comparison->setIsWithinTol(row.outcome == Outcome::within);
  if (isComparable) storeSettings(*comparison, row);
}

/// Compares without storing anything.
void look(const SignalPair& pair, const Signal& settingsFrom,
          const RunComparisonOptions& options, ComparedSignal& row) {
  decide(pair, row, [&] {
    applySettings(settingsFrom, options, row);
    judge(pair, {}, row);
  });
}

ComparedSignal lookAt(const SignalPair& pair, const RunComparisonOptions& options) {
  return forPair(pair, [&] {
    ComparedSignal row = rowFor(pair);
    look(pair, pair.baseline ? *pair.baseline : *pair.compareTo, options, row);
    return row;
  });
}

ComparedSignal store(const SignalPair& pair, Set& run, const RunComparisonOptions& options) {
  return forPair(pair, [&] {
    Signal& first = pair.baseline ? *pair.baseline : *pair.compareTo;
    ComparedSignal row = rowFor(pair);
    const SignalPtr comparison = addComparison(run, first, false, kPairedBy);
    comparison->setName(pair.label);
    // The label has the subscripts.
    comparison->setChannel({});
    for (const auto& [input, type] : {std::pair(pair.baseline, SourceType::Baseline),
                                      std::pair(pair.compareTo, SourceType::CompareTo)})
      if (input) addInput(comparison, *input, type, pair.label);
    judgeAndStore(pair, first, comparison, options, row);
    return row;
  });
}

/// The inputs a stored comparison keeps.
SignalPair inputsOf(const Signal& comparison) {
  ObjectManager& manager = comparison.getObjectReference().getObjectManager();
  const ComparisonFamily family = familyOf(comparison);
  const auto input = [&](int id) {
    return SignalPtr(id == 0 ? nullptr : Signal::getSignalFromID(manager, id).release());
  };
  SignalPair pair{input(family.baseline), input(family.compareTo), {}, {}, {}};
  describe(comparison, pair);
  return pair;
}

ComparedSignal recheck(const SignalPtr& comparison, const RunComparisonOptions& options) {
  const SignalPair pair = inputsOf(*comparison);
  return forPair(pair, [&] {
    ComparedSignal row = rowFor(pair);
    judgeAndStore(pair, *comparison, comparison, options, row);
    return row;
  });
}

ComparedSignal lookAgainAt(const SignalPtr& comparison, const RunComparisonOptions& options) {
  const SignalPair pair = inputsOf(*comparison);
  return forPair(pair, [&] {
    ComparedSignal row = rowFor(pair);
    row.comparison = comparison->getID();
    look(pair, *comparison, options, row);
    return row;
  });
}

/// Adds the row of every item, in their order.
template <class Item, class RowOf>
void addRows(const std::vector<Item>& items, const RunComparisonOptions& options,
             RunComparison& comparison, const RowOf& rowOf) {
  for (const Item& item : items) {
    if (options.progress) options.progress(comparison.signals.size(), items.size());
    comparison.signals.push_back(rowOf(item));
  }
}

void conclude(RunComparison& comparison, bool extraIsFailure) {
  comparison.extraIsFailure = extraIsFailure;
  comparison.within = comparison.count(Outcome::within) > 0 &&
                      std::ranges::none_of(comparison.signals, [&](const ComparedSignal& row) {
                        return comparison.isDifference(row);
                      });
}

std::wstring nameFor(const Set& baseline, const Set& compareTo,
                     const RunComparisonOptions& options) {
  if (!options.name.empty()) return options.name;
  return text::toWide(
      kodiag::catalogText({"nexstore:nex", "ComparisonRunName"},
                          {{"BaselineName", text::toUtf8(baseline.getRunDisplayName())},
                           {"CompareToName", text::toUtf8(compareTo.getRunDisplayName())}}));
}

Set newComparisonRun(ObjectManager& manager, const Set& baseline, const Set& compareTo,
                     const RunComparisonOptions& options) {
  Set run(manager, true);
  run.setName(nameFor(baseline, compareTo, options));
  run.setApplication(Set::Application::VELAComparison);
  run.setBaselineSetID(baseline.getID());
  run.setCompareToSetID(compareTo.getID());
  storeRunSettings(run, options);
  return run;
}

/// A stored comparison run. \throws when the run is missing or no comparison
boost::shared_ptr<Set> comparisonRunOf(ObjectManager& manager, int id) {
  boost::shared_ptr<Set> run = runOf(manager, id);
  if (run->getApplication() != Set::Application::VELAComparison)
    refuse("Repeating a comparison", "run " + std::to_string(id) + " is no comparison");
  return run;
}

std::vector<SignalPtr> comparisonsOf(Set& run) {
  ObjectManager& manager = run.getObjectReference().getObjectManager();
  std::vector<SignalPtr> comparisons;
  for (const int id : run.getSignalIDs(Set::SignalQueryType::top)) {
    const SignalPtr signal(Signal::getSignalFromID(manager, id).release());
    if (signal->getSourceType() == SourceType::Comparison) comparisons.push_back(signal);
  }
  return comparisons;
}

template <class RowOf>
RunComparison repeated(Set& run, const RunComparisonOptions& options, const RowOf& rowOf) {
  RunComparison result{run.getID(), run.getBaselineSetID(), run.getCompareToSetID(), false, {},
                       true};
  addRows(comparisonsOf(run), options, result,
          [&](const SignalPtr& comparison) { return rowOf(comparison, options); });
  conclude(result, options.extraIsFailure);
  return result;
}

void discard(ObjectManager& manager, RunComparison& comparison) {
  Set::removeRuns(manager, {comparison.run});
  comparison.run = 0;
  for (ComparedSignal& row : comparison.signals) row.comparison = 0;
}

}  // namespace

std::string textOf(ComparisonOutcome outcome) {
  static const std::string texts[] = {"within",        "outside",       "missing",
                                      "extra",         "unit mismatch", "type mismatch",
                                      "time mismatch", "empty",         "not comparable"};
  return texts[static_cast<std::size_t>(outcome)];
}

std::string textOf(SettingOrigin origin) {
  static const std::string texts[] = {"option", "signal", "default"};
  return texts[static_cast<std::size_t>(origin)];
}

bool RunComparison::isDifference(const ComparedSignal& signal) const {
  if (signal.outcome == Outcome::extra) return extraIsFailure;
  return signal.outcome != Outcome::within;
}

std::size_t RunComparison::count(ComparisonOutcome outcome) const {
  return static_cast<std::size_t>(
      std::ranges::count(signals, outcome, &ComparedSignal::outcome));
}

bool RunComparison::comparedAnything() const {
  return std::ranges::any_of(signals,
                             [](const ComparedSignal& row) { return row.report.rows > 0; });
}

RunComparison compareRuns(Set& baseline, Set& compareTo, const RunComparisonOptions& options) {
  checkSettings(options);
  RunComparison result{0, baseline.getID(), compareTo.getID(), false, {}, true};
  baseline.getObjectReference().getObjectManager().inReadUnit([&] {
    compareTo.getObjectReference().getObjectManager().inReadUnit([&] {
      addRows(pairLeaves(baseline, compareTo, options.signals), options, result,
              [&](const SignalPair& pair) { return lookAt(pair, options); });
    });
  });
  conclude(result, options.extraIsFailure);
  return result;
}

RunComparison compareRuns(ObjectManager& manager, int baselineRun, int compareToRun,
                          const RunComparisonOptions& options) {
  RunComparison result;
  manager.inReadUnit([&] {
    const auto baseline = runOf(manager, baselineRun), compareTo = runOf(manager, compareToRun);
    result = compareRuns(*baseline, *compareTo, options);
  });
  return result;
}

RunComparison compareAndStoreRuns(ObjectManager& manager, int baselineRun, int compareToRun,
                                  const RunComparisonOptions& options) {
  checkSettings(options);
  RunComparison result{0, baselineRun, compareToRun, false, {}, true};
  manager.inTransaction([&] {
    const auto baseline = runOf(manager, baselineRun), compareTo = runOf(manager, compareToRun);
    const std::vector<SignalPair> pairs = pairLeaves(*baseline, *compareTo, options.signals);
    Set run = newComparisonRun(manager, *baseline, *compareTo, options);
    result.run = run.getID();
    addRows(pairs, options, result,
            [&](const SignalPair& pair) { return store(pair, run, options); });
    if (!result.comparedAnything()) discard(manager, result);
  });
  conclude(result, options.extraIsFailure);
  return result;
}

RunComparison recheckRun(ObjectManager& manager, int comparisonRun,
                         const RunComparisonOptions& given) {
  checkSettings(given);
  RunComparison result;
  manager.inTransaction([&] {
    const auto run = comparisonRunOf(manager, comparisonRun);
    const RunComparisonOptions options = withStoredSettings(given, *run);
    result = repeated(*run, options, recheck);
    storeRunSettings(*run, options);
  });
  return result;
}

RunComparison lookAgain(ObjectManager& manager, int comparisonRun,
                        const RunComparisonOptions& given) {
  checkSettings(given);
  RunComparison result;
  manager.inReadUnit([&] {
    const auto run = comparisonRunOf(manager, comparisonRun);
    result = repeated(*run, withStoredSettings(given, *run), lookAgainAt);
  });
  return result;
}

}  // namespace vela
