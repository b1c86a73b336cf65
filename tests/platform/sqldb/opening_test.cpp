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

TEST_F(OpeningTest, OpensThroughLinksAndWithWhateverRights) {
  createClosed(path());
  std::filesystem::create_symlink("runs.dmr", path("link.dmr"));
  {
    Database db(path("link.dmr"), options());
    Database same(path(), options());
    insert(db, -1);
    EXPECT_EQ(same.queryText("SELECT min(v) FROM t"), "-1");
    EXPECT_FALSE(std::filesystem::exists(path("link.dmr-lock")));
  }
  OpenOptions shared = options();
  shared.followLink = false;
  EXPECT_EQ(idRaisedBy([&] { Database db(path("link.dmr"), shared); }),
            "KODD:kodd:NotARepository");
  chmod(path().c_str(), 0666);
  std::filesystem::create_hard_link(path(), path("second"));
  EXPECT_EQ(Database(path("second"), options()).queryText("SELECT min(v) FROM t"), "-1");
}

class ReadingTest : public OpeningTest {
 protected:
  static OpenOptions reading() {
    OpenOptions result = options();
    result.access = FileAccess::read;
    return result;
  }
  /// Somebody who may read the files but change nothing reads the rows, and leaves no trace.
  /// \returns the rows, or the ID of what was raised
  std::string readByStranger(bool mayReadSideFiles = true) {
    namespace fs = std::filesystem;
    const auto before = snapshot();
    for (const auto& entry : fs::directory_iterator(folder_)) {
      if (mayReadSideFiles || entry.path() == path()) chmod(entry.path().c_str(), 0444);
    }
    fs::remove(path("answer"));
    const int answer = open(path("answer").c_str(), O_CREAT | O_RDWR, 0600);
    chmod(folder_.c_str(), 0555);
    EXPECT_EQ(exitCodeOf(inChild([&] {
                std::string text;
                if (geteuid() == 0 && seteuid(65534) != 0) return 2;
                const std::string id = idRaisedBy([&] {
                  Database db(path(), reading());
                  text = values(db);
                  Unit unit(db, Database::Access::write, "a unit that writes nothing");
                  unit.commit();
                  if (idRaisedBy([&] { insert(db, 1); }) != "KODD:kodd:ReadOnly") text += "!";
                });
                if (!id.empty()) text = id;
                return pwrite(answer, text.data(), text.size(), 0) < 0 ? 1 : 0;
              })),
              0);
    chmod(folder_.c_str(), 0755);
    close(answer);
    const std::string text = bytesOf(path("answer"));
    fs::remove(path("answer"));
    for (const auto& entry : fs::directory_iterator(folder_)) chmod(entry.path().c_str(), 0600);
    EXPECT_EQ(snapshot(), before);
    return text;
  }
  void removeBeside(std::initializer_list<const char*> suffixes) {
    for (const char* suffix : suffixes) std::filesystem::remove(path() + suffix);
  }
};

TEST_F(ReadingTest, NeedsNoMoreThanTheRightToRead) {
  {
    Database db(path(), options());
    createTable(db);
    insert(db, 5);
  }
  EXPECT_EQ(readByStranger(), "5") << "with side files";
  EXPECT_EQ(readByStranger(false), "5") << "with side files of its owner alone";
  removeBeside({"-wal", "-shm", "-lock"});
  EXPECT_EQ(readByStranger(), "5") << "alone";
  std::filesystem::remove(path());
  leaveKilledWriter(path(), kTestApplication);
  EXPECT_EQ(readByStranger(), "7") << "with a log to recover";
  {
    Database living(path(), options());
    insert(living, 8);
    EXPECT_EQ(readByStranger(), "7 8") << "beside a living writer";
  }
  std::filesystem::remove(path());
  leaveKilledWriter(path(), kTestApplication);
  removeBeside({"-shm"});
  EXPECT_EQ(readByStranger(), "KODD:kodd:ReadOnly") << "with a log that cannot be read";
}

TEST_F(ReadingTest, SeesWhatOthersCommitAndMakesNothing) {
  EXPECT_EQ(idRaisedBy([&] { Database db(path(), reading()); }), "KODD:kodd:IOError");
  writeBytes(path("empty"), "");
  EXPECT_EQ(idRaisedBy([&] { Database db(path("empty"), reading()); }),
            "KODD:kodd:NotARepository");
  Database writer(path(), options());
  createTable(writer);
  Database reader(path(), reading());
  insert(writer, 3);
  EXPECT_EQ(values(reader), "3");
  EXPECT_EQ(idRaisedBy([&] { insert(reader, 4); }), "KODD:kodd:ReadOnly");
  EXPECT_EQ(idRaisedBy([&] { reader.checkpoint(); }), "KODD:kodd:ReadOnly");
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
