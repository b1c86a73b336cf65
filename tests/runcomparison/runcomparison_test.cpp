#include "runcomparison/runcomparison.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>

#include "objects/classdef.h"
#include "objects/find.h"
#include "objects/set.h"
#include "objects/signalcomparison.h"
#include "signalcreationutil.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::raisedBy;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using Outcome = ComparisonOutcome;
using SignalPtr = boost::shared_ptr<Signal>;

class RunComparisonTest : public test::SignalTest {
 protected:
  RunComparisonTest() : baseline_(*manager_, true), compareTo_(*manager_, true) {
    baseline_.setName(L"before");
    compareTo_.setName(L"after");
  }

  SignalPtr add(Set& run, const std::wstring& name, const std::vector<double>& times,
                const std::vector<double>& values) {
    SignalPtr signal(new Signal(run.getObjectReference().getObjectManager()));
    signal->setName(name);
    signal->setInterpMethod("linear");
    if (!times.empty()) append(*signal, times, values);
    run.addElement(*signal);
    return signal;
  }
  /// The same signal in both runs; what `values` of the second are.
  std::pair<SignalPtr, SignalPtr> addPair(const std::wstring& name,
                                          const std::vector<double>& values,
                                          const std::vector<double>& changed) {
    std::vector<double> times(values.size());
    for (std::size_t i = 0; i < times.size(); ++i) times[i] = static_cast<double>(i);
    return {add(baseline_, name, times, values), add(compareTo_, name, times, changed)};
  }
  /// One signal for each outcome but "extra" and "missing".
  void addEveryOutcome() {
    addPair(L"same", {1, 2, 3}, {1, 2, 3});
    addPair(L"changed", {1, 2, 3}, {1, 2.5, 3});
    add(baseline_, L"gone", {0, 1}, {0, 0});
    addPair(L"volts", {1, 2}, {1, 2}).second->setUnits(L"V");
    setEnumeration(*add(baseline_, L"mode", {}, {}));
    add(compareTo_, L"mode", {0, 1}, {0, 0});
    add(baseline_, L"later", {0, 1}, {0, 0});
    add(compareTo_, L"later", {5, 6}, {0, 0});
    add(baseline_, L"shorter", {0, 1, 2}, {0, 0, 0});
    add(compareTo_, L"shorter", {0, 1}, {0, 0});
    add(baseline_, L"nothing", {0, 1}, {0, 0});
    add(compareTo_, L"nothing", {}, {});
    add(compareTo_, L"new", {0, 1}, {0, 0});
  }
  static void setEnumeration(Signal& signal, const std::string& lastLabel = "on") {
    long long type = 0;
    DataTypeUtil::createEnumDataType("Mode", {{0, "off"}, {1, lastLabel}}, "int32",
                                     signal.getObjectReference().getObjectManager(), type);
    setType(signal, type);
    const std::vector<int> states = {0, 0};
    const std::vector<double> times = {0, 1};
    signal.addData(8, states.data(), 16, times.data(), 0, 1, 2);
  }
  RunComparison look(const RunComparisonOptions& options = {}) {
    return compareRuns(*manager_, baseline_.getID(), compareTo_.getID(), options);
  }
  RunComparison stored(const RunComparisonOptions& options = {}) {
    return compareAndStoreRuns(*manager_, baseline_.getID(), compareTo_.getID(), options);
  }
  static std::vector<std::pair<std::wstring, Outcome>> outcomes(const RunComparison& result) {
    std::vector<std::pair<std::wstring, Outcome>> outcomes;
    for (const ComparedSignal& row : result.signals)
      outcomes.emplace_back(row.name, row.outcome);
    return outcomes;
  }
  SignalPtr handle(int id) {
    return SignalPtr(Signal::getSignalFromID(*manager_, id).release());
  }
  std::vector<int> census() {
    std::vector<int> counts;
    for (const std::string* name :
         {&strings::DataSet, &strings::Signal, &strings::SignalSource, &strings::Chunk,
          &strings::TimeChunk, &strings::DataChunk, &strings::MetaData})
      counts.push_back(countObjects(*manager_, *name, {}));
    return counts;
  }

  Set baseline_;
  Set compareTo_;
};

