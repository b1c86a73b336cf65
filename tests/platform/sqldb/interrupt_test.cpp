#include "host/interrupt.h"

#include <utility>

#include "host/locks.h"
#include "sqldbtest.h"

namespace sqldb {
namespace {

/// Asks for one stop; nobody asks before or after.
class InterruptTest : public SqldbTest {
 protected:
  InterruptTest() {
    host::setInterruptPoll([] { return std::exchange(isStopWanted, false); });
  }
  ~InterruptTest() override { host::setInterruptPoll(nullptr); }

  static inline bool isStopWanted = false;
};

TEST_F(InterruptTest, AStoppedStatementUndoesItsUnit) {
  Database db(path(), options());
  createTable(db);
  insert(db, 1);
  {
    Unit unit(db, Database::Access::write, "fill");
    insert(db, 2);
    isStopWanted = true;
    EXPECT_EQ(idRaisedBy([&] {
                db.execute(
                    "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
                    "LIMIT 1000000000) INSERT INTO t(v) SELECT max(i) FROM n");
              }),
              "KODD:kodd:Interrupted");
  }
  EXPECT_EQ(values(db), "1");
  insert(db, 3);
  EXPECT_EQ(values(db), "1 3");
}

TEST_F(InterruptTest, AStoppedWaitForTheWriteLockLeavesTheQueue) {
  Database db(path(), options());
  createTable(db);
  const pid_t writer = inChild([&] {
    Database theirs(path(), options());
    Unit unit(theirs, Database::Access::write, "stay");
    writeBytes(path("begun"), "");
    return pause();
  });
  while (!std::filesystem::exists(path("begun"))) usleep(1000);

  isStopWanted = true;
  EXPECT_EQ(idRaisedBy([&] { insert(db, 1); }), "KODD:kodd:Interrupted");
  host::FileLock lockFile(path() + "-lock");
  EXPECT_FALSE(lockFile.isHeldByAnother(2));  // the byte of the queue

  kill(writer, SIGKILL);
  exitCodeOf(writer);
  insert(db, 2);
  EXPECT_EQ(values(db), "2");
}

}  // namespace
}  // namespace sqldb
