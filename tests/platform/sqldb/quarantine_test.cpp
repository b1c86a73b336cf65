#include "sqldbtest.h"

namespace sqldb {
namespace {

using ::testing::HasSubstr;

class QuarantineTest : public SqldbTest {};

TEST_F(QuarantineTest, MovesNothingWhileSomebodyLivesOnTheFile) {
  Database db(path(), options());
  createTable(db);
  EXPECT_EQ(quarantine(path()), "");
  insert(db, 1);
  EXPECT_EQ(values(db), "1");
}

TEST_F(QuarantineTest, MovesTheFileWithEverythingThatBelongsToIt) {
  leaveKilledWriter(path(), kTestApplication);
  const std::string file = bytesOf(path());
  const std::string log = bytesOf(path() + "-wal");
  writeBytes(path() + "-journal", "journal");

  const std::string folder = quarantine(path());
  EXPECT_THAT(folder, HasSubstr(path() + ".quarantine-"));
  EXPECT_EQ(bytesOf(folder + "/runs.dmr"), file);
  EXPECT_EQ(bytesOf(folder + "/runs.dmr-wal"), log);
  EXPECT_EQ(bytesOf(folder + "/runs.dmr-journal"), "journal");
  for (const char* suffix : {"", "-wal", "-journal", "-shm"}) {
    EXPECT_FALSE(std::filesystem::exists(path() + suffix)) << suffix;
  }
  {
    Database fresh(path(), options());
    createTable(fresh);
  }
  EXPECT_NE(quarantine(path()), folder);  // within the same second

  Database moved(folder + "/runs.dmr", options());
  EXPECT_EQ(values(moved), "7");
}

TEST_F(QuarantineTest, RemovingTakesTheSideFilesButLeavesTheLockFile) {
  leaveKilledWriter(path(), kTestApplication);
  removeFile(path());
  EXPECT_EQ(snapshot().size(), 1U);
  EXPECT_TRUE(std::filesystem::exists(path() + "-lock"));
  removeFile(path());
  std::filesystem::create_directory(path());
  EXPECT_EQ(idRaisedBy([&] { removeFile(path()); }), "KODD:kodd:IOError");
  EXPECT_TRUE(std::filesystem::is_directory(path()));
}

}  // namespace
}  // namespace sqldb
