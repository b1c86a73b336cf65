#include "objects/signalcomparison.h"

#include <gmock/gmock.h>

#include "kodd/layout.h"
#include "objects/datatypes.h"
#include "objects/find.h"
#include "objects/set.h"
#include "objects/signalremoval.h"
#include "signalcreationutil.h"
#include "sqldb/database.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::raisedBy;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using SignalPtr = boost::shared_ptr<Signal>;

class SignalComparisonTest : public test::SignalTest {
 protected:
  SignalComparisonTest()
      : run_(*manager_, true),
        baseline_(newSignal(L"speed", {0, 1, 2}, {1, 2, 3})),
        compareTo_(newSignal(L"speed", {0, 1, 2}, {1, 2.5, 3})) {}

  SignalPtr newSignal(const std::wstring& name, const std::vector<double>& times,
                      const std::vector<double>& values) {
    SignalPtr signal(new Signal(*manager_));
    signal->setName(name);
    signal->setUnits(L"m/s");
    signal->setBlockPath({L"car", L"engine"});
    append(*signal, times, values);
    run_.addElement(*signal);
    return signal;
  }
  SignalPtr handle(int id) {
    return SignalPtr(Signal::getSignalFromID(*manager_, id).release());
  }
  /// A comparison of the two: its ID and those of its parts.
  std::pair<int, std::vector<int>> compared(Signal* difference = nullptr,
                                            Signal* tolerance = nullptr) {
    return run_.addComparisonSignal(false, L"name", *baseline_, *compareTo_, difference,
                                    tolerance);
  }
  std::vector<int> leavesBelow(const Signal& top) {
    std::vector<int> leaves;
    for (const int id : signalsBelow(*manager_, top.getID()))
      if (Signal::isLeafSignal(*manager_, id)) leaves.push_back(id);
    return leaves;
  }
  /// How many objects there are of every class that comparisons make.
  std::vector<int> census() {
    std::vector<int> counts;
    for (const std::string* name : {&strings::Signal, &strings::SignalSource, &strings::Chunk,
                                    &strings::TimeChunk, &strings::DataChunk, &strings::Unit})
      counts.push_back(countObjects(*manager_, *name, {}));
    return counts;
  }

  Set run_;
  SignalPtr baseline_;
  SignalPtr compareTo_;
};

TEST_F(SignalComparisonTest, ADeepCopyTakesTheDescriptionAndNoneOfTheRest) {
  baseline_->setAbsTol(0.25);
  baseline_->setChecked({1, 3});
  baseline_->setColor(ColorTuple(0.1, 0.2, 0.3));
  baseline_->setInterpMethod("linear");
  Signal::resetColors();
  const SignalPtr bare = baseline_->createDeepCopy(Signal::CopyMode::Properties);
  EXPECT_EQ(bare->getName(), L"speed");
  EXPECT_EQ(bare->getUnits(), L"m/s");
  EXPECT_EQ(bare->getAbsTol(), 0.25);
  EXPECT_EQ(bare->getInterpMethod(), "linear");
  EXPECT_EQ(bare->getColor(), ColorTuple(0.1, 0.2, 0.3));
  EXPECT_EQ(bare->getDataTypeLabel(), "double");
  EXPECT_EQ(bare->getSourceSignal()->getID(), baseline_->getID());
  EXPECT_THAT(bare->getChecked(), IsEmpty());
  EXPECT_EQ(bare->getParentSetID(), 0);
  EXPECT_THAT(values(*bare), IsEmpty());
  EXPECT_EQ(Signal(*manager_).getColor(), Signal::getDefaultVelaColors()[0]);

  EXPECT_NE(bare->getSignalSourceID(), baseline_->getSignalSourceID());
  bare->setBlockPath({L"elsewhere"});
  EXPECT_THAT(baseline_->getBlockPath(), ElementsAre(L"car", L"engine"));

  const SignalPtr full = baseline_->createDeepCopy(Signal::CopyMode::WithData);
  EXPECT_THAT(values(*full), ElementsAre(1, 2, 3));
  baseline_->remove();
  EXPECT_THAT(values(*full), ElementsAre(1, 2, 3));
}

