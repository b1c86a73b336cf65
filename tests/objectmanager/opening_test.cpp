#include "objectmanager/opening.h"

#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "managertest.h"
#include "objectmanager/quarantinefolders.h"

namespace vela {
namespace {

using test::raisedBy;
using test::wide;
using Clock = std::chrono::steady_clock;

std::filesystem::path locationOf(const ObjectManager& manager) {
  return text::toUtf8(manager.getDatabaseLocation());
}

std::vector<std::string> namesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

class OpeningTest : public testing::Test {
 protected:
  void TearDown() override { unsetenv("VELA_DURABILITY"); }

  test::TemporaryFolder folder_;
};

TEST_F(OpeningTest, SchemaFilesLieInTheSchemaFolderOfTheInstallation) {
  const std::filesystem::path standard = ObjectManager::getSchemaPath("");
  EXPECT_EQ(standard.filename(), "schema.xml");
  EXPECT_TRUE(standard.parent_path().string().ends_with("toolbox/shared/nexstore/schema"));
  EXPECT_TRUE(std::filesystem::exists(standard));
  EXPECT_EQ(ObjectManager::getSchemaPath("other.xml"), standard.parent_path() / "other.xml");
}

TEST_F(OpeningTest, APackageOfAnotherSchemaIsOpenedByName) {
  ObjectManager view(wide(folder_ / "view.dmr"));
  view.setInstanceID(77);
  view.initializeObjectManager(ObjectManager::getSchemaPath("vela_view_schema.xml"),
                               "vela_view");
  EXPECT_NE(view.createObject("SessionInfo", true), nullptr);
  EXPECT_TRUE(view.getOpeningNotices().empty());

  ObjectManager unknown(wide(folder_ / "unknown.dmr"));
  unknown.initializeObjectManager("", "nobody");
  EXPECT_TRUE(unknown.isOpen());
  EXPECT_EQ(raisedBy([&] { unknown.createObject("DataSet", false); }),
            "KODD:kodd:NoSuchObjectType");
}

TEST_F(OpeningTest, PrivateFilesGoWithTheirManager) {
  std::filesystem::path first;
  {
    ObjectManager manager;
    first = locationOf(manager);
    EXPECT_EQ(first.extension(), ".dmr");
    EXPECT_FALSE(manager.isOpen());
    manager.initializeObjectManager("", "");
    manager.createObject("DataSet", false);
    manager.initializeObjectManager("", "");  // opens the same file again
    boost::ptr_vector<ObjectRef> runs;
    manager.findObjects("DataSet", {}, runs);
    EXPECT_EQ(runs.size(), 1u);

    ObjectManager other;
    EXPECT_NE(locationOf(other), first);
    other.initializeObjectManager("", "");
    const std::filesystem::path second = locationOf(other);
    EXPECT_TRUE(std::filesystem::exists(second));
    other.disconnect();
    EXPECT_FALSE(std::filesystem::exists(second));
    EXPECT_TRUE(std::filesystem::exists(first));
  }
  for (const char* suffix : {"", "-wal", "-shm", "-lock"}) {
    EXPECT_FALSE(std::filesystem::exists(first.string() + suffix)) << suffix;
  }
}

TEST_F(OpeningTest, FilesGivenByPathStay) {
  {
    ObjectManager manager(wide(folder_ / "kept.dmr"));
    EXPECT_EQ(manager.getDatabaseLocation(), wide(folder_ / "kept.dmr"));
    EXPECT_FALSE(std::filesystem::exists(folder_ / "kept.dmr"));
    manager.initializeObjectManager("", "");
  }
  EXPECT_TRUE(std::filesystem::exists(folder_ / "kept.dmr"));
}

TEST_F(OpeningTest, AManagerForReadingChangesNothing) {
  const std::wstring location = wide(folder_ / "kept.dmr");
  {
    ObjectManager writer(location);
    writer.initializeObjectManager("", "");
    writer.createObject("DataSet", false);
  }
  ObjectManager reader(location, ObjectManager::Access::read);
  reader.setInstanceID(77);
  reader.initializeObjectManager("", "");
  boost::ptr_vector<ObjectRef> runs;
  reader.findObjects("DataSet", {}, runs);
  EXPECT_EQ(runs.size(), 1u);
  EXPECT_EQ(raisedBy([&] { reader.createObject("DataSet", false); }), "KODD:kodd:ReadOnly");
  EXPECT_EQ(raisedBy([&] { runs.front().setPropertyInt32("Visible", 0); }),
            "KODD:kodd:ReadOnly");
  boost::ptr_vector<ObjectRef> instances;
  reader.findObjects("InstanceID", {}, instances);
  EXPECT_TRUE(instances.empty());
  EXPECT_TRUE(reader.getOpeningNotices().empty());
}

TEST_F(OpeningTest, AShortageOfDescriptorsIsNamedAndPasses) {
  ObjectManager manager(wide(folder_ / "kept.dmr"));
  rlimit usual{};
  getrlimit(RLIMIT_NOFILE, &usual);
  rlimit none = usual;
  none.rlim_cur = 0;
  setrlimit(RLIMIT_NOFILE, &none);
  manager.initializeObjectManager("", "");
  setrlimit(RLIMIT_NOFILE, &usual);
  EXPECT_FALSE(manager.isOpen());
  kodiag::util::diagnostics failure;
  manager.repository().metamodel(failure);
  ASSERT_FALSE(failure.empty());
  EXPECT_NE(failure.messages().front().text().find("Too many open files"), std::string::npos);
  manager.initializeObjectManager("", "");
  EXPECT_TRUE(manager.isOpen());
}

TEST_F(OpeningTest, AForkedChildLeavesThePrivateFileToItsParent) {
  auto manager = std::make_unique<ObjectManager>();
  manager->initializeObjectManager("", "");
  const int run = manager->createObject("DataSet", true)->getObjectID();
  test::inKilledProcess([&] { manager.reset(); });
  EXPECT_TRUE(std::filesystem::exists(locationOf(*manager)));
  bool found = false;
  manager->findObject(run, found);
  EXPECT_TRUE(found);
}

TEST_F(OpeningTest, AFileThatCannotBeOpenedIsTriedForFiveSecondsAndReportedAtFirstUse) {
  ObjectManager manager(wide(folder_ / "missing" / "store.dmr"));
  const Clock::time_point start = Clock::now();
  manager.initializeObjectManager("", "");
  const std::chrono::duration<double> seconds = Clock::now() - start;
  EXPECT_GE(seconds.count(), 5.0);
  EXPECT_LT(seconds.count(), 10.0);
  EXPECT_FALSE(manager.isOpen());
  try {
    manager.createObject("DataSet", false);
    ADD_FAILURE() << "nothing was raised";
  } catch (const kodiag::except::ExceptionWithCauses& exception) {
    EXPECT_EQ(exception.id(), "KODD:kodd:RepositoryNotOpen");
    EXPECT_FALSE(exception.message().causes.empty());
    EXPECT_THAT(exception.what(), testing::HasSubstr("missing/store.dmr"));
  }
}

TEST_F(OpeningTest, AnAttemptAfterTheObstacleIsGoneSucceeds) {
  ObjectManager manager(wide(folder_ / "late" / "store.dmr"));
  std::thread helper([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(700));
    std::filesystem::create_directory(folder_ / "late");
  });
  manager.initializeObjectManager("", "");
  helper.join();
  EXPECT_TRUE(manager.isOpen());
}

TEST_F(OpeningTest, AFileOfSomebodyElseIsRefusedAtOnceAndUntouched) {
  const std::filesystem::path notes = folder_ / "notes.txt";
  test::writeText(notes, "milk, bread");
  kodiag::util::diagnostics diag;
  ObjectManager::checkFile(wide(notes), diag);
  EXPECT_FALSE(diag.empty());
  diag.clear();
  ObjectManager::checkFile(wide(folder_ / "absent.dmr"), diag);
  EXPECT_TRUE(diag.empty());

  ObjectManager manager(wide(notes));
  const Clock::time_point start = Clock::now();
  manager.initializeObjectManager("", "");
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(2));
  EXPECT_EQ(raisedBy([&] { manager.createObject("DataSet", false); }),
            "KODD:kodd:RepositoryNotOpen");
  std::ifstream file(notes);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}), "milk, bread");
  EXPECT_THAT(namesIn(folder_.path()), testing::ElementsAre("notes.txt"));
}

