#include "objectmanager/bulkdeletions.h"

#include <random>
#include <set>

#include "managertest.h"

namespace vela {
namespace {

using testing::ElementsAre;

class BulkDeletionsTest : public test::ManagerTest {
 protected:
  void add(const ObjectRef& object) {
    kodd::ObjectRef reference = object.getObjRef();
    manager_->addObjectForBulkDeletion(reference);
  }
  std::vector<int> existing(const std::string& className) {
    boost::ptr_vector<ObjectRef> all;
    manager_->findObjects(className, {}, all);
    std::vector<int> ids;
    for (const ObjectRef& object : all) ids.push_back(object.getObjectID());
    return ids;
  }

  const kodd::ClassRef runs_ = manager_->getClass("DataSet");
  const kodd::ClassRef signals_ = manager_->getClass("Signal");
};

TEST_F(BulkDeletionsTest, CollectedObjectsGoAtTheCommitOfTheirClass) {
  const auto first = create("DataSet");
  const auto kept = create("DataSet");
  const auto signal = create("Signal");
  manager_->beginBulkObjectDeletion(runs_);
  manager_->beginBulkObjectDeletion(signals_);
  add(*first);
  add(*signal);
  add(*first);                               // twice is no error
  manager_->beginBulkObjectDeletion(runs_);  // keeps what was collected
  EXPECT_EQ(count("DataSet"), 2u);

  manager_->commitBulkObjectDeletion(runs_);
  EXPECT_THAT(existing("DataSet"), ElementsAre(kept->getObjectID()));
  EXPECT_EQ(count("Signal"), 1u);
  manager_->commitBulkObjectDeletion(signals_);
  EXPECT_EQ(count("Signal"), 0u);
}

TEST_F(BulkDeletionsTest, WithoutABeginObjectsGoAtOnce) {
  const auto run = create("DataSet");
  add(*run);
  EXPECT_EQ(count("DataSet"), 0u);
  manager_->commitBulkObjectDeletion(runs_);
  EXPECT_EQ(test::raisedBy([&] { add(*run); }), "KODD:kodd:NoSuchObject");
}

TEST_F(BulkDeletionsTest, WhatIsPendingAtDisconnectIsForgotten) {
  const auto run = create("DataSet");
  manager_->beginBulkObjectDeletion(runs_);
  add(*run);
  manager_->initializeObjectManager("", "");
  manager_->commitBulkObjectDeletion(runs_);
  EXPECT_EQ(count("DataSet"), 1u);
}

TEST_F(BulkDeletionsTest, AnUndoneTransactionTakesBackWhatWasCollectedInIt) {
  const auto before = create("DataSet");
  const auto inside = create("DataSet");
  manager_->beginBulkObjectDeletion(runs_);
  add(*before);
  manager_->beginTransaction();
  add(*inside);
  EXPECT_NE(test::raisedBy([&] { manager_->beginTransaction(); }), "");
  manager_->rollbackTransaction();
  manager_->commitBulkObjectDeletion(runs_);
  EXPECT_THAT(existing("DataSet"), ElementsAre(inside->getObjectID()));
}

// Nested units that collect objects and then succeed or fail at random, against a set that each
// unit copies and puts back when it fails.
class CollectingUnits {
 public:
  CollectingUnits(ObjectManager& manager, boost::ptr_vector<ObjectRef>& objects, unsigned seed)
      : manager_(manager), objects_(objects), random_(seed) {}

  void run(int depth) {
    for (int step = 0; step < 4; ++step) {
      collectOne();
      if (depth < 3 && chance(2)) runUnit(depth + 1);
    }
  }
  const std::set<int>& collected() const { return collected_; }

 private:
  bool chance(int outOf) { return std::uniform_int_distribution<int>(1, outOf)(random_) == 1; }
  void collectOne() {
    const std::size_t which =
        std::uniform_int_distribution<std::size_t>(0, objects_.size() - 1)(random_);
    kodd::ObjectRef object = objects_[which].getObjRef();
    manager_.addObjectForBulkDeletion(object);
    collected_.insert(object.id());
  }
  void runUnit(int depth) {
    const std::set<int> before = collected_;
    DictionaryFunction fn = [&](kodiag::util::diagnostics&) {
      run(depth);
      if (chance(2)) throw std::runtime_error("undone");
    };
    kodiag::util::diagnostics diag;
    manager_.safeTransaction(fn, diag);
    if (!diag.empty()) collected_ = before;
  }

  ObjectManager& manager_;
  boost::ptr_vector<ObjectRef>& objects_;
  std::mt19937 random_;
  std::set<int> collected_;
};

TEST_F(BulkDeletionsTest, UnitsThatFailTakeBackExactlyWhatWasCollectedInThem) {
  for (unsigned seed = 1; seed <= 50; ++seed) {
    SCOPED_TRACE(seed);
    manager_->beginTransaction();
    boost::ptr_vector<ObjectRef> objects;
    std::set<int> expected;
    for (int i = 0; i < 40; ++i) {
      objects.push_back(create("DataSet").release());
      expected.insert(objects.back().getObjectID());
    }
    manager_->beginBulkObjectDeletion(runs_);
    CollectingUnits units(*manager_, objects, seed);
    units.run(0);
    manager_->commitBulkObjectDeletion(runs_);
    for (const int id : units.collected()) expected.erase(id);
    EXPECT_THAT(existing("DataSet"), testing::ElementsAreArray(expected));
    manager_->rollbackTransaction();
  }
}

}  // namespace
}  // namespace vela
