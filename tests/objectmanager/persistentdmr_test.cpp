#include "objectmanager/persistentdmr.h"

#include <sys/stat.h>

#include <cstdlib>

#include "managertest.h"

namespace vela {
namespace {

namespace fs = std::filesystem;

/// The path of the shared file is worked out once per process, so every case runs in one of its
/// own, with a temporary directory of its own.
class PersistentDMRDeathTest : public testing::Test {
 protected:
  PersistentDMRDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  /// Runs `body` in this process, which then ends; for use inside EXPECT_EXIT.
  [[noreturn]] void run(const std::function<void()>& body) {
    {
      test::TemporaryFolder folder;
      setenv("TMPDIR", folder.path().c_str(), 1);
      setenv("USER", "a/b c", 1);
      folder_ = folder.path();
      body();
    }
    std::exit(HasFailure() ? 1 : 0);
  }
  fs::path shared() const { return text::toUtf8(ObjectManager::persistentDMRPath()); }
  std::unique_ptr<ObjectManager> open() const {
    auto manager = std::make_unique<ObjectManager>();
    manager->setLocationToPersistentDMR();
    manager->initializeObjectManager("", "");
    return manager;
  }
  std::vector<fs::path> quarantines() const {
    std::vector<fs::path> folders;
    for (const auto& entry : fs::directory_iterator(folder_)) {
      if (entry.path().string().find(".quarantine-") != std::string::npos) {
        folders.push_back(entry.path());
      }
    }
    return folders;
  }

  fs::path folder_;
};

#define EXPECT_IN_OWN_PROCESS(body) EXPECT_EXIT(run(body), testing::ExitedWithCode(0), "")

TEST_F(PersistentDMRDeathTest, LiesInTheTemporaryDirectoryUnderTheNameOfUserAndSchema) {
  EXPECT_IN_OWN_PROCESS([&] {
    EXPECT_EQ(shared(), folder_ / "abc_vela_1.dmr");
    ObjectManager manager;
    EXPECT_FALSE(manager.isPersistentDMR());
    manager.setLocationToPersistentDMR();
    EXPECT_TRUE(manager.isPersistentDMR());
    EXPECT_EQ(manager.getDatabaseLocation(), ObjectManager::persistentDMRPath());
    // The name reserved for a private file is given back.
    EXPECT_TRUE(fs::is_empty(folder_));
  });
}

TEST_F(PersistentDMRDeathTest, NoPackageLeadsOutOfTheTemporaryDirectory) {
  EXPECT_IN_OWN_PROCESS([&] {
    setenv("VELA_ROOT", folder_.c_str(), 1);
    const fs::path schema = ObjectManager::getSchemaPath("");
    fs::create_directories(schema.parent_path());
    test::writeText(schema, R"(<Metamodel metamodelVersion="1"><Package name="../../evil é"/>
                               </Metamodel>)");
    EXPECT_EQ(shared(), folder_ / "abc_....evil_1.dmr");
  });
}

TEST_F(PersistentDMRDeathTest, OnlyARegularFileOfTheUserMayBeUsed) {
  EXPECT_IN_OWN_PROCESS([&] {
    EXPECT_TRUE(ObjectManager::isPersistentDMRWritable());
    fs::create_directory(shared());
    EXPECT_FALSE(ObjectManager::isPersistentDMRWritable());
    ObjectManager::deletePersistentDMRfile();
    EXPECT_TRUE(fs::is_directory(shared()));
    fs::remove(shared());

    test::writeText(folder_ / "target", "");
    fs::create_symlink(folder_ / "target", shared());
    EXPECT_FALSE(ObjectManager::isPersistentDMRWritable());
    fs::remove(shared());

    fs::create_hard_link(folder_ / "target", shared());
    EXPECT_TRUE(ObjectManager::isPersistentDMRWritable());
    for (const mode_t mode : {0400, 0666}) {
      chmod(shared().c_str(), mode);
      EXPECT_TRUE(ObjectManager::isPersistentDMRWritable()) << mode;
    }
  });
}

TEST_F(PersistentDMRDeathTest, OutlivesItsManagerAndIsDeletedOnRequest) {
  EXPECT_IN_OWN_PROCESS([&] {
    ObjectManager::deletePersistentDMRfile();
    open()->createObject("DataSet", false);
    boost::ptr_vector<ObjectRef> runs;
    std::unique_ptr<ObjectManager> manager = open();
    manager->findObjects("DataSet", {}, runs);
    EXPECT_EQ(runs.size(), 1u);

    runs.clear();
    manager->disconnect();
    EXPECT_TRUE(fs::exists(shared()));
    ObjectManager::deletePersistentDMRfile();
    EXPECT_FALSE(fs::exists(shared()));
    manager->initializeObjectManager("", "");
    manager->findObjects("DataSet", {}, runs);
    EXPECT_TRUE(runs.empty());
    runs.clear();
  });
}

TEST_F(PersistentDMRDeathTest, ADamagedFileIsSetAsideAfterTenAttemptsAndReplaced) {
  EXPECT_IN_OWN_PROCESS([&] {
    const std::string garbage(10'000, 'x');
    test::writeText(shared(), garbage);
    const std::unique_ptr<ObjectManager> manager = open();
    EXPECT_TRUE(manager->isOpen());
    manager->createObject("DataSet", false);
    const auto folders = quarantines();
    ASSERT_EQ(folders.size(), 1u);
    std::ifstream kept(folders.front() / shared().filename());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(kept), {}), garbage);

    const auto& notices = manager->getOpeningNotices().messages();
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices.front().id.key, "FileSetAside");
    EXPECT_THAT(notices.front().text(), testing::HasSubstr(folders.front().string()));
    EXPECT_FALSE(notices.front().causes.empty());
  });
}

