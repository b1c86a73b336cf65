#include <set>

#include "koddtest.h"

namespace kodd {
namespace {

using ::testing::ElementsAre;

class IdsTest : public KoddTest {
 protected:
  /// Every ID must be new, whatever became of the object.
  int createNew(const std::string& className) {
    const int id = create(className).id();
    EXPECT_GT(id, 0);
    EXPECT_TRUE(seen_.insert(id).second) << id << " was given twice";
    return id;
  }

  std::set<int> seen_;
};

TEST_F(IdsTest, RiseInOrderOfCreationBeyondABlock) {
  int last = 0;
  for (int i = 0; i < 600; ++i) {
    const int id = createNew("Run");
    EXPECT_GT(id, last);
    last = id;
    createNew("Note");
  }
  EXPECT_EQ(count("Run"), 600);
}

TEST_F(IdsTest, AreNeverGivenAgain) {
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE(round);
    inUnit([this](diagnostics&) {  // reserves blocks that the file forgets again
      for (int i = 0; i < 300; ++i) createNew("Run");
      inUnit([this](diagnostics&) {
        createNew("Note");
        throw 1;
      });
      createNew("Signal");
      throw 2;
    });
    createNew("Signal");
    createNew("Note");
    ObjectRef deleted = repository_.getObjectRef(createNew("Run"), NoFailure());
    deleted.deleteObject(NoFailure());
    createNew("Run");
    open();
  }
  EXPECT_THAT(repository_.integrityProblems(NoFailure()), ElementsAre());
}

TEST_F(IdsTest, OrderAndEqualityOfHandlesAgree) {
  const ObjectRef first = create("Run");
  const ObjectRef second = create("Note");
  open();
  const ObjectRef again = repository_.getObjectRef(first.id(), NoFailure());
  ASSERT_EQ(again.id(), first.id());
  const ObjectRef all[] = {first, second, again, ObjectRef()};
  for (const ObjectRef& a : all) {
    for (const ObjectRef& b : all) {
      EXPECT_EQ(a == b, (a <=> b) == 0);
      EXPECT_EQ(a<b, b> a);
    }
  }
  EXPECT_TRUE(first < second);
  EXPECT_FALSE(again == first);
}

TEST_F(IdsTest, AUnitThatKeepsFailingUsesUpNoBlocks) {
  for (int i = 0; i < 100; ++i) {
    inUnit([this](diagnostics&) {
      createNew("Run");
      throw 1;
    });
  }
  EXPECT_LT(createNew("Run"), 2 * 256);
}

TEST_F(IdsTest, AnIDOfAnUndoneLevelNeverReachesAnotherProcess) {
  DataModelRepository other;  // stands for another process: a session of its own
  ASSERT_EQ(idOfOpening(other), "");
  int undone = 0;
  inUnit([&](diagnostics&) {
    undone = create("Run").id();
    throw 1;
  });
  const ObjectRef theirs = other.createObject(cls("Run"), NoFailure());
  EXPECT_NE(theirs.id() / 256, undone / 256);
  EXPECT_FALSE(exists(undone));
  EXPECT_NE(create("Run").id() / 256, theirs.id() / 256);

  open();  // the process ends, and another one comes
  EXPECT_GT(create("Note").id() / 256, undone / 256);
}

TEST_F(IdsTest, ObjectsOfRolledBackLevelsAreGone) {
  ObjectRef undone;
  inUnit([&](diagnostics&) {
    undone = create("Run");
    throw 1;
  });
  create("Run");
  int number = 0;
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) {
              undone.getPropertyValue(prop("Run", "Number"), number, diag);
            }),
            "KODD:kodd:InvalidObject");
  EXPECT_FALSE(exists(undone.id()));
}

TEST_F(IdsTest, RunOutWithAnErrorInsteadOfStartingAgain) {
  repository_.getDB()->execute("INSERT INTO kodd_blocks(b,class) VALUES(8388606,1)");
  const int last = createNew("Run");
  EXPECT_EQ(last, 8388607 * 256);
  EXPECT_EQ(
      idLeftBy([this](diagnostics& diag) { repository_.createObject(cls("Note"), diag); }),
      "KODD:kodd:OutOfIDs");
  createNew("Run");  // what is left of a block still serves
}

}  // namespace
}  // namespace kodd
