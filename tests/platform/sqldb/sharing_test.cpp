#include <algorithm>
#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <random>
#include <thread>

#include "host/locks.h"
#include "sqldbtest.h"

namespace sqldb {
namespace {

using ::testing::IsEmpty;
using Access = Database::Access;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

Milliseconds since(Clock::time_point start) {
  return std::chrono::duration_cast<Milliseconds>(Clock::now() - start);
}

class SharingTest : public SqldbTest {
 protected:
  void createCounters() {
    Database db(path(), options());
    db.execute(
        "CREATE TABLE counter(n); INSERT INTO counter VALUES (0);"
        "CREATE TABLE entry(id INTEGER PRIMARY KEY, n, who, payload)");
  }
  /// Reads, adds one, writes: two writers at once would lose a step.
  static void countUp(Database& db, int who, std::size_t payload = 200) {
    Unit unit(db, Access::write, "count up");
    const long long next = std::stoll(db.queryText("SELECT n FROM counter")) + 1;
    Statement update = db.statement("UPDATE counter SET n = ?1");
    update.bind(1, next);
    update.run();
    Statement insert = db.statement("INSERT INTO entry(n, who, payload) VALUES (?1, ?2, ?3)");
    insert.bind(1, next);
    insert.bind(2, who);
    insert.bindZeroBlob(3, payload);
    insert.run();
    unit.commit();
  }
  static std::string count(Database& db) { return db.queryText("SELECT n FROM counter"); }
  static void expectConsistent(Database& db) {
    EXPECT_EQ(count(db), db.queryText("SELECT count(*) FROM entry"));
    EXPECT_EQ(count(db), db.queryText("SELECT coalesce(max(n), 0) FROM entry"));
    EXPECT_THAT(db.integrityProblems(), IsEmpty());
  }
};

TEST_F(SharingTest, ThreadsWithConnectionsOfTheirOwnTakeTurns) {
  createCounters();
  std::vector<std::thread> threads;
  for (int who = 0; who < 3; ++who) {
    threads.emplace_back([&, who] {
      Database db(path(), options());
      for (int i = 0; i < 300; ++i) countUp(db, who);
    });
  }
  for (std::thread& thread : threads) thread.join();
  Database db(path(), options());
  EXPECT_EQ(count(db), "900");
  expectConsistent(db);
}

TEST_F(SharingTest, TwoBusyProcessesBothGetThrough) {
  constexpr int kUnits = 10'000;
  createCounters();
  const auto start = Clock::now();
  pid_t children[2];
  for (int who = 0; who < 2; ++who) {
    children[who] = inChild([&] {
      Database db(path(), options());
      Milliseconds longest{0};
      for (int i = 0; i < kUnits; ++i) {
        const auto before = Clock::now();
        countUp(db, who);
        longest = std::max(longest, since(before));
      }
      std::printf("process %d: longest unit %lld ms\n", who,
                  static_cast<long long>(longest.count()));
      std::fflush(stdout);
      return longest < Milliseconds(5000) ? 0 : 1;
    });
  }
  for (const pid_t child : children) EXPECT_EQ(exitCodeOf(child), 0);
  std::printf("together %lld ms\n", static_cast<long long>(since(start).count()));

  Database db(path(), options());
  EXPECT_EQ(count(db), std::to_string(2 * kUnits));
  expectConsistent(db);
  // Of the first half, each has its part: neither had to wait for the other to finish.
  const int first = std::stoi(db.queryText(
      "SELECT count(*) FROM entry WHERE who = 0 AND n <= " + std::to_string(kUnits)));
  std::printf("of the first half, %d by process 0\n", first);
  EXPECT_GT(first, kUnits / 10);
  EXPECT_LT(first, kUnits - kUnits / 10);
}

TEST_F(SharingTest, AProcessThatWritesWithoutPauseLetsOthersIn) {
  createCounters();
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t greedy = inChild([&] {
    Database db(path(), options());
    for (;;) {
      Unit unit(db, Access::write, "long");
      if (db.queryText("SELECT n FROM counter") == "0" && write(ready[1], "x", 1) != 1)
        return 1;
      const auto start = Clock::now();
      while (since(start) < Milliseconds(5)) {
      }
      unit.commit();
    }
  });
  char signal = 0;
  ASSERT_EQ(read(ready[0], &signal, 1), 1);
  {
    Database db(path(), options());
    const auto start = Clock::now();
    for (int i = 0; i < 20; ++i) countUp(db, 1);
    // Each turn comes after about one unit of the other's.
    EXPECT_LT(since(start), Milliseconds(2000));
  }
  kill(greedy, SIGKILL);
  exitCodeOf(greedy);
}

TEST_F(SharingTest, AKilledWriterLeavesWholeUnitsAndNoLock) {
  createCounters();
  std::mt19937 random(7);
  long long before = 0;
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE(round);
    const pid_t child = inChild([&] {
      Database db(path(), options());
      db.holdInstance(round);
      for (std::size_t i = 0;; ++i) countUp(db, round, 1000 + i % 40 * 1000);
      return 0;
    });
    std::this_thread::sleep_for(Milliseconds(20 + random() % 60));
    kill(child, SIGKILL);
    EXPECT_EQ(exitCodeOf(child), 1000 + SIGKILL);

    Database db(path(), impatient());
    EXPECT_FALSE(db.isInstanceAlive(round));
    expectConsistent(db);
    EXPECT_GE(std::stoll(count(db)), before);
    countUp(db, 99);
    before = std::stoll(count(db));
  }
  EXPECT_GT(before, 100);
}

TEST_F(SharingTest, TheLogStaysShortWhileProcessesWrite) {
  createCounters();
  Database db(path(), options());
  for (int i = 0; i < 400; ++i) countUp(db, 0, 200'000);
  EXPECT_LT(std::filesystem::file_size(path() + "-wal"), 2100U * 16'400);
}

TEST_F(SharingTest, OneThreadIsToldAtOnceThatItWouldWaitForItself) {
  createCounters();
  Database first(path(), options());
  Database second(path(), options());
  Unit unit(first, Access::write, "first");
  const auto start = Clock::now();
  EXPECT_EQ(idRaisedBy([&] { second.beginUnit(Access::write, "second"); }),
            "KODD:kodd:RepositoryBusy");
  EXPECT_EQ(idRaisedBy([&] { second.execute("DELETE FROM entry"); }),
            "KODD:kodd:RepositoryBusy");
  EXPECT_LT(since(start), Milliseconds(5000));
  EXPECT_EQ(second.depth(), 0);

  std::thread other([&] { countUp(second, 2); });
  std::this_thread::sleep_for(Milliseconds(30));
  unit.commit();
  other.join();
  EXPECT_EQ(count(first), "1");
}

TEST_F(SharingTest, AStoppedWaiterDoesNotKeepOthersFromWriting) {
  createCounters();
  host::FileLock stopped(path() + "-lock");
  ASSERT_TRUE(stopped.tryLock(2, host::LockKind::exclusive));
  Database db(path(), options());
  countUp(db, 0);
  EXPECT_EQ(count(db), "1");
}

TEST_F(SharingTest, AFileThatWasMovedIsNeverWrittenAgain) {
  struct Case {
    const char* what;
    std::function<void(const std::string&)> move;
  };
  const Case cases[] = {
      {"renamed", [](auto& file) { std::filesystem::rename(file, file + ".old"); }},
      {"removed", [](auto& file) { removeFile(file); }},
      {"replaced", [](auto& file) {
         removeFile(file);
         OpenOptions fresh = options();
         Database db(file, fresh);
         createTable(db);
       }}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    removeFile(path());
    Database db(path(), options());
    createTable(db);
    insert(db, 1);
    c.move(path());
    const std::string removed = "KODD:kodd:FileRemoved";
    EXPECT_EQ(idRaisedBy([&] { db.beginUnit(Access::write, "append"); }), removed);
    EXPECT_EQ(db.depth(), 0);
    EXPECT_EQ(idRaisedBy([&] { insert(db, 2); }), removed);
    EXPECT_EQ(idRaisedBy([&] { values(db); }), removed);
    // The lock is free again for whoever works at the path now.
    Database successor(path(), impatient());
    successor.execute("CREATE TABLE IF NOT EXISTS t(id INTEGER PRIMARY KEY, v)");
    insert(successor, 3);
    EXPECT_EQ(values(successor), "3");
  }
}

TEST_F(SharingTest, ANewFileStartsCleanBesideTheWriterOfOneThatIsGone) {
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t writer = inChild([&] {
    Database db(path(), options());
    createTable(db);
    for (int i = 0; i < 50; ++i) insert(db, i);
    if (write(ready[1], "x", 1) != 1) return 1;
    pause();
    return 0;
  });
  char signal = 0;
  ASSERT_EQ(read(ready[0], &signal, 1), 1);
  std::filesystem::remove(path());  // and nothing beside it
  {
    Database db(path(), options());
    createTable(db);
    insert(db, 1);
    EXPECT_EQ(values(db), "1");
    EXPECT_THAT(db.integrityProblems(), IsEmpty());
  }
  kill(writer, SIGKILL);
  exitCodeOf(writer);
}

TEST_F(SharingTest, AnInstanceIsAliveAsLongAsItsConnection) {
  constexpr long long kIDs[] = {0, 1, 0x7fff'ffff'ffff'ffff, -1, -0x7fff'ffff'ffff'ffff - 1};
  Database watcher(path(), options());
  for (const long long id : kIDs) {
    SCOPED_TRACE(id);
    auto owner = std::make_unique<Database>(path(), options());
    EXPECT_FALSE(watcher.isInstanceAlive(id));
    owner->holdInstance(id);
    EXPECT_TRUE(owner->isInstanceAlive(id));
    EXPECT_TRUE(watcher.isInstanceAlive(id));
    EXPECT_FALSE(watcher.isInstanceAlive(id ^ 2));
    EXPECT_EQ(idRaisedBy([&] { watcher.holdInstance(id); }), "KODD:kodd:RepositoryBusy");
    owner.reset();
    EXPECT_FALSE(watcher.isInstanceAlive(id));
  }
  watcher.holdInstance(5);
  watcher.releaseInstance(5);
  EXPECT_FALSE(watcher.isInstanceAlive(5));
}

}  // namespace
}  // namespace sqldb
