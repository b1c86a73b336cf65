#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <random>
#include <vector>

#include "sqldbtest.h"

namespace sqldb {
namespace {

using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::IsEmpty;
using Access = Database::Access;

class LevelsTest : public SqldbTest {
 protected:
  LevelsTest() { createTable(db_); }

  /// Lets the file grow by `pages` at most.
  void leaveRoomFor(int pages) {
    const int now = std::stoi(db_.queryText("PRAGMA page_count"));
    db_.execute("PRAGMA max_page_count = " + std::to_string(now + pages));
  }
  void leavePlentyOfRoom() { db_.execute("PRAGMA max_page_count = 1000000"); }
  void insertPage() {
    Statement write = db_.statement("INSERT INTO t(v) VALUES (?1)");
    write.bindZeroBlob(1, 16'000);
    write.run();
  }
  std::string rows() { return db_.queryText("SELECT count(*) FROM t"); }

  Database db_{path(), options()};
};

std::string joined(const std::vector<long long>& values) {
  std::string text;
  for (const long long value : values)
    text += (text.empty() ? "" : " ") + std::to_string(value);
  return text;
}

// The twin keeps a copy of all values for every open level. Without a writing one, whatever is
// written is there for good.
TEST_F(LevelsTest, BehavesAsAStackOfCopies) {
  std::mt19937 random(20240217);
  std::vector<std::vector<long long>> copies{{}};
  std::vector<bool> writes;
  for (int step = 0; step < 4000; ++step) {
    switch (random() % 6) {
      case 0:
        db_.beginUnit(Access::write, "write unit");
        copies.push_back(copies.back());
        writes.push_back(true);
        break;
      case 1:
        db_.beginUnit(Access::read, "read unit");
        copies.push_back(copies.back());
        writes.push_back(false);
        break;
      case 2:
        if (copies.size() == 1) continue;
        db_.commitUnit();
        copies.erase(copies.end() - 2);
        writes.pop_back();
        break;
      case 3:
        if (copies.size() == 1) continue;
        db_.rollbackUnit();
        copies.pop_back();
        writes.pop_back();
        break;
      default:
        insert(db_, step);
        copies.back().push_back(step);
        if (copies.back().size() > 20) {
          db_.execute("DELETE FROM t");
          copies.back().clear();
        }
    }
    if (std::ranges::find(writes, true) == writes.end()) {
      std::ranges::fill(copies, std::vector(copies.back()));
    }
    ASSERT_EQ(db_.depth(), static_cast<int>(copies.size()) - 1);
    ASSERT_EQ(values(db_), joined(copies.back())) << "step " << step;
  }
}

TEST_F(LevelsTest, AUnitLeftWithoutCommitIsUndone) {
  insert(db_, 1);
  try {
    Unit outer(db_, Access::write, "outer");
    insert(db_, 2);
    {
      Unit inner(db_, Access::write, "inner");
      insert(db_, 3);
    }
    EXPECT_EQ(values(db_), "1 2");
    throw std::runtime_error("stop");
  } catch (const std::runtime_error&) {
  }
  EXPECT_EQ(values(db_), "1");
}

TEST_F(LevelsTest, TellsTheListenerHowEachLevelEnded) {
  struct Recorder : LevelListener {
    void levelOpened() override { events.emplace_back("open"); }
    void levelCommitted() override { events.emplace_back("commit"); }
    void levelRolledBack() override { events.emplace_back("rollback"); }
    std::vector<std::string> events;
  } recorder;
  db_.setLevelListener(&recorder);
  {
    Unit outer(db_, Access::write, "outer");
    { Unit inner(db_, Access::write, "inner"); }
    insert(db_, 1);
    outer.commit();
  }
  EXPECT_THAT(recorder.events, ElementsAre("open", "open", "rollback", "commit"));
}

TEST_F(LevelsTest, EndingWhatIsNotOpen) {
  EXPECT_EQ(idRaisedBy([&] { db_.commitUnit(); }), "KODD:kodd:NoTransaction");
  db_.rollbackUnit();
  EXPECT_EQ(db_.depth(), 0);
  Unit unit(db_, Access::read, "read");
  EXPECT_EQ(idRaisedBy([&] { db_.checkpoint(); }), "KODD:kodd:TransactionActive");
}

TEST_F(LevelsTest, AReadUnitTakesNoLockAndKeepsAtOnceWhatIsWrittenInIt) {
  Database other(path(), impatient());
  Unit reading(db_, Access::read, "read");
  EXPECT_EQ(values(db_), "");
  insert(other, 1);
  EXPECT_EQ(values(db_), "");  // what it saw first
  insert(db_, 2);              // on top of the other's commit
  EXPECT_EQ(values(db_), "1 2");
  insert(other, 3);
  EXPECT_EQ(values(db_), "1 2");
  {
    Unit undone(db_, Access::write, "write");
    EXPECT_EQ(values(db_), "1 2 3");
    insert(db_, 4);
  }
  EXPECT_EQ(values(db_), "1 2 3");
  EXPECT_EQ(values(other), "1 2 3");
}

TEST_F(LevelsTest, AReadUnitThatCannotWriteGoesOnReading) {
  insert(db_, 1);
  Database writer(path(), options());
  Unit writing(writer, Access::write, "write");
  Database reader(path(), impatient());
  Unit reading(reader, Access::read, "read");
  EXPECT_EQ(idRaisedBy([&] { insert(reader, 2); }), "KODD:kodd:RepositoryBusy");
  EXPECT_EQ(idRaisedBy([&] { reader.beginUnit(Access::write, "more"); }),
            "KODD:kodd:RepositoryBusy");
  EXPECT_EQ(reader.depth(), 1);
  EXPECT_FALSE(reader.transactionLost());
  EXPECT_EQ(values(reader), "1");
}

// The engine drops the whole transaction when the file is full, whichever level is written to.
TEST_F(LevelsTest, AllLevelsAreDeadOnceTheTransactionIsLost) {
  insert(db_, 1);
  leaveRoomFor(3);
  Unit outer(db_, Access::write, "outer");
  insert(db_, 2);
  {
    Unit inner(db_, Access::write, "inner");
    EXPECT_EQ(idRaisedBy([&] {
                for (int i = 0; i < 10; ++i) insertPage();
              }),
              "KODD:kodd:DiskFull");
    ASSERT_TRUE(db_.transactionLost());
    EXPECT_EQ(db_.depth(), 2);
    const std::string lost = "KODD:kodd:TransactionLost";
    EXPECT_EQ(idRaisedBy([&] { insert(db_, 3); }), lost);
    EXPECT_EQ(idRaisedBy([&] { values(db_); }), lost);
    EXPECT_EQ(idRaisedBy([&] { db_.execute("DELETE FROM t"); }), lost);
    EXPECT_EQ(idRaisedBy([&] { db_.beginUnit(Access::write, "more"); }), lost);
    EXPECT_EQ(idRaisedBy([&] { inner.commit(); }), lost);
  }
  EXPECT_EQ(idRaisedBy([&] { outer.commit(); }), "KODD:kodd:TransactionLost");
  EXPECT_EQ(db_.depth(), 0);
  EXPECT_FALSE(db_.transactionLost());

  leavePlentyOfRoom();
  EXPECT_EQ(values(db_), "1");
  insert(db_, 4);
  EXPECT_EQ(values(db_), "1 4");
}

TEST_F(LevelsTest, AFullFileStillReadsAndTakesUpWorkLater) {
  insertPage();
  leaveRoomFor(0);
  EXPECT_EQ(idRaisedBy([&] { insertPage(); }), "KODD:kodd:DiskFull");
  EXPECT_EQ(rows(), "1");
  leavePlentyOfRoom();
  insertPage();
  EXPECT_EQ(rows(), "2");
}

class FailingWritesTest : public SqldbTest {
 protected:
  static constexpr int kDone = 0;
  static constexpr int kUndone = 1;
  static constexpr int kWrong = 2;

