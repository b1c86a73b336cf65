#include "runcomparison/runcomparison.h"

#include <algorithm>

#include "comparison/compare.h"
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

bool haveSameKind(const Signal& baseline, const Signal& compareTo) {
  if (!baseline.isEnum() && !compareTo.isEnum()) return true;
  return baseline.getObjectReference().getPropertyInt32(strings::DataTypeID) ==
         compareTo.getObjectReference().getPropertyInt32(strings::DataTypeID);
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

/// A row with everything but its outcome.
ComparedSignal rowFor(const SignalPair& pair, const Signal& settingsFrom,
                      const RunComparisonOptions& options) {
  ComparedSignal row;
  row.name = pair.name;
  row.path = pair.path;
  if (pair.baseline) row.baseline = pair.baseline->getID();
  if (pair.compareTo) row.compareTo = pair.compareTo->getID();
  applySettings(settingsFrom, options, row);
  return row;
}

/// Does the work for one pair; a failure names it.
template <class Work>
auto forPair(const SignalPair& pair, const Work& work) {
  try {
    return work();
  } catch (const kodiag::except::ExceptionWithCauses& error) {
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
  /// Puts them in place of those the family has.
  void publish(const SignalPtr& comparison, const ComparisonFamily& family) {
    ObjectManager& manager = comparison->getObjectReference().getObjectManager();
    if (difference_) {
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
void judgeAndStore(const SignalPair& pair, const SignalPtr& comparison, ComparedSignal& row) {
  const bool isComplete = pair.baseline && pair.compareTo;
  Signal& described = pair.compareTo ? *pair.compareTo : *comparison;
  Results results(described, comparison->getName());
  const auto sink = [&results](const comparison::Rows& rows) { results.write(rows); };
  judge(pair, isComplete ? comparison::Sink(sink) : comparison::Sink(), row);
  results.publish(comparison, familyOf(*comparison));
  row.comparison = comparison->getID();
  comparison->setIsWithinTol(row.outcome == Outcome::within);
  storeSettings(*comparison, row);
}

ComparedSignal lookAt(const SignalPair& pair, const RunComparisonOptions& options) {
  return forPair(pair, [&] {
    ComparedSignal row =
        rowFor(pair, pair.baseline ? *pair.baseline : *pair.compareTo, options);
    judge(pair, {}, row);
    return row;
  });
}

ComparedSignal store(const SignalPair& pair, Set& run, const RunComparisonOptions& options) {
  return forPair(pair, [&] {
    Signal& first = pair.baseline ? *pair.baseline : *pair.compareTo;
    ComparedSignal row = rowFor(pair, first, options);
    const SignalPtr comparison = addComparison(run, first, false, kPairedBy);
    if (pair.baseline) addInput(comparison, *pair.baseline, SourceType::Baseline);
    if (pair.compareTo) addInput(comparison, *pair.compareTo, SourceType::CompareTo);
    judgeAndStore(pair, comparison, row);
    return row;
  });
}

ComparedSignal recheck(const SignalPtr& comparison, const RunComparisonOptions& options) {
  ObjectManager& manager = comparison->getObjectReference().getObjectManager();
  const ComparisonFamily family = familyOf(*comparison);
  const auto input = [&](int id) {
    return SignalPtr(id == 0 ? nullptr : Signal::getSignalFromID(manager, id).release());
  };
  SignalPair pair;
  pair.baseline = input(family.baseline);
  pair.compareTo = input(family.compareTo);
  describe(*comparison, pair);
  return forPair(pair, [&] {
    ComparedSignal row = rowFor(pair, *comparison, options);
    judgeAndStore(pair, comparison, row);
    return row;
  });
}

void conclude(RunComparison& comparison, bool extraIsFailure) {
  const auto differs = [&](const ComparedSignal& row) {
    return row.outcome != Outcome::within && (extraIsFailure || row.outcome != Outcome::extra);
  };
  comparison.within = comparison.count(Outcome::within) > 0 &&
                      std::ranges::none_of(comparison.signals, differs);
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

}  // namespace

std::string textOf(ComparisonOutcome outcome) {
  static const std::string texts[] = {"within",        "outside",       "missing",
                                      "extra",         "unit mismatch", "type mismatch",
                                      "time mismatch", "empty"};
  return texts[static_cast<std::size_t>(outcome)];
}

std::string textOf(SettingOrigin origin) {
  static const std::string texts[] = {"option", "signal", "default"};
  return texts[static_cast<std::size_t>(origin)];
}

std::size_t RunComparison::count(ComparisonOutcome outcome) const {
  return static_cast<std::size_t>(
      std::ranges::count(signals, outcome, &ComparedSignal::outcome));
}

RunComparison compareRuns(ObjectManager& manager, int baselineRun, int compareToRun,
                          const RunComparisonOptions& options) {
  checkSettings(options);
  RunComparison result{0, baselineRun, compareToRun, false, {}};
  manager.inReadUnit([&] {
    const auto baseline = runOf(manager, baselineRun), compareTo = runOf(manager, compareToRun);
    for (const SignalPair& pair : pairLeaves(*baseline, *compareTo, options.signals))
      result.signals.push_back(lookAt(pair, options));
  });
  conclude(result, options.extraIsFailure);
  return result;
}

RunComparison compareAndStoreRuns(ObjectManager& manager, int baselineRun, int compareToRun,
                                  const RunComparisonOptions& options) {
  checkSettings(options);
  RunComparison result{0, baselineRun, compareToRun, false, {}};
  manager.inTransaction([&] {
    const auto baseline = runOf(manager, baselineRun), compareTo = runOf(manager, compareToRun);
    const std::vector<SignalPair> pairs = pairLeaves(*baseline, *compareTo, options.signals);
    Set run = newComparisonRun(manager, *baseline, *compareTo, options);
    for (const SignalPair& pair : pairs) result.signals.push_back(store(pair, run, options));
    result.run = run.getID();
  });
  conclude(result, options.extraIsFailure);
  return result;
}

RunComparison recheckRun(ObjectManager& manager, int comparisonRun,
                         const RunComparisonOptions& given) {
  checkSettings(given);
  RunComparison result;
  RunComparisonOptions options;
  manager.inTransaction([&] {
    const auto run = runOf(manager, comparisonRun);
    if (run->getApplication() != Set::Application::VELAComparison)
      refuse("Repeating a comparison",
             "run " + std::to_string(comparisonRun) + " is no comparison");
    options = withStoredSettings(given, *run);
    result.run = comparisonRun;
    result.baselineRun = run->getBaselineSetID();
    result.compareToRun = run->getCompareToSetID();
    for (const int id : run->getSignalIDs(Set::SignalQueryType::top)) {
      const SignalPtr signal(Signal::getSignalFromID(manager, id).release());
      if (signal->getSourceType() == SourceType::Comparison)
        result.signals.push_back(recheck(signal, options));
    }
    storeRunSettings(*run, options);
  });
  conclude(result, options.extraIsFailure);
  return result;
}

}  // namespace vela