TEST_F(RunComparisonTest, GivesEverySignalOfEitherRunItsOutcome) {
  addEveryOutcome();
  const std::vector<int> before = census();
  const RunComparison looked = look();
  EXPECT_THAT(
      outcomes(looked),
      ElementsAre(
          std::pair(L"same", Outcome::within), std::pair(L"changed", Outcome::outside),
          std::pair(L"gone", Outcome::missing), std::pair(L"volts", Outcome::unitMismatch),
          std::pair(L"mode", Outcome::typeMismatch), std::pair(L"later", Outcome::timeMismatch),
          std::pair(L"shorter", Outcome::timeMismatch), std::pair(L"nothing", Outcome::empty),
          std::pair(L"new", Outcome::extra)));
  EXPECT_FALSE(looked.within);
  EXPECT_EQ(looked.run, 0);
  EXPECT_EQ(looked.signals[1].report.maxDifference, 0.5);
  EXPECT_EQ(looked.signals[1].report.timeOfMaxDifference, 1);
  EXPECT_EQ(census(), before);
}

TEST_F(RunComparisonTest, StoresEveryRowSoThatItCanBeCheckedWithoutTheRuns) {
  addEveryOutcome();
  const RunComparison first = stored();
  EXPECT_EQ(outcomes(first), outcomes(look()));
  boost::shared_ptr<Set> run;
  ASSERT_TRUE(Set::lookupSet(first.run, run, *manager_));
  EXPECT_EQ(run->getName(), L"Comparison of before and after");
  EXPECT_EQ(run->getApplication(), Set::Application::VELAComparison);
  EXPECT_EQ(run->getBaselineSetID(), baseline_.getID());
  EXPECT_EQ(run->getCompareToSetID(), compareTo_.getID());

  const ComparedSignal& changed = first.signals[1];
  const ComparisonFamily family = familyOf(*handle(changed.comparison));
  EXPECT_THAT(values(*handle(family.differences.at(0))), ElementsAre(0, 0.5, 0));
  EXPECT_THAT(values(*handle(family.tolerances.at(0))), ElementsAre(0, 0, 0));
  EXPECT_THAT(values(*handle(family.baseline)), ElementsAre(1, 2, 3));
  EXPECT_FALSE(handle(changed.comparison)->getIsWithinTol());
  EXPECT_TRUE(handle(first.signals[0].comparison)->getIsWithinTol());

  Set::removeRuns(*manager_, {baseline_.getID(), compareTo_.getID()});
  const std::vector<int> before = census();
  const RunComparison again = recheckRun(*manager_, first.run, {});
  EXPECT_EQ(outcomes(again), outcomes(first));
  EXPECT_EQ(census(), before);
}

TEST_F(RunComparisonTest, RechecksWithOtherTolerancesAndKeepsThemAndThePlots) {
  addPair(L"speed", {1, 2, 3}, {1, 2.5, 3});
  RunComparisonOptions options;
  options.timeTol = 0.25;
  options.timeMatch = 0.001;
  const RunComparison first = stored(options);
  EXPECT_FALSE(first.within);
  const int comparison = first.signals[0].comparison;
  handle(familyOf(*handle(comparison)).differences.at(0))->setChecked({3});

  RunComparisonOptions loose;
  loose.absTol = 0.5;
  EXPECT_TRUE(recheckRun(*manager_, first.run, loose).within);
  const RunComparison repeated = recheckRun(*manager_, first.run, {});
  EXPECT_TRUE(repeated.within);
  EXPECT_EQ(repeated.signals[0].options.absTol, 0.5);
  EXPECT_EQ(repeated.signals[0].options.timeTol, 0.25);
  EXPECT_EQ(repeated.signals[0].options.timeMatch, 0.001);
  EXPECT_EQ(repeated.signals[0].comparison, comparison);
  EXPECT_TRUE(handle(comparison)->getIsWithinTol());
  const ComparisonFamily family = familyOf(*handle(comparison));
  ASSERT_EQ(family.differences.size(), 1);
  EXPECT_THAT(handle(family.differences[0])->getChecked(), ElementsAre(3));
}