TEST_F(PersistentDMRDeathTest, ADamagedFileThatSomebodyHasOpenStaysWhereItIs) {
  EXPECT_IN_OWN_PROCESS([&] {
    test::WaitingProcess owner([&](const std::function<void()>& ready) {
      const auto manager = open();
      ready();
      pause();
    });
    ASSERT_TRUE(owner.isReady());
    std::fstream(shared()) << "not a database any more";
    const auto manager = open();
    EXPECT_FALSE(manager->isOpen());
    EXPECT_TRUE(fs::exists(shared()));
    EXPECT_TRUE(quarantines().empty());
    const auto& notices = manager->getOpeningNotices().messages();
    ASSERT_EQ(notices.size(), 1u);
    EXPECT_EQ(notices.front().id.key, "DamagedFileInUse");
  });
}

TEST_F(PersistentDMRDeathTest, FirstOpenersAtTheSameTimeShareOneFile) {
  EXPECT_IN_OWN_PROCESS([&] {
    constexpr int kOpeners = 6;
    std::vector<pid_t> openers;
    for (int i = 0; i < kOpeners; ++i) {
      openers.push_back(fork());
      if (openers.back() == 0) {
        const auto manager = open();
        manager->createObject("DataSet", false);
        _exit(manager->getOpeningNotices().empty() ? 0 : 1);
      }
    }
    for (const pid_t opener : openers) {
      int status = 0;
      waitpid(opener, &status, 0);
      EXPECT_EQ(status, 0);
    }
    boost::ptr_vector<ObjectRef> runs;
    const auto manager = open();
    manager->findObjects("DataSet", {}, runs);
    EXPECT_EQ(runs.size(), std::size_t{kOpeners});
    runs.clear();
  });
}

TEST_F(PersistentDMRDeathTest, AFileIsNotSetAsideForWhatIsNotItsFault) {
  EXPECT_IN_OWN_PROCESS([&] {
    open()->createObject("DataSet", false);
    ObjectManager manager;
    manager.setLocationToPersistentDMR();
    manager.initializeObjectManager((folder_ / "no-schema.xml").string(), "");
    EXPECT_FALSE(manager.isOpen());
    EXPECT_TRUE(quarantines().empty());
    EXPECT_TRUE(manager.getOpeningNotices().empty());
    boost::ptr_vector<ObjectRef> runs;
    const auto again = open();
    again->findObjects("DataSet", {}, runs);
    EXPECT_EQ(runs.size(), 1u);
    runs.clear();
  });
}

}  // namespace
}  // namespace vela
