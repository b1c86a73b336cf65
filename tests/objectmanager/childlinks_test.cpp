#include "objectmanager/childlinks.h"

#include "managertest.h"

namespace vela {
namespace {

using test::raisedBy;
using testing::ElementsAre;
using testing::IsEmpty;

class ChildLinksTest : public test::ManagerTest {
 protected:
  std::vector<int> signalsOf(const ObjectRef& parent) {
    boost::ptr_vector<ObjectRef> children;
    parent.getChildren("Signal", kodd::MatchConstraints(), children);
    std::vector<int> ids;
    for (const ObjectRef& child : children) ids.push_back(child.getObjectID());
    return ids;
  }

  std::unique_ptr<ObjectRef> run_ = create("DataSet");
  std::unique_ptr<ObjectRef> other_ = create("DataSet");
  std::unique_ptr<ObjectRef> signal_ = create("Signal");
};

TEST_F(ChildLinksTest, AChildBelongsToOneParentAtATime) {
  EXPECT_FALSE(run_->isChild(*signal_));
  run_->addChild(*signal_);
  run_->addChild(*signal_);
  EXPECT_TRUE(run_->isChild(*signal_));
  EXPECT_THAT(signalsOf(*run_), ElementsAre(signal_->getObjectID()));
  EXPECT_EQ(signal_->getPropertyInt32("FK_SetID"), run_->getObjectID());

  other_->addChild(*signal_);
  EXPECT_FALSE(run_->isChild(*signal_));
  EXPECT_TRUE(other_->isChild(*signal_));
  EXPECT_THAT(signalsOf(*run_), IsEmpty());

  run_->removeChild(*signal_);  // no member: nothing happens
  EXPECT_TRUE(other_->isChild(*signal_));
  other_->removeChild(*signal_);
  EXPECT_FALSE(other_->isChild(*signal_));
  EXPECT_EQ(signal_->getPropertyInt32("FK_SetID"), 0);
}

TEST_F(ChildLinksTest, ParentsHoldOnlyTheChildrenTheirClassDeclares) {
  // "DataSet" is a property of this class, but it holds no children.
  const std::unique_ptr<ObjectRef> metaData = create("OutputMetaData");
  boost::ptr_vector<ObjectRef> results;
  EXPECT_EQ(raisedBy([&] { metaData->addChild(*run_); }), "KODD:kodd:InvalidProperty");
  EXPECT_EQ(raisedBy([&] { run_->addChild(*other_); }), "KODD:kodd:InvalidProperty");
  EXPECT_EQ(raisedBy([&] { run_->isChild(*other_); }), "KODD:kodd:InvalidProperty");
  EXPECT_EQ(raisedBy([&] { manager_->findObjects(*run_, "Chunk", {}, results); }),
            "KODD:kodd:InvalidProperty");
}

TEST_F(ChildLinksTest, FindsOnlyTheChildrenThatSatisfyTheConstraints) {
  const std::unique_ptr<ObjectRef> second = create("Signal");
  const std::unique_ptr<ObjectRef> stranger = create("Signal");
  run_->addChild(*second);
  run_->addChild(*signal_);
  other_->addChild(*stranger);
  signal_->setPropertyInt32("PortIndex", 4);
  stranger->setPropertyInt32("PortIndex", 4);
  EXPECT_THAT(signalsOf(*run_), ElementsAre(signal_->getObjectID(), second->getObjectID()));

  boost::ptr_vector<ObjectRef> results;
  manager_->findObjects(*run_, "Signal",
                        {{"PortIndex", 4, kodd::PropertyValueMatchRelation::Equal}}, results);
  ASSERT_EQ(results.size(), 1u);
  EXPECT_EQ(results.front().getObjectID(), signal_->getObjectID());
}

TEST_F(ChildLinksTest, ObjectsOfAnotherRepositoryAreNoChildren) {
  ObjectManager elsewhere;
  elsewhere.initializeObjectManager("", "");
  const std::unique_ptr<ObjectRef> foreignRun = elsewhere.createObject("DataSet", true);
  const std::unique_ptr<ObjectRef> foreignSignal = elsewhere.createObject("Signal", true);
  foreignRun->addChild(*foreignSignal);
  ASSERT_EQ(foreignRun->getObjectID(), run_->getObjectID());
  run_->addChild(*signal_);
  EXPECT_FALSE(run_->isChild(*foreignSignal));
  EXPECT_NE(raisedBy([&] { run_->addChild(*foreignSignal); }), "");
  EXPECT_THAT(signalsOf(*run_), ElementsAre(signal_->getObjectID()));
}

}  // namespace
}  // namespace vela