TEST_F(RunComparisonTest, ResultsStayWithTheSessionThatComparedWhoeverRepeatsIt) {
  addPair(L"speed", {1, 2, 3}, {1, 2.5, 3});
  const RunComparison first = stored();
  const auto owner = [&](int id) {
    return handle(id)->getObjectReference().getPropertyInt64(strings::InstanceID);
  };
  const int comparison = first.signals[0].comparison;
  const long long before = owner(comparison);
  manager_->setInstanceID(before + 7);
  recheckRun(*manager_, first.run, {});
  const ComparisonFamily family = familyOf(*handle(comparison));
  EXPECT_EQ(owner(family.differences.at(0)), before);
  EXPECT_EQ(owner(family.tolerances.at(0)), before);
}

TEST_F(RunComparisonTest, TakesTolerancesFromOptionsThenSignalsThenDefaults) {
  const auto own = addPair(L"own", {1, 2}, {1, 2.1}).first;
  addPair(L"plain", {1, 2}, {1, 2.1});
  own->setAbsTol(0.2);
  RunComparisonOptions options;
  options.defaultRelTol = 0.01;
  RunComparison result = look(options);
  EXPECT_EQ(result.signals[0].toleranceOrigin, SettingOrigin::signal);
  EXPECT_EQ(result.signals[0].options.absTol, 0.2);
  EXPECT_EQ(result.signals[0].outcome, Outcome::within);
  EXPECT_EQ(result.signals[1].toleranceOrigin, SettingOrigin::runDefault);
  EXPECT_EQ(result.signals[1].options.relTol, 0.01);
  EXPECT_EQ(result.signals[1].outcome, Outcome::outside);

  options.relTol = 0.001;
  result = look(options);
  EXPECT_EQ(result.signals[0].toleranceOrigin, SettingOrigin::option);
  EXPECT_EQ(result.signals[0].options.absTol, 0) << "one option decides about both";
  EXPECT_EQ(result.signals[0].outcome, Outcome::outside);
}

TEST_F(RunComparisonTest, TakesTheAlignmentFromOptionsElseFromTheSignal) {
  const auto pair = addPair(L"speed", {1, 2, 3}, {1, 2, 3});
  pair.first->setTimeAlignmentMethod("intersection");
  EXPECT_EQ(look().signals[0].options.alignment, comparison::Alignment::intersect);
  RunComparisonOptions options;
  options.count = 11;
  EXPECT_EQ(look(options).signals[0].report.rows, 11) << "a count asks for a uniform grid";
  options = {};
  options.alignment = comparison::Alignment::unite;
  EXPECT_EQ(look(options).signals[0].options.alignment, comparison::Alignment::unite);
}

TEST_F(RunComparisonTest, PairsLeavesByTheirPlaceInTheTree) {
  const auto addBus = [&](Set& run, double offset) {
    for (const wchar_t* name : {L"left", L"right"}) {
      const SignalPtr parent = add(run, name, {}, {});
      for (const wchar_t* leaf : {L"x", L"y"}) {
        const SignalPtr child = add(run, leaf, {0, 1}, {offset, offset});
        child->setParent(parent);
        offset += 10;
      }
    }
  };
  addBus(baseline_, 0);
  addBus(compareTo_, 0);
  const RunComparison result = look();
  EXPECT_TRUE(result.within);
  ASSERT_EQ(result.signals.size(), 4);
  EXPECT_EQ(result.signals[2].path, L"right.x");

  RunComparisonOptions options;
  options.signals = "right.*";
  EXPECT_EQ(look(options).signals.size(), 2);
  options.signals = "x";
  EXPECT_EQ(look(options).signals.size(), 2);
  options.signals = "z*";
  EXPECT_FALSE(look(options).within) << "nothing compared is no pass";
}

TEST_F(RunComparisonTest, ComparesWhatMatricesAndBusesHold) {
  long long type = 0;
  DataTypeUtil::getBuiltInDataTypeHandle(dtypeDouble, *manager_, type);
  for (Set* run : {&baseline_, &compareTo_}) {
    std::vector<SignalCreationUtil::Expansion> created;
    const SignalPtr matrix = SignalCreationUtil::createSignal(
        *manager_, nullptr, dimsMode::fixed, {1, 2}, complexity::complex,
        sampleTimeContinuity::discrete, type, created);
    matrix->setName(L"m");
    SignalCreationUtil::nameParts(*matrix);
    run->addElement(*matrix);
    double value = run == &baseline_ ? 0 : 0.5;
    for (const int id : run->getSignalIDs(Set::SignalQueryType::leaf))
      append(*handle(id), {0, 1}, {value, value + 1});

    const SignalPtr root(new Signal(*manager_));
    const std::vector<double> records = {1, 2}, at = {0};
    root->addData(16, records.data(), 8, at.data(), 0, 0, 1);
    run->addElement(*root);
    for (int i = 0; i < 2; ++i) {
      Signal leaf = leafOf(*root, 8, 16, 8 * i, dtypeDouble);
      leaf.setLeafBusSignal(L"bus." + std::to_wstring(i));
      leaf.setParent(root);
    }
  }
  const RunComparison result = stored();
  EXPECT_EQ(result.count(Outcome::outside), 4);
  EXPECT_EQ(result.count(Outcome::within), 2);
  EXPECT_EQ(result.signals.size(), 6);
  EXPECT_EQ(result.signals[3].name, L"m (imaginary)(1,2)");
}