  static void insertBytes(Database& db, std::uint64_t size) {
    Statement write = db.statement("INSERT INTO t(v) VALUES (?1)");
    write.bindZeroBlob(1, size);
    write.run();
  }
  static void addFiveRows(Database& db) {
    Unit outer(db, Access::write, "outer");
    for (int i = 0; i < 5; ++i) {
      Unit inner(db, Access::write, "inner");
      insertBytes(db, 40'000);
      inner.commit();
    }
    outer.commit();
  }
  /// Adds five rows in a process whose files may not grow beyond `bytes`.
  int addWhereFilesEndAt(rlim_t bytes) {
    return exitCodeOf(inChild([&] {
      std::signal(SIGXFSZ, SIG_IGN);
      const rlimit limit{bytes, bytes};
      setrlimit(RLIMIT_FSIZE, &limit);
      std::unique_ptr<Database> db;
      const std::string id = idRaisedBy([&] {
        db = std::make_unique<Database>(path(), options());
        addFiveRows(*db);
      });
      if (id.empty()) return kDone;
      if (db != nullptr && (db->depth() != 0 || rows(*db) != "3")) return kWrong;
      return id == "KODD:kodd:DiskFull" || id == "KODD:kodd:IOError" ? kUndone : kWrong;
    }));
  }
  static std::string rows(Database& db) { return db.queryText("SELECT count(*) FROM t"); }
};

// Lets the system refuse every write of the files in turn, by where it says that they end.
TEST_F(FailingWritesTest, WorkIsAllOrNothingWhicheverWriteFails) {
  {
    Database db(path(), options());
    createTable(db);
    for (int i = 0; i < 3; ++i) insertBytes(db, 16'000);
  }
  const std::string original = bytesOf(path());
  int outcomes[2] = {0, 0};
  for (rlim_t bytes = 4096; bytes <= 400'000; bytes += 7168) {
    SCOPED_TRACE(bytes);
    writeBytes(path(), original);
    for (const char* suffix : {"-wal", "-shm"}) std::filesystem::remove(path() + suffix);
    const int outcome = addWhereFilesEndAt(bytes);
    ASSERT_THAT(outcome, AnyOf(Eq(kDone), Eq(kUndone)));
    ++outcomes[outcome];

    Database db(path(), options());
    EXPECT_EQ(rows(db), outcome == kDone ? "8" : "3");
    EXPECT_THAT(db.integrityProblems(), IsEmpty());
    addFiveRows(db);
  }
  EXPECT_GT(outcomes[kDone], 5);
  EXPECT_GT(outcomes[kUndone], 20);
}

}  // namespace
}  // namespace sqldb
