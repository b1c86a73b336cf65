#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <thread>
#include <vector>

#include "sqldbtest.h"

namespace sqldb {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class StatementTest : public SqldbTest {
 protected:
  StatementTest() { createTable(db_); }

  Database db_{path(), options()};
};

TEST_F(StatementTest, RealsComeBackBitForBit) {
  using Limits = std::numeric_limits<double>;
  const double reals[] = {-0.0,
                          0.0,
                          0.1,
                          Limits::infinity(),
                          -Limits::max(),
                          Limits::denorm_min(),
                          1e300,
                          9007199254740993.0};
  for (const double real : reals) {
    Statement write = db_.statement("INSERT INTO t(v) VALUES (?1)");
    write.bind(1, real);
    EXPECT_EQ(write.run(), 1);
  }
  Statement read = db_.statement("SELECT v FROM t ORDER BY id");
  for (const double real : reals) {
    ASSERT_TRUE(read.step());
    const double stored = read.real(0);
    EXPECT_EQ(std::memcmp(&stored, &real, sizeof real), 0) << real << " as " << stored;
  }
  EXPECT_FALSE(read.step());
}

TEST_F(StatementTest, NaNIsStoredAsNullAndReadAsNaN) {
  Statement write = db_.statement("INSERT INTO t(v) VALUES (?1)");
  write.bind(1, std::nan("1"));
  write.run();
  EXPECT_EQ(db_.queryText("SELECT typeof(v) FROM t"), "null");
  Statement read = db_.statement("SELECT v FROM t");
  ASSERT_TRUE(read.step());
  EXPECT_TRUE(std::isnan(read.real(0)));
}

TEST_F(StatementTest, TextAndBlobsKeepTheirBytesAndTheirEmptiness) {
  const std::string text(
      "a\0\xff"
      "b",
      4);
  const std::byte bytes[] = {std::byte{0}, std::byte{255}};
  Statement write = db_.statement("INSERT INTO t(v) VALUES (?1), (?2), (?3), (?4), (?5)");
  write.bindText(1, text);
  write.bindText(2, std::string_view{});
  write.bindBlob(3, bytes);
  write.bindBlob(4, {});
  write.bindZeroBlob(5, 3);
  EXPECT_EQ(write.run(), 5);

  Statement read = db_.statement("SELECT v, typeof(v) FROM t ORDER BY id");
  ASSERT_TRUE(read.step());
  EXPECT_EQ(read.text(0), text);
  ASSERT_TRUE(read.step());
  EXPECT_EQ(read.text(0), "");
  EXPECT_EQ(read.text(1), "text");
  ASSERT_TRUE(read.step());
  EXPECT_THAT(read.blob(0), ElementsAre(std::byte{0}, std::byte{255}));
  ASSERT_TRUE(read.step());
  EXPECT_EQ(read.text(1), "blob");
  EXPECT_TRUE(read.blob(0).empty());
  ASSERT_TRUE(read.step());
  EXPECT_EQ(read.blob(0).size(), 3U);
}

TEST_F(StatementTest, RefusesAValueLargerThanTheEngineCanKeep) {
  Statement write = db_.statement("INSERT INTO t(v) VALUES (?1)");
  EXPECT_EQ(idRaisedBy([&] {
              write.bindZeroBlob(1, std::uint64_t{5'000'000'000});
              write.run();
            }),
            "KODD:kodd:ValueTooLarge");
  EXPECT_EQ(values(db_), "");
}

TEST_F(StatementTest, ALeaseStartsWithoutBindingsAndAtTheBeginning) {
  for (int i = 0; i < 3; ++i) insert(db_, i);
  {
    Statement read = db_.statement("SELECT v FROM t WHERE v >= ?1 ORDER BY id");
    read.bind(1, 1);
    ASSERT_TRUE(read.step());
    EXPECT_EQ(read.int64(0), 1);
  }
  Statement read = db_.statement("SELECT v FROM t WHERE v >= ?1 ORDER BY id");
  EXPECT_FALSE(read.step());
  read.reset();
  read.bind(1, 0);
  ASSERT_TRUE(read.step());
  EXPECT_EQ(read.int64(0), 0);
}

TEST_F(StatementTest, TheSameTextMayBeLeasedInsideItsOwnLoop) {
  for (int i = 1; i <= 3; ++i) insert(db_, i);
  const std::string sql = "SELECT v FROM t ORDER BY id";
  std::vector<long long> seen;
  Statement outer = db_.statement(sql);
  while (outer.step()) {
    Statement inner = db_.statement(sql);
    while (inner.step()) seen.push_back(outer.int64(0) * 10 + inner.int64(0));
  }
  EXPECT_THAT(seen, ElementsAre(11, 12, 13, 21, 22, 23, 31, 32, 33));
}

TEST_F(StatementTest, KeepsWorkingWithMoreTextsThanTheCacheHolds) {
  insert(db_, 5);
  for (int round = 0; round < 2; ++round) {
    Statement pinned = db_.statement("SELECT v FROM t");
    ASSERT_TRUE(pinned.step());
    for (int i = 0; i < 1200; ++i) {
      EXPECT_EQ(db_.queryText("SELECT v + " + std::to_string(i) + " FROM t"),
                std::to_string(5 + i));
    }
    EXPECT_EQ(pinned.int64(0), 5);
  }
}

TEST_F(StatementTest, CountsTheRowsItChanged) {
  for (int i = 0; i < 4; ++i) insert(db_, i);
  EXPECT_EQ(db_.statement("UPDATE t SET v = v + 1 WHERE v >= 1").run(), 3);
  EXPECT_EQ(db_.statement("DELETE FROM t WHERE v > 100").run(), 0);
  EXPECT_EQ(db_.statement("SELECT v FROM t").run(), 0);
  EXPECT_EQ(db_.statement("CREATE TABLE u(x)").run(), 0);
}

TEST_F(StatementTest, AFailedStatementNamesItsUnitAndItsText) {
  Unit unit(db_, Database::Access::write, "append samples");
  try {
    db_.statement("INSERT INTO t(id) VALUES (1), (1)").run();
    FAIL();
  } catch (const kodiag::except::ExceptionWithCauses& e) {
    EXPECT_THAT(e.what(), HasSubstr("append samples"));
    EXPECT_THAT(e.what(), HasSubstr("INSERT INTO t"));
    EXPECT_THAT(e.what(), HasSubstr("UNIQUE"));
  }
  EXPECT_EQ(idRaisedBy([&] { db_.statement("SELECT 1; SELECT 2"); }),
            "nexstore:nex:InternalError");
  EXPECT_EQ(idRaisedBy([&] { db_.statement("SELECT nothing FROM nowhere"); }),
            "nexstore:nex:InternalError");
}

TEST_F(StatementTest, StatementsOfOthersCannotChangeHowTheFileIsKept) {
  const std::pair<const char*, const char*> declined[] = {
      {"PRAGMA journal_mode = OFF", "journal_mode"},
      {"PRAGMA main.journal_mode = MEMORY", "journal_mode"},
      {"pragma JOURNAL_MODE(DELETE)", "journal_mode"},
      {"PRAGMA locking_mode = EXCLUSIVE", "locking_mode"},
      {"PRAGMA wal_autocheckpoint = 1000", "wal_autocheckpoint"},
      {"PRAGMA writable_schema = ON", "writable_schema"},
      {"PRAGMA mmap_size = 1000000", "mmap_size"},
      {"PRAGMA application_id = 1", "application_id"},
      {"PRAGMA journal_size_limit = 99", "journal_size_limit"}};
  for (const auto& [sql, name] : declined) {
    SCOPED_TRACE(sql);
    const std::string before = db_.queryText(std::string("PRAGMA ") + name);
    db_.executeStatement(sql);
    EXPECT_EQ(db_.queryText(std::string("PRAGMA ") + name), before);
  }
  const char* const refused[] = {"ATTACH 'other.db' AS other",
                                 "BEGIN",
                                 "COMMIT",
                                 "SAVEPOINT s",
                                 "VACUUM",
                                 "SELECT load_extension('x')",
                                 "SELECT 1; DROP TABLE t"};
  for (const char* sql : refused) {
    EXPECT_EQ(idRaisedBy([&] { db_.executeStatement(sql); }), "nexstore:nex:InternalError")
        << sql;
  }
  db_.executeStatement("PRAGMA synchronous = NORMAL");
  db_.executeStatement("PRAGMA synchronous = OFF;");
  EXPECT_EQ(db_.queryText("PRAGMA synchronous"), "0");
  db_.executeStatement("PRAGMA temp_store = MEMORY");
  EXPECT_EQ(db_.queryText("PRAGMA temp_store"), "2");
  db_.executeStatement("INSERT INTO t(v) VALUES (3)");
  EXPECT_EQ(values(db_), "3");
}

TEST_F(StatementTest, ShowsEveryStatementToItsWatchers) {
  std::vector<std::string> traced;
  std::vector<std::string> profiled;
  db_.setTraceCallback([&](std::string_view sql) {
    traced.emplace_back(sql);
    throw std::runtime_error("a watcher's own trouble");
  });
  db_.setProfileCallback(
      [&](std::string_view sql, std::uint64_t) { profiled.emplace_back(sql); });
  {
    Unit unit(db_, Database::Access::write, "watched");
    insert(db_, 1);
    unit.commit();
  }
  EXPECT_THAT(traced, ElementsAre("BEGIN IMMEDIATE", HasSubstr("INSERT"), "COMMIT"));
  EXPECT_THAT(profiled, Contains(HasSubstr("INSERT")));
  db_.setTraceCallback({});
  db_.setProfileCallback({});
  insert(db_, 2);
  EXPECT_EQ(traced.size(), 3U);
}

// A query is not charged with what its reader does between two rows.
TEST_F(StatementTest, TimesAreThoseOfTheEngine) {
  for (int i = 0; i < 3; ++i) insert(db_, i);
  std::map<std::string, std::uint64_t> times;
  db_.setProfileCallback(
      [&](std::string_view sql, std::uint64_t time) { times[std::string(sql)] += time; });
  const std::string quick = "SELECT * FROM t";
  {
    Statement query = db_.statement(quick);
    while (query.step()) std::this_thread::sleep_for(std::chrono::milliseconds(30));
  }
  const std::string slow =
      "WITH RECURSIVE c(x) AS (SELECT 1 UNION ALL SELECT x+1 FROM c WHERE x<200000) "
      "SELECT count(*) FROM c";
  db_.queryText(slow);
  EXPECT_GT(times[quick], 0u);
  EXPECT_LT(times[quick], 60'000'000u);
  EXPECT_GT(times[slow], 1'000'000u);
  db_.setProfileCallback({});
}

}  // namespace
}  // namespace sqldb
