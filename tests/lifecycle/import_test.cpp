// Runs of closed instances, of farm workers and of rapid-accelerator children change hands or
// are discarded.
#include "tests/lifecycle/lifecycletest.h"

namespace vela {
namespace {

using Application = Set::Application;
using State = Set::Instance::State;
using testing::ElementsAre;
using testing::IsEmpty;

class ImportTest : public test::LifecycleTest {
 protected:
  std::vector<long long> rows() {
    boost::ptr_vector<ObjectRef> found;
    manager_->findObjects(strings::InstanceID, {}, found);
    std::vector<long long> ids;
    for (const ObjectRef& row : found) ids.push_back(row.getPropertyInt64(strings::IDLower));
    return ids;
  }
  /// Records of that class that carry the instance's ID.
  int recordsOf(const std::string& className, long long instanceID) {
    return countObjects(*manager_, className, {equals(strings::InstanceID, instanceID)});
  }
  int ownPlace(const std::string& end) {
    return findFirst(*manager_, strings::MinMaxOrderIndex,
                     {equals(strings::InstanceID, test::kOwn)})
        ->getPropertyInt32(end);
  }
  /// A run as an instance writes it that has no row, or whose row is put there by hand.
  Set runOf(long long instanceID) {
    const auto manager = openAs(instanceID);
    return handle(Set(*manager, true).getID());
  }
};

TEST_F(ImportTest, ImportedRunsContinueTheNumbersInTheirOldOrder) {
  for (int i = 0; i < 4; ++i) run();
  const std::vector<int> first = closedInstance(8, 2);
  const std::vector<int> second = closedInstance(7, 3);
  // The list of an instance need not be in creation order.
  handle(second[0]).setOrderIndex(9);
  const std::vector<int> imported = Set::importClosedInstances(*manager_);
  EXPECT_THAT(imported, ElementsAre(first[0], first[1], second[1], second[2], second[0]));
  EXPECT_THAT(numbersOf(imported), ElementsAre(5, 6, 7, 8, 9));
  EXPECT_EQ(Set::getHighestRunNumber(*manager_), 9);
  std::vector<int> places;
  for (const int id : imported) {
    EXPECT_EQ(instanceOf(id), test::kOwn);
    places.push_back(handle(id).getOrderIndex());
  }
  EXPECT_THAT(places, ElementsAre(5, 6, 7, 8, 9));
  EXPECT_EQ(ownPlace(strings::MaxIndex), 9);
  EXPECT_THAT(rows(), ElementsAre(test::kOwn));
  for (const long long id : {7, 8}) {
    EXPECT_EQ(recordsOf(strings::RunNumberByRunID, id), 0);
    EXPECT_EQ(recordsOf(strings::MinMaxOrderIndex, id), 0);
  }
  EXPECT_EQ(run().getRunNumber(), 10);
}

TEST_F(ImportTest, ARunGetsOneNumberWhateverItHadBefore) {
  const std::vector<int> old = closedInstance(7, 1);
  Set unnumbered(*manager_, false);
  unnumbered.setInstanceID(7);
  Set numberedElsewhere = run();
  numberedElsewhere.setInstanceID(7);
  const std::vector<int> imported = Set::importClosedInstances(*manager_);
  EXPECT_EQ(imported.size(), 3u);
  EXPECT_THAT(numbersOf(imported), ElementsAre(2, 3, 4));
  // One each, and our counter.
  EXPECT_EQ(count(strings::RunNumberByRunID), 4u);
  EXPECT_EQ(recordsOf(strings::RunNumberByRunID, test::kOwn), 4);
}

TEST_F(ImportTest, AListThatGrowsAtTheTopTakesRunsThere) {
  Set::initializeDefaultRunNameTemplateAndShowAtTopFlag(L"", true, *manager_);
  run();
  const std::vector<int> old = closedInstance(7, 2);
  Set::importClosedInstances(*manager_);
  EXPECT_EQ(handle(old[0]).getOrderIndex(), -2);
  EXPECT_EQ(handle(old[1]).getOrderIndex(), -3);
  EXPECT_EQ(ownPlace(strings::MinIndex), -3);
  EXPECT_EQ(ownPlace(strings::MaxIndex), 0);
}

TEST_F(ImportTest, NothingToImportChangesNothing) {
  run();
  const std::string before = contents();
  EXPECT_THAT(Set::importClosedInstances(*manager_), IsEmpty());
  std::vector<int> runs = {4711};
  Set::importCompletedRapidAccelRuns(*manager_, runs);
  EXPECT_THAT(runs, IsEmpty());
  EXPECT_EQ(Set::removeClosedInstances(*manager_, true), 0);
  EXPECT_EQ(contents(), before);
}

TEST_F(ImportTest, RunsOfOtherApplicationsKeepTheirInstance) {
  const int managed = closedInstance(7, 1).front();
  handle(managed).setApplication(Application::QRVRun);
  EXPECT_EQ(Set::getRunCountFromClosedInstances(*manager_, Application::AllVELA), 0);
  EXPECT_TRUE(Set::isDataFromClosedInstances(*manager_, Application::QRVRun));
  for (const bool discards : {false, true}) {
    SCOPED_TRACE(discards);
    if (discards) {
      EXPECT_EQ(Set::removeClosedInstances(*manager_, false), 0);
    } else {
      EXPECT_THAT(Set::importClosedInstances(*manager_), IsEmpty());
    }
    EXPECT_THAT(rows(), ElementsAre(test::kOwn, 7));
    EXPECT_EQ(instanceOf(managed), 7);
    EXPECT_EQ(handle(managed).getRunNumber(), 1);
  }
}

TEST_F(ImportTest, WhatADeadProcessWasDoingIsOver) {
  int id = 0;
  {
    const auto dead = openAs(7);
    Set set(*dead, true);
    id = set.getID();
    Signal signal(*dead);
    set.addElement(signal);
    signal.setIsActivelyStreaming(true);
    set.setIsActivelyStreaming(true);
    set.setOverWrite(true);
    Set::cacheOverwriteRun(*dead);
  }
  naming(strings::ActiveSimulation, strings::SetID, handle(id).getObjectReference());
  EXPECT_THAT(Set::importClosedInstances(*manager_), ElementsAre(id));
  EXPECT_FALSE(handle(id).isActivelyStreaming());
  EXPECT_EQ(flag(id, strings::PriorOverwrittenRun), 0);
  EXPECT_EQ(count(strings::ActiveSimulation), 0u);
  EXPECT_EQ(count(strings::OverwriteSet), 0u);
  const auto signal = findFirst(*manager_, strings::Signal, {});
  EXPECT_EQ(signal->getPropertyInt32(strings::IsActivelyStreaming), 0);
  EXPECT_EQ(signal->getPropertyInt64(strings::InstanceID), test::kOwn);
  handle(id).remove();
}

TEST_F(ImportTest, ARunAChildIsWritingStaysWithItsRecords) {
  const int finished = runOf(ObjectManager::RACCEL_INSTANCE_ID).getID();
  const int streaming = runOf(ObjectManager::RACCEL_INSTANCE_ID).getID();
  handle(streaming).setIsActivelyStreaming(true);
  std::vector<int> runs;
  Set::importCompletedRapidAccelRuns(*manager_, runs);
  EXPECT_THAT(runs, ElementsAre(finished));
  EXPECT_EQ(instanceOf(streaming), 1);
  EXPECT_EQ(handle(streaming).getRunNumber(), 2);
  EXPECT_EQ(recordsOf(strings::MinMaxOrderIndex, 1), 1);
  // Number of the run, and the counter.
  EXPECT_EQ(recordsOf(strings::RunNumberByRunID, 1), 2);
  EXPECT_EQ(runOf(ObjectManager::RACCEL_INSTANCE_ID).getRunNumber(), 3);

  handle(streaming).setIsActivelyStreaming(false);
  Set::importCompletedRapidAccelRuns(*manager_, runs);
  EXPECT_EQ(runs.size(), 2u);
  EXPECT_EQ(recordsOf(strings::MinMaxOrderIndex, 1), 0);
  EXPECT_EQ(recordsOf(strings::RunNumberByRunID, 1), 0);
}

TEST_F(ImportTest, TheRowOfChildrenIsNeverRemovedNorTheRunsTheyAreWriting) {
  const auto row = create(strings::InstanceID);
  row->setPropertyInt64(strings::IDLower, ObjectManager::RACCEL_INSTANCE_ID);
  row->setPropertyInt32(strings::IsClosed, 1);
  const int streaming = runOf(ObjectManager::RACCEL_INSTANCE_ID).getID();
  handle(streaming).setIsActivelyStreaming(true);
  EXPECT_FALSE(Set::isDataFromClosedInstances(*manager_, Application::AllVELA));
  EXPECT_THAT(Set::importClosedInstances(*manager_), IsEmpty());
  EXPECT_EQ(Set::removeClosedInstances(*manager_, false), 0);
  EXPECT_TRUE(exists(streaming));
  handle(streaming).setIsActivelyStreaming(false);
  EXPECT_EQ(Set::removeClosedInstances(*manager_, false), 1);
  EXPECT_FALSE(exists(streaming));
  EXPECT_THAT(rows(), ElementsAre(test::kOwn, 1));
}

TEST_F(ImportTest, FarmWorkersAreImportedOnceAndOpenOnesKeepWhatTheyWrite) {
  const std::vector<int> closed = closedInstance(7, 1);
  const auto worker = openAs(8);
  const int finished = Set(*worker, true).getID();
  Set writing(*worker, true);
  writing.setIsActivelyStreaming(true);
  boost::ptr_vector<ObjectRef> rows;
  manager_->findObjects(strings::InstanceID, {}, rows);
  // We are a worker ourselves.
  for (ObjectRef& row : rows) row.setPropertyInt32(strings::IsFarmWorker, 1);
  std::vector<long long> workers = {5};
  Set::appendFarmWorkerInstances(*manager_, workers);
  EXPECT_THAT(workers, ElementsAre(5, test::kOwn, 7, 8));

  const int own = run().getID();
  EXPECT_THAT(Set::importClosedInstances(*manager_), ElementsAre(closed[0], finished));
  EXPECT_EQ(handle(own).getRunNumber(), 1);
  EXPECT_EQ(instanceOf(writing.getID()), 8);
  EXPECT_EQ(writing.getRunNumber(), 2);
  EXPECT_TRUE(writing.isActivelyStreaming());
}

TEST_F(ImportTest, OurOwnClosedRowIsNoSource) {
  const int own = run().getID();
  manager_->setInstanceClosed();
  std::vector<long long> closed;
  Set::getClosedInstances(*manager_, closed);
  EXPECT_THAT(closed, ElementsAre(test::kOwn));
  EXPECT_FALSE(Set::isDataFromClosedInstances(*manager_, Application::AllVELA));
  EXPECT_THAT(Set::importClosedInstances(*manager_), IsEmpty());
  EXPECT_EQ(Set::removeClosedInstances(*manager_, false), 0);
  EXPECT_EQ(handle(own).getRunNumber(), 1);
  EXPECT_EQ(Set::getHighestRunNumber(*manager_), 1);
}

TEST_F(ImportTest, DiscardingTakesAllOfAClosedInstanceAndNothingElse) {
  run();
  const auto living = openAs(9);
  Set(*living, true);
  const auto before = census();
  {
    auto dead = openAs(7);
    manager_.swap(dead);
    fullRun().setOverWrite(true);
    const Signal free(*manager_);
    const Signal orphan(*manager_);
    orphan.getObjectReference().setPropertyInt32(strings::FK_SetID, 255);
    manager_->setInstanceClosed();
    manager_.swap(dead);
  }
  EXPECT_EQ(Set::removeClosedInstances(*manager_, true), 1);
  auto after = before;
  // A signal of no run is nobody's to discard. Data types are everybody's.
  ++after[strings::Signal];
  after[strings::DataType] = count(strings::DataType);
  EXPECT_EQ(census(), after);
  EXPECT_THAT(problems(), IsEmpty());
}

TEST_F(ImportTest, InstancesAreListedWithWhatBecameOfThem) {
  closedInstance(7, 2);
  {
    const auto dead = openAs(8);
    Set(*dead, true).setIsActivelyStreaming(true);
  }
  const auto living = openAs(9);
  Set(*living, true).getObjectReference().setPropertyInt32(strings::Visible, 0);
  runOf(ObjectManager::RACCEL_INSTANCE_ID);
  const auto instances = Set::getInstances(*manager_);
  std::vector<std::pair<long long, State>> states;
  for (const auto& instance : instances) states.emplace_back(instance.id, instance.state);
  using testing::Pair;
  EXPECT_THAT(states, ElementsAre(Pair(test::kOwn, State::alive), Pair(7, State::closed),
                                  Pair(8, State::crashed), Pair(9, State::alive),
                                  Pair(1, State::untracked)));
  EXPECT_TRUE(instances[0].isOwn);
  EXPECT_EQ(instances[1].runs, 2);
  EXPECT_EQ(instances[1].visibleRuns, 2);
  EXPECT_EQ(instances[2].streamingRuns, 1);
  EXPECT_EQ(instances[3].runs, 1);
  EXPECT_EQ(instances[3].visibleRuns, 0);
  // Whoever comes back has not crashed.
  const auto again = openAs(8);
  EXPECT_EQ(Set::getInstances(*manager_)[2].state, State::alive);
}

TEST_F(ImportTest, TheRepositoryIsEmptyWhenNobodyElseLivesAndNothingOfOursIsLeft) {
  const Set own = run();
  EXPECT_FALSE(Set::repositoryIsEmpty(*manager_));
  handle(own.getID()).lightweightRemove();
  closedInstance(7, 1);
  EXPECT_TRUE(Set::repositoryIsEmpty(*manager_));
  {
    const auto living = openAs(8);
    EXPECT_FALSE(Set::repositoryIsEmpty(*manager_));
  }
  EXPECT_TRUE(Set::repositoryIsEmpty(*manager_));
  for (const std::string& kept : {strings::YarrowSignals, strings::QRVTestSuite}) {
    const int id = create(kept)->getObjectID();
    EXPECT_FALSE(Set::repositoryIsEmpty(*manager_)) << kept;
    manager_->removeObject(id, kept);
  }
}

}  // namespace
}  // namespace vela
