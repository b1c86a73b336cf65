// Fails the store at every write and commit of an operation in turn: everything stored is as it
// was before, and the same call then succeeds.
#include <functional>
#include <stdexcept>

#include "tests/lifecycle/lifecycletest.h"

namespace vela {
namespace {

using testing::IsEmpty;

class LifecycleFailuresTest : public test::LifecycleTest {
 protected:
  ~LifecycleFailuresTest() override { database().setWriteCallback({}); }

  /// \returns whether it succeeded although its `failing`th write was to fail
  bool survives(int failing, const std::function<void()>& operation) {
    int writes = 0;
    database().setWriteCallback([&] {
      if (++writes == failing) throw std::runtime_error("this write fails");
    });
    bool succeeded = true;
    try {
      operation();
    } catch (const std::exception&) {
      succeeded = false;
    }
    database().setWriteCallback({});
    return succeeded;
  }

  void expectAllOrNothing(int writesAtLeast, const std::function<void()>& operation) {
    const std::string before = contents();
    const auto censusBefore = census();
    int failing = 1;
    while (!survives(failing, operation)) {
      SCOPED_TRACE(failing);
      ASSERT_EQ(census(), censusBefore);
      ASSERT_EQ(contents(), before);
      ++failing;
    }
    EXPECT_GT(failing, writesAtLeast);
    EXPECT_NE(contents(), before);
    EXPECT_THAT(problems(), IsEmpty());
  }
};

TEST_F(LifecycleFailuresTest, AnImportIsAllOrNothing) {
  run();
  closedInstance(7, 2);
  closedInstance(8, 1);
  // Nobody has noticed yet that this one is dead.
  {
    const auto dead = openAs(9);
    Set set(*dead, true);
    set.setIsActivelyStreaming(true);
    set.setOverWrite(true);
  }
  expectAllOrNothing(15, [&] { Set::importClosedInstances(*manager_); });
  EXPECT_EQ(Set::getHighestRunNumber(*manager_), 5);
}

TEST_F(LifecycleFailuresTest, DiscardingIsAllOrNothing) {
  closedInstance(7, 2);
  closedInstance(8, 1);
  expectAllOrNothing(30, [&] { Set::removeClosedInstances(*manager_, true); });
  EXPECT_THAT(Set::getAllVisibleRunIDs(*manager_, Set::Application::AllApplications,
                                       Set::Sessions::all),
              IsEmpty());
}

TEST_F(LifecycleFailuresTest, ARemovalIsAllOrNothing) {
  Set set = fullRun();
  set.setOverWrite(true);
  expectAllOrNothing(15, [&] { set.remove(); });
}

TEST_F(LifecycleFailuresTest, HidingIsAllOrNothing) {
  Set set = fullRun();
  set.setOverWrite(true);
  expectAllOrNothing(4, [&] { set.lightweightRemove(); });
}

TEST_F(LifecycleFailuresTest, APurgeIsAllOrNothing) {
  fullRun().lightweightRemove();
  fullRun().lightweightRemove();
  expectAllOrNothing(15, [&] { Set::removeRunsMarkedForDelete(*manager_); });
}

TEST_F(LifecycleFailuresTest, ACopyIsAllOrNothing) {
  Set set = fullRun();
  expectAllOrNothing(20, [&] { set.clone(Set::Application::VELA); });
}

TEST_F(LifecycleFailuresTest, KeepingTheOverwriteRunAsideIsAllOrNothing) {
  run().setOverWrite(true);
  Set::cacheOverwriteRun(*manager_);
  run().setOverWrite(true);
  expectAllOrNothing(4, [&] { Set::cacheOverwriteRun(*manager_); });
}

TEST_F(LifecycleFailuresTest, UndoingAnOverwriteIsAllOrNothing) {
  run().setOverWrite(true);
  Set::cacheOverwriteRun(*manager_);
  run().setOverWrite(true);
  expectAllOrNothing(4, [&] { Set::undoOverwrite(*manager_); });
}

}  // namespace
}  // namespace vela