TEST_F(SignalComparisonTest, TheCopyOfABusLeafReadsItsOwnSamples) {
  Signal root(*manager_);
  const std::vector<double> records = {1, 10, 2, 20};
  const std::vector<double> times = {0, 1};
  root.addData(32, records.data(), 16, times.data(), 0, 1, 2);
  Signal leaf = leafOf(root, 8, 16, 8, dtypeDouble);
  const SignalPtr copy = leaf.createDeepCopy(Signal::CopyMode::WithData);
  EXPECT_FALSE(copy->isInHierarchy());
  EXPECT_THAT(values(*copy), ElementsAre(10, 20));
  const SignalPtr difference =
      Signal::createDifferenceSignal(nullptr, &leaf, &leaf, L"d", *manager_);
  EXPECT_THAT(values(*difference), ElementsAre(0, 0));
}

TEST_F(SignalComparisonTest, WithoutDataADifferenceIsZeroOverTheRange) {
  const SignalPtr difference = Signal::createDifferenceSignal(
      nullptr, baseline_.get(), compareTo_.get(), L"speed", *manager_);
  EXPECT_THAT(times(*difference), ElementsAre(0, 2));
  EXPECT_THAT(values(*difference), ElementsAre(0, 0));
  EXPECT_EQ(difference->getName(), L"Difference of speed");
  EXPECT_EQ(difference->getSourceType(), Signal::Difference);
  EXPECT_EQ(difference->getColor(), ColorTuple(1., 0., 0.));
  EXPECT_EQ(difference->getLineStyle(), Signal::Solid);

  const SignalPtr tolerance = Signal::createToleranceSignal(
      nullptr, baseline_.get(), compareTo_.get(), L"speed", *manager_);
  EXPECT_EQ(tolerance->getName(), L"Tolerance of speed");
  EXPECT_EQ(tolerance->getColor(), ColorTuple(0., 0.8, 0.2));
  EXPECT_EQ(tolerance->getLineStyle(), Signal::Dashed);

  Signal none(*manager_);
  EXPECT_THAT(values(*Signal::createDifferenceSignal(nullptr, &none, &none, L"", *manager_)),
              IsEmpty());
}

TEST_F(SignalComparisonTest, AComparisonKeepsCopiesOfItsInputs) {
  Signal difference(*manager_);
  append(difference, {0, 1, 2}, {0, 0.5, 0});
  const auto [id, parts] = compared(&difference);
  const SignalPtr comparison = handle(id);
  EXPECT_EQ(comparison->getSourceType(), Signal::Comparison);
  EXPECT_EQ(comparison->getAlignedBy(), L"name");
  EXPECT_EQ(comparison->getParentSetID(), run_.getID());
  ASSERT_EQ(parts.size(), 4);
  const Signal::SourceType types[] = {Signal::Baseline, Signal::CompareTo, Signal::Difference,
                                      Signal::Tolerance};
  for (std::size_t i = 0; i < 4; ++i) {
    bool found = false;
    EXPECT_EQ(handle(parts[i])->getSourceType(), types[i]);
    EXPECT_EQ(handle(parts[i])->getParent(found)->getID(), id);
    EXPECT_EQ(handle(parts[i])->getParentSetID(), run_.getID());
  }
  EXPECT_EQ(handle(parts[0])->getSourceSignal()->getID(), baseline_->getID());
  EXPECT_EQ(handle(parts[1])->getSourceSignal()->getID(), compareTo_->getID());
  EXPECT_EQ(baseline_->findCopiedSignal()->getID(), parts[0]);
  EXPECT_EQ(difference.findCopiedSignal(), nullptr) << "the caller's data is no source";
  baseline_->remove();
  compareTo_->remove();
  EXPECT_THAT(values(*handle(parts[0])), ElementsAre(1, 2, 3));
  EXPECT_THAT(values(*handle(parts[1])), ElementsAre(1, 2.5, 3));
  EXPECT_THAT(values(*handle(parts[2])), ElementsAre(0, 0.5, 0));
}

