#include <sys/ptrace.h>
#include <sys/stat.h>

#include <functional>

#include "sqldbtest.h"

namespace sqldb {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class OpeningTest : public SqldbTest {
 protected:
  static constexpr std::int32_t kOtherApplication = 0x12345678;

  void createClosed(const std::string& file) {
    Database db(file, options());
    createTable(db);
    for (int i = 0; i < 2000; ++i) insert(db, i);
  }
  void withoutLockFile(const std::string& file) { std::filesystem::remove(file + "-lock"); }
};

TEST_F(OpeningTest, RefusesWhatIsNotOursWithoutATrace) {
  const std::string notOurs = "KODD:kodd:NotARepository";
  const std::string corrupt = "sqldb:ssdb:Corrupt";
  struct Case {
    const char* what;
    std::function<void(const std::string&)> make;
    std::string id;
  };
  const Case cases[] = {
      {"text", [&](auto& f) { writeBytes(f, "time,value\n0,1\n"); }, notOurs},
      {"one byte", [&](auto& f) { writeBytes(f, "x"); }, notOurs},
      {"large text", [&](auto& f) { writeBytes(f, std::string(100'000, 'a')); }, notOurs},
      {"directory", [&](auto& f) { std::filesystem::create_directory(f); }, notOurs},
      {"link to nothing", [&](auto& f) { std::filesystem::create_symlink("no", f); }, notOurs},
      {"link to a repository",
       [&](auto& f) {
         createClosed(path("target.dmr"));
         std::filesystem::create_symlink(path("target.dmr"), f);
       },
       notOurs},
      {"second hard link",
       [&](auto& f) {
         createClosed(f);
         withoutLockFile(f);
         std::filesystem::create_hard_link(f, path("second"));
       },
       notOurs},
      {"writable by everybody",
       [&](auto& f) {
         createClosed(f);
         withoutLockFile(f);
         chmod(f.c_str(), 0666);
       },
       notOurs},
      {"pipe", [&](auto& f) { mkfifo(f.c_str(), 0600); }, notOurs},
      {"foreign database",
       [&](auto& f) {
         OpenOptions theirs = options();
         theirs.applicationId = kOtherApplication;
         { createTable(*std::make_unique<Database>(f, theirs)); }
         withoutLockFile(f);
       },
       notOurs},
      {"foreign database with a log to recover",
       [&](auto& f) {
         leaveKilledWriter(f, kOtherApplication);
         withoutLockFile(f);
       },
       notOurs},
      {"foreign database with a journal",
       [&](auto& f) {
         OpenOptions theirs = options();
         theirs.applicationId = 0;
         { createTable(*std::make_unique<Database>(f, theirs)); }
         withoutLockFile(f);
         writeBytes(f + "-journal",
                    "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7" + std::string(600, '\1'));
       },
       notOurs},
      {"cut within the header",
       [&](auto& f) {
         createClosed(f);
         withoutLockFile(f);
         std::filesystem::resize_file(f, 60);
       },
       corrupt},
      {"cut within a page",
       [&](auto& f) {
         createClosed(f);
         withoutLockFile(f);
         std::filesystem::resize_file(f, std::filesystem::file_size(f) - 1);
       },
       corrupt},
      {"impossible page size",
       [&](auto& f) {
         createClosed(f);
         withoutLockFile(f);
         std::string bytes = bytesOf(f);
         bytes[16] = '\x40';
         bytes[17] = '\x03';
         writeBytes(f, bytes);
       },
       corrupt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directory(folder_);
    c.make(path());
    const auto before = snapshot();
    EXPECT_EQ(idRaisedBy([&] { Database db(path(), options()); }), c.id);
    EXPECT_EQ(snapshot(), before);
  }
}

TEST_F(OpeningTest, IdentifiesAFileWithoutATrace) {
  EXPECT_EQ(Database::identify(path(), kTestApplication), FileKind::absent);
  writeBytes(path("empty"), "");
  EXPECT_EQ(Database::identify(path("empty"), kTestApplication), FileKind::absent);
  // The engine would take what is made there for the other's journal, and delete it.
  for (const char* name : {"x-journal", "x-wal", "x-shm", "x-lock"}) {
    EXPECT_EQ(Database::identify(path(name), kTestApplication), FileKind::foreign);
  }
  leaveKilledWriter(path(), kTestApplication);
  const auto before = snapshot();
  EXPECT_EQ(Database::identify(path(), kTestApplication), FileKind::ours);
  EXPECT_EQ(Database::identify(path(), kOtherApplication), FileKind::foreign);
  EXPECT_EQ(snapshot(), before);
}

TEST_F(OpeningTest, IdentifyingKeepsTheLocksOfAnOpenConnection) {
  Database db(path(), options());
  createTable(db);
  ASSERT_TRUE(engineLocked(path()));
  EXPECT_EQ(Database::identify(path(), kTestApplication), FileKind::ours);
  EXPECT_TRUE(engineLocked(path()));
}

TEST_F(OpeningTest, CreatesAPrivateFileLaidOutAsPromised) {
  Database db(path(), options());
  for (const char* suffix : {"", "-wal", "-lock"}) {
    struct stat status {};
    ASSERT_EQ(stat((path() + suffix).c_str(), &status), 0) << suffix;
    EXPECT_EQ(status.st_mode & 0777, 0600U) << suffix;
  }
  const std::pair<const char*, const char*> settings[] = {
      {"page_size", "16384"},   {"auto_vacuum", "2"},      {"journal_mode", "wal"},
      {"synchronous", "0"},     {"secure_delete", "0"},    {"cache_size", "-16384"},
      {"cell_size_check", "1"}, {"mmap_size", "0"},        {"wal_autocheckpoint", "0"},
      {"trusted_schema", "0"},  {"locking_mode", "normal"}};
  for (const auto& [name, value] : settings) {
    EXPECT_EQ(db.queryText(std::string("PRAGMA ") + name), value) << name;
  }
}

// Kills the first opening before each of its system calls in turn.
TEST_F(OpeningTest, ContinuesAFirstOpeningKilledAnywhere) {
  constexpr int kMore = 100'000;
  for (int stops = 1; stops < kMore; stops += 2) {
    const std::string file = path(std::to_string(stops));
    const pid_t child = inChild([&] {
      ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
      raise(SIGSTOP);
      const Database db(file, options());
      return 0;
    });
    int status = 0;
    for (int i = 0; i < stops && waitpid(child, &status, 0) == child && WIFSTOPPED(status);
         ++i) {
      ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
    }
    if (WIFEXITED(status)) {
      EXPECT_GT(stops, 100);
      break;
    }
    kill(child, SIGKILL);
    EXPECT_EQ(exitCodeOf(child), 1000 + SIGKILL);
    Database db(file, options());
    createTable(db);
    EXPECT_EQ(db.queryText("PRAGMA page_size"), "16384") << stops;
  }
}

TEST_F(OpeningTest, ADurableRepositoryWaitsForTheDisk) {
  OpenOptions durable = options();
  durable.durability = Durability::durable;
  Database db(path(), durable);
  db.executeStatement("PRAGMA synchronous = OFF");
  EXPECT_EQ(db.queryText("PRAGMA synchronous"), "1");
}

TEST_F(OpeningTest, OpensOnlyWhatIsThereWhenToldNotToCreate) {
  OpenOptions existing = options();
  existing.createIfAbsent = false;
  EXPECT_EQ(idRaisedBy([&] { Database db(path(), existing); }), "KODD:kodd:IOError");
  EXPECT_THAT(snapshot(), IsEmpty());
  EXPECT_EQ(idRaisedBy([&] { Database db(path("no/such/folder.dmr"), options()); }),
            "KODD:kodd:IOError");
  EXPECT_EQ(idRaisedBy([&] { Database db("", options()); }), "KODD:kodd:IOError");
}

TEST_F(OpeningTest, FindsItsWayThroughLinkedFoldersAndOddNames) {
  std::filesystem::create_directory(path("real"));
  std::filesystem::create_directory_symlink(path("real"), path("linked"));
  for (const char* name : {"linked/a b.dmr", "linked/100%?x=1#y.dmr", "linked/größe.dmr"}) {
    SCOPED_TRACE(name);
    {
      Database db(path(name), options());
      createTable(db);
      insert(db, 1);
    }
    Database db(path(name), options());
    EXPECT_EQ(values(db), "1");
    EXPECT_EQ(Database::identify(path(name), kTestApplication), FileKind::ours);
  }
}

TEST_F(OpeningTest, TakesUpWhatAKilledWriterLeftInTheLog) {
  leaveKilledWriter(path(), kTestApplication);
  Database db(path(), options());
  EXPECT_EQ(values(db), "7");
  EXPECT_THAT(db.integrityProblems(), IsEmpty());
}

TEST_F(OpeningTest, ANewFileIgnoresTheSideFilesOfTheOneBefore) {
  leaveKilledWriter(path(), kTestApplication);
  std::filesystem::remove(path());
  Database db(path(), options());
  EXPECT_EQ(db.queryText("SELECT count(*) FROM sqlite_schema"), "0");
  createTable(db);
  EXPECT_THAT(db.integrityProblems(), IsEmpty());
}

TEST_F(OpeningTest, TheMainFileAloneIsWholeAfterClosing) {
  createClosed(path());
  EXPECT_EQ(std::filesystem::file_size(path() + "-wal"), 0U);
  std::filesystem::copy_file(path(), path("copy.dmr"));
  Database copy(path("copy.dmr"), options());
  EXPECT_EQ(copy.queryText("SELECT count(*) FROM t"), "2000");
}

TEST_F(OpeningTest, FindsDamageInsideTheFile) {
  createClosed(path());
  std::string bytes = bytesOf(path());
  const std::size_t lastPage = bytes.size() - 16384;
  bytes.replace(lastPage, 16384, std::string(16384, '\xee'));
  writeBytes(path(), bytes);
  Database db(path(), options());
  EXPECT_THAT(db.integrityProblems(), ::testing::Not(IsEmpty()));
  EXPECT_EQ(idRaisedBy([&] { db.queryText("SELECT sum(length(v)) FROM t"); }),
            "sqldb:ssdb:Corrupt");
}

}  // namespace
}  // namespace sqldb