TEST_F(OpeningTest, DurabilityIsTakenFromTheEnvironment) {
  EXPECT_EQ(opening::optionsFromEnvironment().durability, sqldb::Durability::fast);
  setenv("VELA_DURABILITY", "durable", 1);
  EXPECT_EQ(opening::optionsFromEnvironment().durability, sqldb::Durability::durable);
  setenv("VELA_DURABILITY", "fast", 1);
  EXPECT_EQ(opening::optionsFromEnvironment().durability, sqldb::Durability::fast);
  for (const char* unknown : {"", "FAST", "slow"}) {
    SCOPED_TRACE(unknown);
    setenv("VELA_DURABILITY", unknown, 1);
    ObjectManager manager(wide(folder_ / "store.dmr"));
    EXPECT_EQ(raisedBy([&] { manager.initializeObjectManager("", ""); }),
              "nexstore:nex:InvalidSetting");
    EXPECT_FALSE(std::filesystem::exists(folder_ / "store.dmr"));
  }
}

TEST_F(OpeningTest, AFailedChangeIsUndoneWhateverTheSettingsAskedFor) {
  ObjectManager manager(wide(folder_ / "store.dmr"));
  manager.initializeObjectManager("", "");
  manager.beginTransaction();
  manager.createObject("DataSet", false);
  manager.rollbackTransaction();
  boost::ptr_vector<ObjectRef> runs;
  manager.findObjects("DataSet", {}, runs);
  EXPECT_TRUE(runs.empty());
}

TEST_F(OpeningTest, FoldersOfFilesSetAsideAreKeptWhileTheyAreNewOrFew) {
  const auto makeFolder = [this](const char* name, int days) {
    const std::filesystem::path folder = folder_ / name;
    std::filesystem::create_directory(folder);
    test::writeText(folder / "content", "x");
    std::filesystem::last_write_time(
        folder, std::filesystem::file_time_type::clock::now() - std::chrono::days(days));
  };
  makeFolder("a.dmr.quarantine-1", 31);
  makeFolder("a.dmr.quarantine-2", 400);
  makeFolder("a.dmr.quarantine-3", 29);
  pruneQuarantineFolders(folder_ / "a.dmr");
  EXPECT_EQ(namesIn(folder_.path()).size(), 3u);

  makeFolder("a.dmr.quarantine-4", 28);
  makeFolder("a.dmr.quarantine-5", 27);
  makeFolder("a.dmr.quarantine-6", 26);
  makeFolder("b.dmr.quarantine-1", 400);
  pruneQuarantineFolders(folder_ / "a.dmr");
  EXPECT_THAT(namesIn(folder_.path()),
              testing::UnorderedElementsAre("a.dmr.quarantine-3", "a.dmr.quarantine-4",
                                            "a.dmr.quarantine-5", "a.dmr.quarantine-6",
                                            "b.dmr.quarantine-1"));
}

}  // namespace
}  // namespace vela