TEST_F(RunComparisonTest, ComparesRunsOfTwoRepositories) {
  ObjectManager other;
  other.initializeObjectManager({}, {});
  {
    // One type more, so that equal types have different IDs here.
    long long unused = 0;
    DataTypeUtil::createEnumDataType("Gear", {{0, "N"}}, "int32", other, unused);
    Set there(other, true);
    for (Set* run : {&baseline_, &there}) {
      add(*run, L"speed", {0, 1}, {1, run == &there ? 2.5 : 2});
      setEnumeration(*add(*run, L"mode", {}, {}));
      setEnumeration(*add(*run, L"other mode", {}, {}), run == &there ? "open" : "on");
    }
    const RunComparison result = compareRuns(baseline_, there, {});
    EXPECT_THAT(outcomes(result), ElementsAre(std::pair(L"speed", Outcome::outside),
                                              std::pair(L"mode", Outcome::within),
                                              std::pair(L"other mode", Outcome::typeMismatch)));
    EXPECT_EQ(result.signals[0].report.maxDifference, 0.5);
  }
}

TEST_F(RunComparisonTest, KeepsNothingWhereNothingCouldBeCompared) {
  add(baseline_, L"speed", {0, 1}, {1, 2});
  add(compareTo_, L"speed", {2, 3}, {1, 2});
  add(baseline_, L"gone", {0, 1}, {1, 2});
  const std::vector<int> before = census();
  const RunComparison result = stored();
  EXPECT_FALSE(result.comparedAnything());
  EXPECT_EQ(result.run, 0);
  EXPECT_EQ(result.signals.at(0).comparison, 0);
  EXPECT_EQ(census(), before);
}

TEST_F(RunComparisonTest, LookingAgainLeavesWhatIsStored) {
  addEveryOutcome();
  const RunComparison first = stored();
  const int comparison = first.signals[1].comparison;
  const ComparisonFamily family = familyOf(*handle(comparison));
  RunComparisonOptions loose;
  loose.absTol = 0.5;
  std::vector<std::size_t> told;
  loose.progress = [&](std::size_t done, std::size_t total) {
    EXPECT_EQ(total, first.signals.size());
    told.push_back(done);
  };
  const RunComparison again = lookAgain(*manager_, first.run, loose);
  EXPECT_THAT(told, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8));
  EXPECT_EQ(again.signals[1].outcome, Outcome::within);
  EXPECT_EQ(again.signals[1].comparison, comparison);
  EXPECT_FALSE(handle(comparison)->getIsWithinTol());
  EXPECT_EQ(handle(comparison)->getAbsTol(), 0);
  EXPECT_EQ(familyOf(*handle(comparison)).differences, family.differences);
}

TEST_F(RunComparisonTest, ExtraSignalsMayBeAllowedAndStaySo) {
  addPair(L"speed", {1, 2}, {1, 2});
  EXPECT_TRUE(look().within);
  add(compareTo_, L"new", {0, 1}, {0, 0});
  EXPECT_FALSE(look().within);
  RunComparisonOptions options;
  options.extraIsFailure = false;
  const RunComparison result = stored(options);
  EXPECT_TRUE(result.within);
  EXPECT_TRUE(recheckRun(*manager_, result.run, {}).within);
}

