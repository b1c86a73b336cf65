#include "objectmanager/privatefile.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <set>

#include "tests/objectmanager/managertest.h"

namespace vela {
namespace {

using ::testing::IsEmpty;
using ::testing::IsSupersetOf;

class PrivateFileTest : public testing::Test {
 protected:
  PrivateFileTest() { setenv("TMPDIR", folder_.path().c_str(), 1); }
  ~PrivateFileTest() override { unsetenv("TMPDIR"); }

  std::set<std::string> names() const {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      names.insert(entry.path().filename().string());
    }
    return names;
  }
  void makeEverythingOld() const {
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      if (entry.is_symlink()) continue;
      std::filesystem::last_write_time(
          entry, std::filesystem::file_time_type::clock::now() - std::chrono::minutes(2));
    }
  }

  test::TemporaryFolder folder_;
};

[[noreturn]] void waitForever() {
  while (true) pause();
}

TEST_F(PrivateFileTest, WhatAKilledProcessLeftGoesOnceItIsOld) {
  test::WaitingProcess process([](const auto& ready) {
    ObjectManager manager;
    manager.initializeObjectManager("", "");
    manager.createObject("DataSet", false);
    ready();
    waitForever();
  });
  ASSERT_TRUE(process.isReady());
  const std::set<std::string> left = names();
  ASSERT_EQ(left.size(), 4U) << "repository, log, index and lock";

  makeEverythingOld();
  sweepPrivateFiles();
  EXPECT_EQ(names(), left) << "its process lives";

  process.kill();
  std::filesystem::last_write_time(folder_.path() / *left.begin(),
                                   std::filesystem::file_time_type::clock::now());
  sweepPrivateFiles();
  EXPECT_EQ(names(), left) << "it is young";

  makeEverythingOld();
  { const ObjectManager manager; }
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(PrivateFileTest, AReservedFileStaysAsLongAsItsManagerLives) {
  test::WaitingProcess process([](const auto& ready) {
    const ObjectManager neverOpened;
    ready();
    waitForever();
  });
  ASSERT_TRUE(process.isReady());
  const ObjectManager ours;
  const std::set<std::string> reserved = names();
  makeEverythingOld();
  sweepPrivateFiles();
  EXPECT_EQ(names(), reserved);

  // A forked child neither holds the file nor takes it along.
  test::inKilledProcess([] { sweepPrivateFiles(); });
  EXPECT_EQ(names(), reserved);
}

TEST_F(PrivateFileTest, ExitLeavesNoneBehind) {
  EXPECT_EXIT(
      {
        auto* const neverDestroyed = new ObjectManager;
        neverDestroyed->initializeObjectManager("", "");
        std::exit(neverDestroyed->isOpen() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(PrivateFileTest, FilesOfOthersStay) {
  const std::set<std::string> others = {"velacharts.dmr", "vela-private-abcde.dmr",
                                        "vela-private-abc_ef.dmr",
                                        "vela-private-abcdef.dmr-wal", "tester_vela_1.dmr"};
  for (const std::string& name : others) test::writeText(folder_.path() / name, "mine");
  std::filesystem::create_directory(folder_ / "vela-private-folder.dmr");
  std::filesystem::create_symlink(folder_ / "velacharts.dmr",
                                  folder_ / "vela-private-linked.dmr");
  std::filesystem::create_hard_link(folder_ / "velacharts.dmr",
                                    folder_ / "vela-private-shared.dmr");
  const std::set<std::string> all = names();
  makeEverythingOld();
  sweepPrivateFiles();
  EXPECT_THAT(names(), IsSupersetOf(all));
}

}  // namespace
}  // namespace vela