TEST_F(SignalComparisonTest, AComparisonOfSignalsWithPartsKeepsTheirPartsToo) {
  const auto matrix = [&](complexity parts, std::vector<double> values) {
    long long type = 0;
    DataTypeUtil::getBuiltInDataTypeHandle(dtypeDouble, *manager_, type);
    std::vector<SignalCreationUtil::Expansion> created;
    const SignalPtr top =
        SignalCreationUtil::createSignal(*manager_, nullptr, dimsMode::fixed, {1, 2}, parts,
                                         sampleTimeContinuity::discrete, type, created);
    for (const int id : leavesBelow(*top)) append(*handle(id), {0, 1}, {values[0], values[1]});
    run_.addElement(*top);
    return top;
  };
  const auto bus = [&](std::vector<double> records) {
    const SignalPtr root(new Signal(*manager_));
    const std::vector<double> at = {0, 1};
    root->addData(32, records.data(), 16, at.data(), 0, 1, 2);
    run_.addElement(*root);
    for (int i = 0; i < 2; ++i) leafOf(*root, 8, 16, 8 * i, dtypeDouble).setParent(root);
    return root;
  };
  for (const auto& [b, c, parts] :
       {std::tuple(matrix(complexity::complex, {1, 2}), matrix(complexity::complex, {3, 4}), 4),
        std::tuple(bus({1, 1, 2, 2}), bus({3, 3, 4, 4}), 2)}) {
    const auto [id, ids] = run_.addComparisonSignal(true, L"", *b, *c, c.get(), nullptr);
    const auto shows = [&](int top, const std::vector<double>& expected) {
      const std::vector<int> leaves = leavesBelow(*handle(top));
      EXPECT_EQ(leaves.size(), parts);
      for (const int leaf : leaves) {
        EXPECT_EQ(values(*handle(leaf)), expected);
        EXPECT_EQ(handle(leaf)->getSourceType(), handle(top)->getSourceType());
        EXPECT_EQ(handle(leaf)->getParentSetID(), run_.getID());
      }
    };
    shows(ids[0], {1, 2});
    shows(ids[1], {3, 4});
    shows(ids[2], {3, 4});
    shows(ids[3], {0, 0});
    const std::vector<int> before = census();
    handle(id)->updateComparisonSignal(false, b.get(), nullptr);
    EXPECT_EQ(census(), before);
    shows(familyOf(*handle(id)).differences.at(0), {1, 2});

    // Data of one signal are a result of one signal, other parts are none.
    handle(id)->updateComparisonSignal(false, baseline_.get(), nullptr);
    EXPECT_THAT(values(*handle(familyOf(*handle(id)).differences.at(0))), ElementsAre(1, 2, 3));
    const SignalPtr other = matrix(complexity::real, {1, 2});
    handle(leavesBelow(*other)[0])->remove();
    EXPECT_EQ(
        raisedBy([&] { handle(id)->updateComparisonSignal(false, other.get(), nullptr); }),
        "nexstore:nex:InvalidData");
  }
}

TEST_F(SignalComparisonTest, RefreshesLeaveTheCensusAndTheInputsAlone) {
  const auto [id, parts] = compared();
  handle(parts[2])->setChecked({2, 5});
  handle(parts[3])->setChecked({7});
  const SignalPtr comparison = handle(id);
  Signal difference(*manager_);
  append(difference, {0, 2}, {1, 1});
  const std::vector<int> before = census();
  for (int i = 0; i < 50; ++i) {
    SCOPED_TRACE(i);
    // By turns new data, none, and what is replaced itself.
    const SignalPtr old = handle(familyOf(*comparison).differences.front());
    Signal* const data = i % 3 == 0 ? &difference : i % 3 == 1 ? nullptr : old.get();
    comparison->updateComparisonSignal(i % 2 == 0, data, data);
    ASSERT_EQ(census(), before);
    ASSERT_EQ(comparison->getIsWithinTol(), i % 2 == 0);
    const ComparisonFamily family = familyOf(*comparison);
    ASSERT_EQ(family.differences.size(), 1);
    ASSERT_EQ(family.tolerances.size(), 1);
    EXPECT_THAT(handle(family.differences[0])->getChecked(), ElementsAre(2, 5));
    EXPECT_THAT(handle(family.tolerances[0])->getChecked(), ElementsAre(7));
    EXPECT_FALSE(Signal::isLeafSignal(*manager_, id));
    EXPECT_EQ(state(*comparison, strings::HasChildren), 1);
  }
  for (const SignalPtr& input : {baseline_, handle(parts[0])})
    EXPECT_THAT(values(*input), ElementsAre(1, 2, 3));
  for (const SignalPtr& input : {compareTo_, handle(parts[1])})
    EXPECT_THAT(values(*input), ElementsAre(1, 2.5, 3));
}

