#include "host/names.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>

#include "tests/support/throwsid.h"

namespace {

namespace fs = std::filesystem;

class NamesTest : public ::testing::Test {
 protected:
  ~NamesTest() override {
    unsetenv("TMPDIR");
    unsetenv("VELA_ROOT");
  }
};

TEST_F(NamesTest, TheUserNameIsFitForAFileName) {
  const std::pair<const char*, std::string> cases[] = {
      {"ada", "ada"}, {"../ada b", "..adab"}, {"A.d-a_1", "A.d-a_1"}};
  for (const auto& [user, name] : cases) {
    setenv("USER", user, 1);
    EXPECT_EQ(host::userName(), name);
  }
  for (const char* const useless : {"", "///", "\xc3\xa4"}) {
    setenv("USER", useless, 1);
    EXPECT_FALSE(host::userName().empty()) << useless;
  }
  unsetenv("USER");
  EXPECT_FALSE(host::userName().empty());
}

TEST_F(NamesTest, AUselessTemporaryDirectoryIsReplacedByTheSystems) {
  for (const char* const useless : {"", "/no/such/folder", "/dev/null"}) {
    setenv("TMPDIR", useless, 1);
    EXPECT_EQ(host::systemTempDirectory(), P_tmpdir) << useless;
  }
}

TEST_F(NamesTest, ReservedNamesAreFreshAndPrivate) {
  const fs::path folder = host::reserveTemporaryName("names-", "");
  fs::remove(folder);
  fs::create_directory(folder);
  setenv("TMPDIR", folder.c_str(), 1);
  const fs::path first = host::reserveTemporaryName("vela-", ".dmr");
  const fs::path second = host::reserveTemporaryName("vela-", ".dmr");
  EXPECT_NE(first, second);
  for (const fs::path& path : {first, second}) {
    EXPECT_EQ(path.parent_path(), folder);
    EXPECT_EQ(path.extension(), ".dmr");
    EXPECT_EQ(fs::status(path).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
  }
  fs::remove_all(folder);
  setenv("TMPDIR", "/tmp", 1);
  EXPECT_THAT([] { host::reserveTemporaryName("no/such/folder/", ".dmr"); },
              vela::test::ThrowsId("KODD:kodd:IOError"));
}

TEST_F(NamesTest, TheRootIsTheEnvironmentsOrStandsBesideTheProgram) {
  unsetenv("VELA_ROOT");
  const fs::path beside = fs::canonical("/proc/self/exe").parent_path().parent_path();
  fs::create_directories(beside / "share" / "vela");
  EXPECT_EQ(host::rootDirectory(), beside / "share" / "vela");
  setenv("VELA_ROOT", "/elsewhere", 1);
  EXPECT_EQ(host::rootDirectory(), "/elsewhere");
}

}  // namespace
