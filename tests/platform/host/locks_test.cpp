#include "host/locks.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <thread>

#include "host/names.h"
#include "tests/support/throwsid.h"

namespace {

namespace fs = std::filesystem;
using host::FileLock;
using host::LockKind;
using vela::test::ThrowsId;
using namespace std::chrono_literals;

class LocksTest : public ::testing::Test {
 protected:
  LocksTest() : folder_(host::reserveTemporaryName("locks-", "")) {
    fs::remove(folder_);
    fs::create_directory(folder_);
    setenv("TMPDIR", folder_.c_str(), 1);
  }
  ~LocksTest() override {
    unsetenv("TMPDIR");
    fs::remove_all(folder_);
  }

  /// A process that does `work`, then waits to be killed.
  static pid_t spawn(const std::function<void()>& work) {
    int ready[2];
    if (pipe(ready) != 0) return -1;
    const pid_t child = fork();
    if (child == 0) {
      work();
      static_cast<void>(!write(ready[1], "x", 1));
      while (true) pause();
    }
    char byte;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    close(ready[0]);
    close(ready[1]);
    return child;
  }
  static void killAndWait(pid_t child) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }

  fs::path folder_;
  std::string path_ = folder_ / "file-lock";
};

TEST_F(LocksTest, TwoHoldersOfOneProcessExcludeEachOther) {
  FileLock first(path_);
  FileLock second(path_);
  EXPECT_TRUE(first.tryLock(0, LockKind::exclusive));
  EXPECT_TRUE(second.tryLock(1, LockKind::shared));
  EXPECT_TRUE(first.tryLock(1, LockKind::shared));
  EXPECT_FALSE(second.tryLock(1, LockKind::exclusive));
  EXPECT_FALSE(second.tryLock(0, LockKind::shared));
  EXPECT_FALSE(second.lockWithin(0, LockKind::exclusive, 5ms));
  EXPECT_TRUE(second.isHeldByAnother(0));
  EXPECT_FALSE(first.isHeldByAnother(0));
  first.unlock(0);
  EXPECT_TRUE(second.tryLock(0, LockKind::exclusive));
}

TEST_F(LocksTest, AWaiterGetsTheByteOnceItIsFreed) {
  auto first = std::make_unique<FileLock>(path_);
  ASSERT_TRUE(first->tryLock(7, LockKind::exclusive));
  std::thread freeing([&first] {
    std::this_thread::sleep_for(20ms);
    first.reset();
  });
  EXPECT_TRUE(FileLock(path_).lockWithin(7, LockKind::exclusive, 10s));
  freeing.join();
}

TEST_F(LocksTest, AKilledHolderLeavesNothingBehind) {
  const pid_t child = spawn([this] {
    auto* const lock = new FileLock(path_);
    lock->tryLock(0, LockKind::exclusive);
  });
  FileLock lock(path_);
  EXPECT_FALSE(lock.tryLock(0, LockKind::exclusive));
  killAndWait(child);
  EXPECT_TRUE(lock.tryLock(0, LockKind::exclusive));
}

TEST_F(LocksTest, AForkedChildNeitherFreesNorKeepsItsParentsLocks) {
  auto lock = std::make_unique<FileLock>(path_);
  ASSERT_TRUE(lock->tryLock(0, LockKind::exclusive));
  const pid_t child = spawn([&lock] { lock->closeAfterFork(); });
  EXPECT_FALSE(FileLock(path_).tryLock(0, LockKind::exclusive));
  lock.reset();
  EXPECT_TRUE(FileLock(path_).tryLock(0, LockKind::exclusive));
  killAndWait(child);
}

TEST_F(LocksTest, EveryCallFailsOnceTheDescriptorIsGivenBack) {
  FileLock lock(path_);
  lock.closeAfterFork();
  EXPECT_THAT([&] { lock.tryLock(0, LockKind::shared); }, ThrowsId("KODD:kodd:IOError"));
  EXPECT_THAT([&] { lock.isHeldByAnother(0); }, ThrowsId("KODD:kodd:IOError"));
}

TEST_F(LocksTest, TheFileIsPrivateAndStaysWhereItIs) {
  FileLock lock(path_);
  struct stat status {};
  ASSERT_EQ(stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
  EXPECT_TRUE(lock.isStillAtPath());
  fs::remove(path_);
  EXPECT_FALSE(lock.isStillAtPath());
  FileLock another(path_);
  EXPECT_FALSE(lock.isStillAtPath());
  EXPECT_TRUE(another.isStillAtPath());
}

TEST_F(LocksTest, OnlyAPlainFileOfOursIsOpened) {
  const std::string target = folder_ / "target";
  { FileLock lock(target); }
  fs::create_symlink(target, folder_ / "link");
  fs::create_directory(folder_ / "folder");
  ASSERT_EQ(mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  for (const char* const name : {"link", "folder", "pipe", "no/such/folder"}) {
    EXPECT_THAT([&] { FileLock lock(folder_ / name); }, ThrowsId("KODD:kodd:IOError")) << name;
  }
}

TEST_F(LocksTest, AStrangersFileInASharedFolderIsRefused) {
  if (geteuid() != 0) GTEST_SKIP() << "giving a file away takes the superuser";
  { FileLock lock(path_); }
  ASSERT_EQ(chown(path_.c_str(), 12345, 12345), 0);
  EXPECT_NO_THROW(FileLock{path_});
  fs::permissions(folder_, fs::perms::others_write, fs::perm_options::add);
  EXPECT_THAT([this] { FileLock lock(path_); }, ThrowsId("KODD:kodd:IOError"));
}

TEST_F(LocksTest, ANamedLockIsFreedWithItsScopeOrItsHolder) {
  {
    const host::NamedLock held("creation");
    EXPECT_THAT([] { host::NamedLock("creation", 5ms); }, ThrowsId("KODD:kodd:RepositoryBusy"));
    EXPECT_NO_THROW(host::NamedLock("other", 0ms));
  }
  const pid_t child = spawn([] { new host::NamedLock("creation"); });
  EXPECT_THAT([] { host::NamedLock("creation", 5ms); }, ThrowsId("KODD:kodd:RepositoryBusy"));
  killAndWait(child);
  EXPECT_NO_THROW(host::NamedLock("creation", 0ms));
}

TEST_F(LocksTest, ANamedLockOutlivesTheCleaningOfItsFolder) {
  auto stale = std::make_unique<host::NamedLock>("creation");
  std::thread waiting([] {
    const host::NamedLock fresh("creation", 10s);
    EXPECT_THAT([] { host::NamedLock("creation", 5ms); }, ThrowsId("KODD:kodd:RepositoryBusy"));
  });
  std::this_thread::sleep_for(20ms);
  for (const auto& entry : fs::directory_iterator(folder_)) fs::remove(entry);
  stale.reset();
  waiting.join();
}

}  // namespace