TEST_F(SignalComparisonTest, ARefreshThatFailsHalfWayLeavesTheOldPairReadable) {
  Signal difference(*manager_);
  append(difference, {0, 1, 2}, {0, 0.5, 0});
  const auto [id, parts] = compared(&difference, &difference);
  const SignalPtr comparison = handle(id);
  const std::vector<int> before = census();
  const kodd::Layout& layout = [&]() -> const kodd::Layout& {
    kodiag::util::diagnostics diag;
    return kodd::Layout::positional(*manager_->repository().metamodel(diag).model());
  }();
  int failures = 0;
  for (const std::string* name : {&strings::Signal, &strings::SignalSource, &strings::Chunk,
                                  &strings::TimeChunk, &strings::DataChunk}) {
    const std::string table = layout.of(manager_->getClass(*name)).table;
    sqldb::Database& database = *manager_->repository().getDB();
    const std::string newest = database.queryText("SELECT max(id) FROM " + table);
    // The first, second ... new row of the class has no value for the index.
    for (int nth = 1; nth <= 2; ++nth) {
      SCOPED_TRACE(*name + " " + std::to_string(nth));
      database.execute("CREATE INDEX fault ON " + table + "(CASE WHEN id > " + newest + " + " +
                       std::to_string(nth - 1) +
                       " THEN abs(id * 0 - 9223372036854775807 - 1) END)");
      EXPECT_NE(
          raisedBy([&] { comparison->updateComparisonSignal(true, &difference, &difference); }),
          "");
      ++failures;
      database.execute("DROP INDEX fault");
      EXPECT_EQ(census(), before);
      EXPECT_FALSE(comparison->getIsWithinTol());
      EXPECT_THAT(familyOf(*comparison).differences, ElementsAre(parts[2]));
      EXPECT_THAT(familyOf(*comparison).tolerances, ElementsAre(parts[3]));
      EXPECT_THAT(values(*handle(parts[2])), ElementsAre(0, 0.5, 0));
      EXPECT_THAT(values(*handle(parts[3])), ElementsAre(0, 0.5, 0));
    }
  }
  EXPECT_EQ(failures, 10);
  comparison->updateComparisonSignal(true, &difference, nullptr);
  EXPECT_TRUE(comparison->getIsWithinTol());
}

TEST_F(SignalComparisonTest, ARefreshMendsWhatIsThereTwiceOrNotAtAll) {
  const auto [id, parts] = compared();
  const SignalPtr comparison = handle(id);
  const SignalPtr second = handle(parts[2])->createDeepCopy(Signal::CopyMode::WithData);
  second->setParent(comparison);
  second->setChecked({4});
  handle(parts[2])->setChecked({1});
  handle(parts[3])->remove();
  comparison->updateComparisonSignal(true, nullptr, nullptr);
  const ComparisonFamily family = familyOf(*comparison);
  ASSERT_EQ(family.differences.size(), 1);
  EXPECT_THAT(handle(family.differences[0])->getChecked(), ElementsAre(1, 4));
  EXPECT_EQ(family.tolerances.size(), 1);
}

TEST_F(SignalComparisonTest, OnlyAWholeComparisonCanBeRefreshed) {
  const auto refresh = [](const SignalPtr& signal) {
    return raisedBy([&] { signal->updateComparisonSignal(true, nullptr, nullptr); });
  };
  EXPECT_EQ(refresh(baseline_), "nexstore:nex:InvalidData");
  const auto [id, parts] = compared();
  handle(parts[1])->remove();
  EXPECT_EQ(refresh(handle(id)), "nexstore:nex:InvalidData");
  EXPECT_FALSE(handle(id)->getIsWithinTol());
  EXPECT_EQ(familyOf(*handle(id)).differences.size(), 1);
}

TEST_F(SignalComparisonTest, FindsTheNewestVisibleCopy) {
  EXPECT_EQ(baseline_->findCopiedSignal(), nullptr);
  const auto older = compared();
  Set other(*manager_, true);
  const auto newer =
      other.addComparisonSignal(false, L"", *baseline_, *compareTo_, nullptr, nullptr);
  EXPECT_EQ(baseline_->findCopiedSignal()->getID(), newer.second[0]);
  other.getObjectReference().setPropertyInt32(strings::Visible, 0);
  EXPECT_EQ(baseline_->findCopiedSignal()->getID(), older.second[0]);
}

