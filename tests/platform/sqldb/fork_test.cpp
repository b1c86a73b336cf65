#include <atomic>
#include <csignal>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "host/locks.h"
#include "sqldbtest.h"

namespace sqldb {
namespace {

using ::testing::IsEmpty;
using Access = Database::Access;

const std::string kForked = "KODD:kodd:ForkedProcess";

class ForkTest : public SqldbTest {
 protected:
  ForkTest() : db_(std::make_unique<Database>(path(), options())) {
    createTable(*db_);
    insert(*db_, 1);
  }

  bool writeLockIsHeld() { return host::FileLock(path() + "-lock").isHeldByAnother(0); }

  std::unique_ptr<Database> db_;
};

TEST_F(ForkTest, TheChildsCopyRefusesEverythingAndLeavesTheFileAlone) {
  const pid_t child = inChild([&] {
    const bool refused =
        idRaisedBy([&] { values(*db_); }) == kForked &&
        idRaisedBy([&] { insert(*db_, 2); }) == kForked &&
        idRaisedBy([&] { db_->beginUnit(Access::write, "unit"); }) == kForked &&
        idRaisedBy([&] { db_->execute("DELETE FROM t"); }) == kForked &&
        idRaisedBy([&] { db_->executeStatement("DELETE FROM t"); }) == kForked &&
        idRaisedBy([&] { db_->checkpoint(); }) == kForked &&
        idRaisedBy([&] { db_->holdInstance(5); }) == kForked &&
        idRaisedBy([&] { db_->isInstanceAlive(5); }) == kForked;
    db_.reset();
    return refused ? 0 : 1;
  });
  EXPECT_EQ(exitCodeOf(child), 0);
  insert(*db_, 2);
  EXPECT_EQ(values(*db_), "1 2");
}

TEST_F(ForkTest, TheChildMayOpenTheFileAnew) {
  for (const bool forgetFirst : {true, false}) {
    SCOPED_TRACE(forgetFirst);
    const pid_t child = inChild([&] {
      if (forgetFirst) db_.reset();
      Database mine(path(), options());
      Unit unit(mine, Access::write, "child");
      insert(mine, 2);
      unit.commit();
      return values(mine).empty() ? 1 : 0;
    });
    EXPECT_EQ(exitCodeOf(child), 0);
  }
  EXPECT_EQ(values(*db_), "1 2 2");
  EXPECT_THAT(db_->integrityProblems(), IsEmpty());
}

// The engine's bookkeeping of the file, inherited by the child, must not make it believe that
// it holds locks: the log index would be taken from under it when the parent and then a third
// process come.
TEST_F(ForkTest, TheChildsOwnConnectionOutlivesTheParents) {
  int toChild[2];
  int toParent[2];
  ASSERT_EQ(pipe(toChild), 0);
  ASSERT_EQ(pipe(toParent), 0);
  char signal = 'x';
  const pid_t child = inChild([&] {
    Database mine(path(), options());
    insert(mine, 2);
    if (write(toParent[1], &signal, 1) != 1 || read(toChild[0], &signal, 1) != 1) return 2;
    for (int i = 0; i < 50; ++i) insert(mine, 3);
    return mine.integrityProblems().empty() ? 0 : 1;
  });
  ASSERT_EQ(read(toParent[0], &signal, 1), 1);
  db_.reset();
  EXPECT_TRUE(engineLocked(path()));
  const pid_t third = inChild([&] {
    Database newcomer(path(), options());
    insert(newcomer, 4);
    return 0;
  });
  EXPECT_EQ(exitCodeOf(third), 0);
  ASSERT_EQ(write(toChild[1], &signal, 1), 1);
  EXPECT_EQ(exitCodeOf(child), 0);

  Database db(path(), options());
  EXPECT_EQ(db.queryText("SELECT count(*) FROM t"), "53");
  EXPECT_THAT(db.integrityProblems(), IsEmpty());
}

TEST_F(ForkTest, AForkInsideAUnitLeavesTheUnitToTheParent) {
  std::optional<Unit> unit(std::in_place, *db_, Access::write, "parent");
  insert(*db_, 2);
  Statement open = db_->statement("SELECT v FROM t");
  open.step();
  const pid_t child = inChild([&] {
    const bool refused = idRaisedBy([&] { open.step(); }) == kForked &&
                         idRaisedBy([&] { unit->commit(); }) == kForked &&
                         idRaisedBy([&] { Database mine(path(), options()); }) == kForked;
    unit.reset();
    { const Statement gone = std::move(open); }
    db_.reset();
    const bool stillRefused = idRaisedBy([&] { Database mine(path(), options()); }) == kForked;
    return refused && stillRefused ? 0 : 1;
  });
  EXPECT_EQ(exitCodeOf(child), 0);
  EXPECT_TRUE(writeLockIsHeld());
  unit->commit();
  EXPECT_FALSE(writeLockIsHeld());
  EXPECT_EQ(values(*db_), "1 2");
}

TEST_F(ForkTest, ALivingChildDoesNotKeepTheParentsLocks) {
  db_->holdInstance(77);
  db_->beginUnit(Access::write, "parent");
  const pid_t child = inChild([] {
    pause();
    return 0;
  });
  db_.reset();
  EXPECT_FALSE(writeLockIsHeld());
  EXPECT_NE(quarantine(path()), "");
  kill(child, SIGKILL);
  exitCodeOf(child);
}

// Children that hang in a lock of the engine, or in one of ours, are ended by the alarm.
TEST_F(ForkTest, AForkBesideBusyThreadsLeavesNoLockBehind) {
  std::atomic<bool> isOver = false;
  const auto busily = [&](const std::string& file) {
    while (!isOver) {
      Database mine(path(file), options());
      createTable(mine);
      for (int i = 0; i < 20; ++i) insert(mine, i);
      values(mine);
      mine.execute("DROP TABLE t");
    }
  };
  std::thread first(busily, "first.db");
  std::thread second(busily, "second.db");
  for (int i = 0; i < 60; ++i) {
    const pid_t child = inChild([&] {
      alarm(20);
      const bool isRefused = idRaisedBy([&] { values(*db_); }) == kForked;
      Database own(path("own" + std::to_string(i) + ".db"), options());
      createTable(own);
      insert(own, 1);
      return isRefused && values(own) == "1" ? 0 : 1;
    });
    EXPECT_EQ(exitCodeOf(child), 0);
  }
  isOver = true;
  first.join();
  second.join();
}

}  // namespace
}  // namespace sqldb