TEST_F(RunComparisonTest, ASignalThatCannotBeComparedKeepsNoOtherFromIt) {
  addPair(L"first", {1, 2}, {1, 2});
  const auto addChanged = [&](const std::wstring& name, const auto& change) {
    change(addPair(name, {1, 2}, {1, 2}).first->getObjectReference());
  };
  // As another program may have left them.
  addChanged(L"align", [](ObjectRef& signal) {
    signal.setPropertyStdString(strings::TimeAlignmentMethod, "nearest");
  });
  addChanged(L"interp", [](ObjectRef& signal) {
    signal.setPropertyStdString(strings::InterpSetting, "cubic");
  });
  addChanged(L"nan",
             [](ObjectRef& signal) { signal.setPropertyReal64(strings::Abs, std::nan("")); });
  // At first one state a time, then two.
  const auto [modes, sameModes] =
      std::pair(add(baseline_, L"modes", {}, {}), add(compareTo_, L"modes", {}, {}));
  for (const SignalPtr& signal : {modes, sameModes}) {
    setEnumeration(*signal);
    const std::vector<int> states = {0, 1, 1, 1};
    const std::vector<double> times = {2, 3};
    signal->addData(16, states.data(), 16, times.data(), 2, 3, 2);
  }
  addPair(L"last", {1, 2}, {1, 2});
  RunComparison result = stored();
  for (int repeated = 0; repeated < 2; ++repeated) {
    EXPECT_THAT(outcomes(result), ElementsAre(std::pair(L"first", Outcome::within),
                                              std::pair(L"align", Outcome::notComparable),
                                              std::pair(L"interp", Outcome::notComparable),
                                              std::pair(L"nan", Outcome::notComparable),
                                              std::pair(L"modes", Outcome::notComparable),
                                              std::pair(L"last", Outcome::within)));
    EXPECT_FALSE(result.within);
    for (std::size_t i = 1; i <= 4; ++i) {
      EXPECT_NE(result.signals[i].reason, "");
      EXPECT_THAT(familyOf(*handle(result.signals[i].comparison)).differences, IsEmpty());
    }
    result = recheckRun(*manager_, result.run, {});
  }
  EXPECT_EQ(outcomes(look()), outcomes(result));
}

TEST_F(RunComparisonTest, NamesComparisonsSoThatNoTwoAreAlike) {
  for (Set* run : {&baseline_, &compareTo_}) {
    for (const wchar_t* name : {L"left", L"right"}) {
      const SignalPtr parent = add(*run, name, {}, {});
      add(*run, L"x", {0, 1}, {0, 1})->setParent(parent);
    }
    for (const unsigned k : {1U, 2U}) add(*run, L"m", {0, 1}, {0, 1})->setChannel({k});
  }
  const RunComparison result = stored();
  std::vector<std::wstring> names;
  boost::shared_ptr<Set> run;
  ASSERT_TRUE(Set::lookupSet(result.run, run, *manager_));
  for (const int id : run->getSignalIDs(Set::SignalQueryType::all))
    names.push_back(handle(id)->getName());
  EXPECT_THAT(names, IsSupersetOf({L"left.x", L"right.x", L"m(1)", L"m(2)", L"m(1) (baseline)",
                                   L"m(1) (compared)", L"Difference of right.x"}));
  std::ranges::sort(names);
  EXPECT_EQ(std::ranges::adjacent_find(names), names.end());
  EXPECT_EQ(recheckRun(*manager_, result.run, {}).signals[2].name, L"m(1)");
}

TEST_F(RunComparisonTest, StoresNothingWhenSomethingIsWrong) {
  addPair(L"first", {1, 2}, {1, 2});
  const std::vector<int> before = census();
  const auto storing = [&](const RunComparisonOptions& options) {
    return raisedBy([&] { stored(options); });
  };
  RunComparisonOptions options;
  for (const double bad : {std::nan(""), -1.}) {
    options = {};
    options.absTol = bad;
    EXPECT_EQ(storing(options), "nexstore:nex:InvalidSetting");
    options = {};
    options.defaultRelTol = bad;
    EXPECT_EQ(storing(options), "nexstore:nex:InvalidSetting");
  }
  EXPECT_EQ(raisedBy([&] { compareAndStoreRuns(*manager_, baseline_.getID(), 123456, {}); }),
            "nexstore:nex:InvalidData");
  EXPECT_EQ(raisedBy([&] { recheckRun(*manager_, baseline_.getID(), {}); }),
            "nexstore:nex:InvalidData");
  EXPECT_EQ(census(), before);
}

}  // namespace
}  // namespace vela
