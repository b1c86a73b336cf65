#include "sqldbtest.h"

namespace sqldb {
namespace {

using ::testing::HasSubstr;
using Access = Database::Access;

class SideFilesTest : public SqldbTest {
 protected:
  struct Case {
    std::vector<std::string> gone;
    bool newcomerOpens;   // before the living process has noticed
    bool isLost = false;  // the living process's work, which it then says
  };

  static void write(Database& db, long long value) {
    Unit unit(db, Access::write, "write");
    insert(db, value);
    unit.commit();
  }
  /// Another process opens the file anew and writes. \returns whether it could
  bool newcomerWrites(long long value) {
    return exitCodeOf(inChild([&] {
             Database db(path(), impatient());
             write(db, value);
             return 0;
           })) == 0;
  }
  static std::string messageOf(const std::function<void()>& call) {
    try {
      call();
      return {};
    } catch (const std::exception& e) {
      return e.what();
    }
  }
};

TEST_F(SideFilesTest, WorkOutlivesSideFilesThatVanishOrIsToldLost) {
  const Case cases[] = {
      {{"-shm"}, true},           {{"-wal"}, false},
      {{"-wal", "-shm"}, false},  {{"-lock"}, true},
      {{"-shm", "-lock"}, true},  {{"-wal", "-shm", "-lock"}, true, true},
      {{"-wal", "-lock"}, false},
  };
  for (const Case& c : cases) {
    for (const Access first : {Access::read, Access::write}) {
      std::string what;
      for (const std::string& suffix : c.gone) what += suffix;
      SCOPED_TRACE(what + (first == Access::read ? ", found by a reader" : ", by a writer"));
      std::filesystem::remove_all(folder_);
      std::filesystem::create_directory(folder_);
      std::string expected = "1";
      {
        Database living(path(), options());
        createTable(living);
        living.checkpoint();
        write(living, 1);
        for (const std::string& suffix : c.gone) std::filesystem::remove(path() + suffix);
        EXPECT_EQ(newcomerWrites(2), c.newcomerOpens);
        if (c.newcomerOpens) expected += " 2";

        const std::string message = messageOf([&] { Unit unit(living, first, "go on"); });
        EXPECT_THAT(message, HasSubstr(c.isLost ? "is lost" : "is kept"));
        EXPECT_EQ(idRaisedBy([&] { insert(living, 9); }), "KODD:kodd:FileRemoved");
        if (!c.isLost) {
          EXPECT_TRUE(newcomerWrites(3)) << "beside the process that has given up";
          expected += " 3";
        }
      }
      Database again(path(), options());
      EXPECT_THAT(again.integrityProblems(), ::testing::IsEmpty());
      if (!c.isLost) {
        EXPECT_EQ(values(again), expected);
      }
    }
  }
}

TEST_F(SideFilesTest, ClosingBringsBackWhatOnlyADeletedLogHolds) {
  {
    Database living(path(), options());
    createTable(living);
    write(living, 1);
    std::filesystem::remove(path() + "-wal");
    EXPECT_EQ(idRaisedBy([&] { Database second(path(), options()); }), "KODD:kodd:FileRemoved");
  }
  Database again(path(), options());
  EXPECT_EQ(values(again), "1");
}

TEST_F(SideFilesTest, AProcessDoesNotMixTheOldIndexWithANewOne) {
  Database first(path(), options());
  createTable(first);
  std::filesystem::remove(path() + "-shm");
  EXPECT_EQ(idRaisedBy([&] { Database second(path(), options()); }), "KODD:kodd:FileRemoved");
}

}  // namespace
}  // namespace sqldb
