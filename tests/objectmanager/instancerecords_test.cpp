#include "objectmanager/instancerecords.h"

#include "managertest.h"

namespace vela {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

class InstanceRecordsTest : public test::ManagerTest {
 protected:
  ~InstanceRecordsTest() override { setShowAtTopPreference({}); }

  std::unique_ptr<ObjectManager> openAs(long long instanceID) const {
    auto manager = std::make_unique<ObjectManager>(location());
    manager->setInstanceID(static_cast<unsigned long long>(instanceID));
    manager->initializeObjectManager("", "");
    return manager;
  }
  /// ID and "closed" of every row of the instance table, in order of creation.
  std::vector<std::pair<long long, int>> instances() {
    return pairs("InstanceID", "id", "IsClosed");
  }
  /// Instance and "show at top" of every run-order record.
  std::vector<std::pair<long long, int>> orders() {
    return pairs("MinMaxOrderIndex", "InstanceID", "ShowAtTop");
  }
  std::vector<std::pair<long long, int>> pairs(const char* className, const char* first,
                                               const char* second) {
    boost::ptr_vector<ObjectRef> rows;
    manager_->findObjects(className, {}, rows);
    std::vector<std::pair<long long, int>> pairs;
    for (const ObjectRef& row : rows) {
      pairs.emplace_back(row.getPropertyInt64(first), row.getPropertyInt32(second));
    }
    return pairs;
  }
  /// A process that has the file open as that instance.
  std::unique_ptr<test::WaitingProcess> neighbour(long long instanceID) const {
    return std::make_unique<test::WaitingProcess>([&](const std::function<void()>& ready) {
      const auto manager = openAs(instanceID);
      ready();
      pause();
    });
  }
};

TEST_F(InstanceRecordsTest, OpeningAsAnInstanceRecordsItOnce) {
  EXPECT_THAT(instances(), IsEmpty());
  EXPECT_THAT(orders(), IsEmpty());
  for (int time = 0; time < 2; ++time) {
    const auto manager = openAs(1LL << 40);
    manager->ensureInstanceRecords();
    EXPECT_TRUE(manager->getOpeningNotices().empty());
  }
  EXPECT_THAT(instances(), ElementsAre(Pair(1LL << 40, 0)));
  EXPECT_THAT(orders(), ElementsAre(Pair(1LL << 40, 0)));
}

TEST_F(InstanceRecordsTest, TheSharedIDsOfPrivateFilesAndChildrenHaveOrderRecordsOnly) {
  manager_->ensureInstanceRecords();
  const auto child = openAs(ObjectManager::RACCEL_INSTANCE_ID);
  EXPECT_TRUE(child->getIsRapidAccelProcess());
  EXPECT_THAT(instances(), IsEmpty());
  EXPECT_THAT(orders(), ElementsAre(Pair(0, 0), Pair(1, 0)));
}

TEST_F(InstanceRecordsTest, ClosingMarksTheOwnRowAndReopeningTakesItBack) {
  const auto other = openAs(8);
  {
    const auto manager = openAs(7);
    manager->setInstanceClosed();
    EXPECT_THAT(instances(), ElementsAre(Pair(8, 0), Pair(7, 1)));
    manager->ensureInstanceRecords();
    EXPECT_THAT(instances(), ElementsAre(Pair(8, 0), Pair(7, 0)));
    manager->setInstanceClosed();
  }
  openAs(7);
  EXPECT_THAT(instances(), ElementsAre(Pair(8, 0), Pair(7, 0)));
}

TEST_F(InstanceRecordsTest, AChangedIDLeavesTheOldRecordsOnlyWhereItHasRuns) {
  manager_->setInstanceID(7);
  EXPECT_EQ(manager_->getInstanceID(), 7);
  EXPECT_THAT(instances(), ElementsAre(Pair(7, 0)));
  manager_->setInstanceID(8);
  EXPECT_THAT(instances(), ElementsAre(Pair(8, 0)));
  EXPECT_THAT(orders(), ElementsAre(Pair(8, 0)));

  create("DataSet")->setPropertyInt64("InstanceID", 8);
  manager_->setIsRapidAccelProcess();
  EXPECT_EQ(manager_->getInstanceID(), 1);
  EXPECT_THAT(instances(), ElementsAre(Pair(8, 0)));
  EXPECT_THAT(orders(), ElementsAre(Pair(8, 0), Pair(1, 0)));
  // Nobody lives under the ID that was given up.
  manager_->closeDeadInstances();
  EXPECT_THAT(instances(), ElementsAre(Pair(8, 1)));
}

TEST_F(InstanceRecordsTest, TheOrderRecordTakesTheUsersPreference) {
  setShowAtTopPreference([] { return 1; });
  openAs(7);
  setShowAtTopPreference([]() -> int { throw std::runtime_error("no preferences"); });
  openAs(8);
  openAs(7);
  EXPECT_THAT(orders(), ElementsAre(Pair(7, 1), Pair(8, 0)));
}

TEST_F(InstanceRecordsTest, OnlyInstancesWhoseProcessIsGoneAreClosedForThem) {
  manager_.reset();
  const auto living = neighbour(7);
  const auto killed = neighbour(8);
  ASSERT_TRUE(living->isReady() && killed->isReady());
  killed->kill();
  reopen();
  manager_->setInstanceID(9);
  // A row for the children's common ID, put there by hand, is nobody's to close.
  create("InstanceID")->setPropertyInt64("id", ObjectManager::RACCEL_INSTANCE_ID);
  manager_->closeDeadInstances();
  EXPECT_THAT(instances(), ElementsAre(Pair(7, 0), Pair(8, 1), Pair(9, 0), Pair(1, 0)));

  living->kill();
  manager_->closeDeadInstances();
  EXPECT_THAT(instances(), ElementsAre(Pair(7, 1), Pair(8, 1), Pair(9, 0), Pair(1, 0)));
}

}  // namespace
}  // namespace vela