TEST_F(SignalComparisonTest, FindsTheSameQuantityInAnotherRun) {
  Set other(*manager_, true);
  const auto add = [&](const std::wstring& name, const std::vector<std::wstring>& path,
                       int port) {
    SignalPtr signal(new Signal(*manager_));
    signal->setName(name);
    signal->setBlockPath(path);
    signal->setPortIndex(port);
    other.addElement(*signal);
    return signal;
  };
  const auto match = [&] {
    const SignalPtr found = baseline_->findMatchingSignal(other);
    return found ? found->getID() : 0;
  };
  add(L"torque", {L"car", L"engine"}, 0);
  add(L"speed", {L"car", L"gear"}, 0);
  add(L"speed", {L"car", L"engine"}, 1);
  EXPECT_EQ(match(), 0);
  EXPECT_TRUE(other.areSignalHashesCached());

  // Each of these has to make the kept hashes void.
  const SignalPtr late = add(L"speed", {L"car", L"engine"}, 0);
  EXPECT_EQ(match(), late->getID());
  add(L"speed", {L"car", L"engine"}, 0);
  EXPECT_EQ(match(), late->getID()) << "the first of several";
  late->setName(L"velocity");
  EXPECT_NE(match(), late->getID());
  late->setName(L"speed");
  EXPECT_EQ(match(), late->getID());
  late->setPortIndex(7);
  EXPECT_NE(match(), late->getID());
  late->setPortIndex(0);
  late->setSID(L"42");
  EXPECT_NE(match(), late->getID());
  late->setSID(L"");
  late->setBlockPath({L"car"});
  EXPECT_NE(match(), late->getID());
}

TEST_F(SignalComparisonTest, FindsWhatBecomesTheSameByOtherWays) {
  Set other(*manager_, true);
  Signal odd(*manager_);
  odd.setName(L"speed");
  odd.setSID(L"odd");
  other.addElement(odd);
  const auto match = [&] {
    const SignalPtr found = baseline_->findMatchingSignal(other);
    return found ? found->getID() : 0;
  };
  ASSERT_EQ(match(), 0);
  const int source = baseline_->getSignalSourceID();
  const int oddSource = odd.getSignalSourceID();
  odd.setSignalSourceID(source);
  EXPECT_EQ(match(), odd.getID());
  odd.setSignalSourceID(oddSource);
  EXPECT_EQ(match(), 0);

  const auto copy = baseline_->clone(other);
  EXPECT_EQ(match(), copy->getID());
  copy->getObjectReference().setPropertyUString(strings::Name, L"torque");
  EXPECT_EQ(match(), 0);
  copy->beginBulkPropertyUpdate();
  copy->setName(L"speed");
  EXPECT_EQ(match(), 0) << "not written yet";
  copy->commitBulkPropertyUpdate();
  EXPECT_EQ(match(), copy->getID());

  // One that shares its source with a signal of another run.
  Signal sharer(*manager_);
  sharer.setSignalSourceID(copy->getSignalSourceID());
  sharer.setSID(L"changed");
  EXPECT_EQ(match(), 0);
}

TEST_F(SignalComparisonTest, TellsTheElementsOfAMatrixApart) {
  long long type = 0;
  DataTypeUtil::getBuiltInDataTypeHandle(dtypeDouble, *manager_, type);
  std::vector<std::vector<int>> leaves;
  for (int i = 0; i < 2; ++i) {
    Set run(*manager_, true);
    std::vector<SignalCreationUtil::Expansion> created;
    const SignalPtr matrix = SignalCreationUtil::createSignal(
        *manager_, nullptr, dimsMode::fixed, {2, 2}, complexity::complex,
        sampleTimeContinuity::discrete, type, created);
    matrix->setName(L"m");
    SignalCreationUtil::nameParts(*matrix);
    run.addElement(*matrix);
    leaves.push_back(run.getSignalIDs(Set::SignalQueryType::leaf));
  }
  const boost::shared_ptr<Set> second = handle(leaves[1][0])->getRun();
  for (std::size_t i = 0; i < 8; ++i)
    EXPECT_EQ(handle(leaves[0][i])->findMatchingSignal(*second)->getID(), leaves[1][i]);
}

TEST_F(SignalComparisonTest, RemembersWhichComparisonIsShown) {
  SignalPtr shown;
  EXPECT_FALSE(Signal::getPlottedComparisonSignal(shown, *manager_));
  const int first = compared().first, second = compared().first;
  const auto show = [&](int id, bool plotted) {
    Signal::setPlottedComparisonSignal(id, plotted, *manager_);
    return Signal::getPlottedComparisonSignal(shown, *manager_) ? shown->getID() : 0;
  };
  EXPECT_EQ(show(first, true), first);
  EXPECT_EQ(show(second, true), second);
  EXPECT_EQ(show(first, false), second);
  EXPECT_EQ(show(second, false), 0);
  EXPECT_EQ(raisedBy([&] { show(baseline_->getID(), true); }), "nexstore:nex:InvalidData");
  EXPECT_EQ(raisedBy([&] { show(123456, true); }), "nexstore:nex:InvalidData");
  show(first, true);
  handle(first)->remove();
  EXPECT_FALSE(Signal::getPlottedComparisonSignal(shown, *manager_));
}

}  // namespace
}  // namespace vela
