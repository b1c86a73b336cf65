// Runs hidden, purged and overwritten.
#include "tests/lifecycle/lifecycletest.h"

namespace vela {
namespace {

using test::raisedBy;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kStreaming = "nexstore:nex:DeleteStreamingSignal";

class RemovalTest : public test::LifecycleTest {
 protected:
  int overwriteRun() {
    Set set = run();
    set.setOverWrite(true);
    return set.getID();
  }
};

TEST_F(RemovalTest, APurgeLeavesNothingOfARunAndTheCensusAsItWas) {
  fullRun();
  const auto before = census();
  Set set = fullRun();
  for (const std::string* name :
       {&strings::ActiveSimulation, &strings::OverwriteSet, &strings::PausedModel}) {
    naming(*name, strings::SetID, set.getObjectReference());
  }
  set.lightweightRemove();
  EXPECT_EQ(flag(set.getID(), strings::MarkedForDelete), 1);
  EXPECT_EQ(flag(set.getID(), strings::Visible), 1);
  EXPECT_EQ(count(strings::ActiveSimulation), 0u);
  EXPECT_EQ(Set::getAllVisibleRunIDs(*manager_).size(), 1u);
  const Set::Space space = Set::getSpace(*manager_);
  EXPECT_EQ(space.purgeableRuns, 1);
  // Six values and three times in the bus, five of each in the plain signal.
  EXPECT_EQ(space.purgeableBytes, 8u * (6 + 3 + 5 + 5));

  EXPECT_EQ(Set::removeRunsMarkedForDelete(*manager_), 1);
  EXPECT_FALSE(exists(set.getID()));
  EXPECT_EQ(census(), before);
  EXPECT_EQ(Set::getSpace(*manager_).purgeableRuns, 0);
}

TEST_F(RemovalTest, UnitsGoWithTheirLastSignalAndNotBefore) {
  const auto signalOf = [&](Set& set) {
    Signal signal(*manager_);
    set.addElement(signal);
    signal.setUnits(L"V");
    return signal.getID();
  };
  Set first = run();
  Set second = run();
  const int kept = signalOf(first);
  signalOf(second);
  second.remove();
  EXPECT_EQ(Signal::getSignalFromID(*manager_, kept)->getUnits(), L"V");
  // A unit that is about to be used survives a removal in between.
  Signal late(*manager_);
  late.beginBulkPropertyUpdate();
  late.setUnits(L"A");
  first.remove();
  EXPECT_EQ(count(strings::Unit), 0u);
  late.commitBulkPropertyUpdate();
  EXPECT_EQ(late.getUnits(), L"A");
}

TEST_F(RemovalTest, ARunThatIsBeingWrittenIsRefusedBeforeAnythingIsRemoved) {
  Set writing = fullRun();
  writing.setIsActivelyStreaming(true);
  Set other = run();
  other.lightweightRemove();
  const std::string before = contents();
  EXPECT_EQ(raisedBy([&] { writing.remove(); }), kStreaming);
  EXPECT_EQ(raisedBy([&] { writing.lightweightRemove(); }), kStreaming);
  EXPECT_EQ(raisedBy([&] {
              Set::removeRuns(*manager_, {other.getID(), writing.getID()});
            }),
            kStreaming);
  EXPECT_EQ(contents(), before);
  setFlag(writing.getID(), strings::MarkedForDelete, 1);
  EXPECT_EQ(raisedBy([&] { Set::removeRunsMarkedForDelete(*manager_); }), kStreaming);
  EXPECT_TRUE(exists(other.getID()));
}

TEST_F(RemovalTest, APurgeTakesOnlyRunsOfThisInstance) {
  const auto neighbour = openAs(7);
  Set foreign(*neighbour, true);
  foreign.lightweightRemove();
  EXPECT_EQ(Set::removeRunsMarkedForDelete(*manager_), 0);
  EXPECT_EQ(Set::removeRunsMarkedForDelete(*neighbour), 1);
}

TEST_F(RemovalTest, ReadersKeepTheRunTheyAreReadingWhileItIsRemoved) {
  Set set = fullRun();
  const int id = set.getID();
  const auto reader = openAs(7);
  reader->inReadUnit([&] {
    boost::shared_ptr<Set> seen;
    ASSERT_TRUE(Set::lookupSet(id, seen, *reader));
    set.remove();
    EXPECT_EQ(seen->getNumberOfLeafSignals(), 3);
    EXPECT_EQ(seen->getModel(), L"model");
  });
  boost::shared_ptr<Set> gone;
  EXPECT_FALSE(Set::lookupSet(id, gone, *reader));
}

// The number of statements of a removal must depend on neither signals nor chunks.
TEST_F(RemovalTest, ARemovalTakesAConstantNumberOfStatements) {
  const auto statementsToRemove = [&](int signals, int chunks) {
    Set set = run();
    for (int i = 0; i < signals; ++i) {
      Signal signal(*manager_);
      set.addElement(signal);
      signal.setBlockPath({L"block" + std::to_wstring(i)});
      for (int chunk = 0; chunk < chunks; ++chunk) append(signal, {1.0 * chunk});
    }
    int statements = 0;
    database().setTraceCallback([&](std::string_view) { ++statements; });
    set.remove();
    database().setTraceCallback({});
    return statements;
  };
  statementsToRemove(1, 1);
  const int few = statementsToRemove(2, 1);
  EXPECT_EQ(statementsToRemove(30, 5), few);
  EXPECT_LT(few, 60);
}

TEST_F(RemovalTest, TheOverwriteRunIsOneOfTheInstance) {
  EXPECT_EQ(Set::getOverWriteSetID(*manager_), 0);
  Set first = run();
  Set second = run();
  first.setOverWrite(true);
  second.setOverWrite(true);
  EXPECT_FALSE(first.getOverWrite());
  EXPECT_TRUE(second.getOverWrite());
  EXPECT_EQ(count(strings::OverwriteSet), 1u);
  first.setOverWrite(false);
  EXPECT_EQ(Set::getOverWriteSetID(*manager_), second.getID());
  second.setOverWrite(false);
  EXPECT_EQ(count(strings::OverwriteSet), 0u);

  second.setOverWrite(true);
  second.lightweightRemove();
  EXPECT_EQ(count(strings::OverwriteSet), 0u);

  const auto neighbour = openAs(7);
  Set foreign = handle(Set(*neighbour, true).getID());
  EXPECT_EQ(raisedBy([&] { foreign.setOverWrite(true); }), "nexstore:nex:InvalidData");
  EXPECT_EQ(count(strings::OverwriteSet), 0u);
}

TEST_F(RemovalTest, ReplacedRunsAreKeptAsideOneAtATime) {
  EXPECT_EQ(Set::cacheOverwriteRun(*manager_), 0);
  EXPECT_FALSE(Set::getPriorOverwriteRun(*manager_));
  const int first = overwriteRun();
  for (int time = 0; time < 2; ++time) {
    EXPECT_EQ(Set::cacheOverwriteRun(*manager_), first);
    EXPECT_EQ(Set::getPriorOverwriteRun(*manager_)->getID(), first);
    EXPECT_EQ(flag(first, strings::MarkedForDelete), 0);
    EXPECT_EQ(flag(first, strings::Visible), 1);
  }
  const int second = overwriteRun();
  EXPECT_EQ(Set::cacheOverwriteRun(*manager_), second);
  EXPECT_EQ(flag(first, strings::MarkedForDelete), 1);
  EXPECT_EQ(flag(first, strings::PriorOverwrittenRun), 0);
  EXPECT_EQ(Set::getPriorOverwriteRun(*manager_)->getID(), second);

  // A purge takes the run kept aside too.
  const int third = overwriteRun();
  EXPECT_EQ(Set::removeRunsMarkedForDelete(*manager_), 2);
  EXPECT_THAT(Set::getAllVisibleRunIDs(*manager_), ElementsAre(third));
}

TEST_F(RemovalTest, AnOverwriteRunThatIsGoneIsNoneAtAll) {
  const int prior = overwriteRun();
  Set::cacheOverwriteRun(*manager_);
  const auto record = findFirst(*manager_, strings::OverwriteSet, {});
  Set gone = run();
  record->setPropertyObject(strings::SetID, gone.getObjectReference());
  manager_->removeObject(gone.getID(), strings::DataSet);
  EXPECT_EQ(Set::getOverWriteSetID(*manager_), 0);
  EXPECT_EQ(Set::cacheOverwriteRun(*manager_), 0);
  EXPECT_EQ(count(strings::OverwriteSet), 0u);
  EXPECT_EQ(flag(prior, strings::PriorOverwrittenRun), 1);
}

TEST_F(RemovalTest, AnOverwriteCanBeUndone) {
  EXPECT_EQ(Set::undoOverwrite(*manager_), 0);
  EXPECT_EQ(count(strings::OverwriteSet), 0u);
  const int prior = overwriteRun();
  Set::cacheOverwriteRun(*manager_);
  const int replacement = overwriteRun();
  EXPECT_EQ(Set::undoOverwrite(*manager_), prior);
  EXPECT_EQ(Set::getOverWriteSetID(*manager_), prior);
  EXPECT_FALSE(Set::getPriorOverwriteRun(*manager_));
  EXPECT_EQ(Set::removeRunsMarkedForDelete(*manager_), 0);
  EXPECT_THAT(Set::getAllVisibleRunIDs(*manager_), ElementsAre(prior, replacement));
}

TEST_F(RemovalTest, CompactingGivesEveryFreePageAndTheLogBack) {
  Set set = run();
  Signal signal(*manager_);
  set.addElement(signal);
  std::vector<double> samples(3'000'000);
  for (std::size_t i = 0; i < samples.size(); ++i) samples[i] = static_cast<double>(i);
  append(signal, samples);
  manager_->inTransaction([&] { manager_->createObject(strings::RunNameTemplate, false); });
  const std::uint64_t full = Set::getSpace(*manager_).fileBytes;
  const auto removed = [&] {
    manager_->removeObject(findFirstID(*manager_, strings::TimeChunk, {}), strings::TimeChunk);
    manager_->removeObject(findFirstID(*manager_, strings::DataChunk, {}), strings::DataChunk);
  };
  manager_->inTransaction(removed);
  const Set::Space before = Set::getSpace(*manager_);
  EXPECT_EQ(before.fileBytes, full);
  EXPECT_GT(before.freeBytes, 47'000'000u);
  EXPECT_GT(manager_->compact(), 47'000'000u);
  const Set::Space after = Set::getSpace(*manager_);
  EXPECT_EQ(after.freeBytes, 0u);
  EXPECT_EQ(after.logBytes, 0u);
  EXPECT_LT(std::filesystem::file_size(folder_ / "store.dmr"), 2'000'000u);
  EXPECT_EQ(raisedBy([&] { manager_->inTransaction([&] { manager_->compact(); }); }),
            "KODD:kodd:TransactionActive");
  EXPECT_THAT(problems(), IsEmpty());
}

}  // namespace
}  // namespace vela
