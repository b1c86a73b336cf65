// The constructor, and what belongs to the process.
#include <chrono>

#include "host/features.h"
#include "scriptingtest.h"
#include "velainstance.h"

namespace vela {
namespace {

namespace fs = std::filesystem;
using host::HostArray;
using test::idOf;
using test::ScriptObject;

/// The shared file lies in the temporary directory, so this process gets one of its own.
class OwnTemporaryDirectory : public testing::Environment {
 public:
  OwnTemporaryDirectory() { setenv("TMPDIR", folder_.path().c_str(), 1); }
  void TearDown() override { OBTerminate_nexstore(); }

 private:
  test::TemporaryFolder folder_;
};
[[maybe_unused]] const auto* const kEnvironment =
    testing::AddGlobalTestEnvironment(new OwnTemporaryDirectory);

class OpeningMethodsTest : public testing::Test {
 protected:
  static ScriptObject open(const HostArray& file) { return ScriptObject({file}); }
  static ScriptObject open(const fs::path& file) { return open(test::array(file.c_str())); }

  test::TemporaryFolder folder_;
};

TEST_F(OpeningMethodsTest, ATextOpensAPrivateFileThatStays) {
  const fs::path file = folder_ / "a.dmr";
  {
    const ScriptObject vela = open(file);
    EXPECT_EQ(vela("getSource").toWide(), test::wide(file));
    vela("createRun", L"kept");
  }
  const ScriptObject again = open(file);
  EXPECT_EQ(again("getRunName", again("getRunIDByIndex", 1)).toWide(), L"kept");
}

TEST_F(OpeningMethodsTest, NoInputOpensATemporaryFileThatGoes) {
  fs::path file;
  {
    const ScriptObject vela(host::HostArrays{});
    file = text::toUtf8(vela("getSource").toWide());
    EXPECT_EQ(file.extension(), ".dmr");
    vela("createRun", L"gone");
    EXPECT_TRUE(fs::exists(file));
  }
  EXPECT_FALSE(fs::exists(file));
}

TEST_F(OpeningMethodsTest, WhatTimeDoesNotCureIsRefusedAtOnceAndLeftAsItWas) {
  test::writeText(folder_ / "notes.txt", "not a repository");
  test::writeText(folder_ / "damaged.dmr", std::string("SQLite format 3\0", 16) + "damaged");
  const std::string inFile = (folder_ / "notes.txt").string() + "/x.dmr";
  const struct {
    HostArray file;
    const char* id;
    const char* reason;
  } cases[] = {
      {test::array(folder_.path().c_str()), "KODD:kodd:IOError", "folder"},
      {test::array(""), "KODD:kodd:IOError", "empty"},
      {HostArray::text(std::wstring(L"a\0b", 3)), "KODD:kodd:IOError", "character 0"},
      {test::array(inFile.c_str()), "KODD:kodd:IOError", "irectory"},
      {test::array(((folder_ / "none").string() + "/x.dmr").c_str()), "KODD:kodd:IOError",
       "none"},
      {test::array((folder_ / "notes.txt").c_str()), "KODD:kodd:NotARepository", "notes.txt"},
      {test::array((folder_ / "damaged.dmr").c_str()), "sqldb:ssdb:Corrupt", "damaged.dmr"}};
  const auto start = std::chrono::steady_clock::now();
  for (const auto& c : cases) {
    try {
      open(c.file);
      EXPECT_STREQ(c.id, "");
    } catch (const kodiag::except::ExceptionWithCauses& error) {
      EXPECT_EQ(error.id(), c.id);
      EXPECT_NE(error.message().text().find(c.reason), std::string::npos)
          << error.message().text();
    }
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_EQ(fs::file_size(folder_ / "notes.txt"), 16u);
}

TEST_F(OpeningMethodsTest, ThrowCorruptDatabaseNamesTheFileWhenItIsGivenOne) {
  const ScriptObject vela = open(folder_ / "a.dmr");
  const struct {
    host::HostArrays inputs;
    std::string location;
  } cases[] = {{{vela.self()}, (folder_ / "a.dmr").string()},
               {{}, "unknown"},
               {{HostArray::scalar(3)}, "unknown"},
               {{HostArray::scriptObject("vela.Other", nullptr)}, "unknown"}};
  for (const auto& c : cases) {
    try {
      vela.callAll("throwCorruptDatabase", c.inputs);
      ADD_FAILURE();
    } catch (const kodiag::except::ExceptionWithCauses& error) {
      EXPECT_EQ(error.id(), "sqldb:ssdb:Corrupt");
      EXPECT_NE(error.message().text().find(c.location), std::string::npos);
    }
  }
}

/// Every case in a process of its own, since the shared repository is the process's.
class SharedRepositoryDeathTest : public OpeningMethodsTest {
 protected:
  SharedRepositoryDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  [[noreturn]] void run(const std::function<void()>& body) {
    body();
    OBTerminate_nexstore();
    ObjectManager::deletePersistentDMRfile();
    std::exit(HasFailure() ? 1 : 0);
  }
  static fs::path sharedFile() { return text::toUtf8(ObjectManager::persistentDMRPath()); }
};

#define EXPECT_IN_OWN_PROCESS(...) EXPECT_EXIT(run(__VA_ARGS__), testing::ExitedWithCode(0), "")

TEST_F(SharedRepositoryDeathTest, PrivateObjectsNeverMakeIt) {
  EXPECT_IN_OWN_PROCESS([&] {
    {
      const ScriptObject vela = open(folder_ / "a.dmr");
      EXPECT_EQ(vela("hasBeenCreated"), HostArray::scalar(false));
      vela("purgeDeletedRuns");
      vela("deleteAllRuns");
    }
    OBTerminate_nexstore();
    EXPECT_FALSE(VelaInstance::getInstance().hasObjMgrBeenCreated());
    EXPECT_FALSE(fs::exists(sharedFile()));
  });
}

TEST_F(SharedRepositoryDeathTest, AnyOtherInputGivesItAndItOutlivesItsObjects) {
  EXPECT_IN_OWN_PROCESS([&] {
    std::unique_ptr<ScriptObject> first = std::make_unique<ScriptObject>(open(HostArray()));
    const ScriptObject second = open(HostArray::scalar(1));
    EXPECT_EQ(second.data().describe(), "shared");
    EXPECT_EQ(&first->manager(), &second.manager());
    (*first)("createRun", L"shared");
    first->data().close();
    EXPECT_EQ((*first)("getRunCount").toInt64(), 1);
    first.reset();
    EXPECT_EQ(second("getRunCount").toInt64(), 1);
    EXPECT_EQ(second("hasBeenCreated"), HostArray::scalar(true));
  });
}

TEST_F(SharedRepositoryDeathTest, ClearRepositoryFileStartsAnew) {
  EXPECT_IN_OWN_PROCESS([&] {
    const ScriptObject vela = open(HostArray());
    const HostArray id = vela("createRun", L"run");
    vela("beginTransaction");
    vela("rollbackTransaction");
    vela("clearRepositoryFile");
    EXPECT_EQ(vela("getRunCount").toInt64(), 0);
    EXPECT_EQ(idOf([&] { vela("getRunName", id); }), "nexstore:nex:NoSuchRun");
    EXPECT_TRUE(fs::exists(sharedFile()));
  });
}

TEST_F(SharedRepositoryDeathTest, ObjectsThatOutliveTheEndRefuseToWork) {
  EXPECT_IN_OWN_PROCESS([&] {
    const ScriptObject vela = open(HostArray());
    OBTerminate_nexstore();
    EXPECT_EQ(idOf([&] { vela("getRunCount"); }), "KODD:kodd:RepositoryNotOpen");
  });
}

TEST_F(SharedRepositoryDeathTest, FeaturesAreSetWholeOrNotAtAll) {
  EXPECT_IN_OWN_PROCESS([&] {
    const ScriptObject vela = open(folder_ / "a.dmr");
    const host::Feature& emptying = *host::findFeature("VELAStaticDMRDeleteOnEmpty");
    const int before = emptying.value();
    EXPECT_EQ(vela("setPersistentDMRFeature", 2).toInt64(), 1);
    EXPECT_EQ(emptying.value(), before);
    for (const HostArray& bad : {HostArray::scalar(0.5), HostArray::text("1"), HostArray()}) {
      EXPECT_EQ(idOf([&] { vela("setPersistentDMRFeature", 0, bad); }),
                "nexstore:nex:IntegerScalarExpected");
    }
    EXPECT_EQ(vela("setPersistentDMRFeature", 0, 1 - before, 9).toInt64(), 2);
    EXPECT_EQ(emptying.value(), 1 - before);
  });
}

TEST_F(OpeningMethodsTest, OnlyFarmWorkersNeedNoImport) {
  EXPECT_EQ(open(folder_ / "a.dmr")("sessionRequiresRaccelImport"), HostArray::scalar(true));
}

}  // namespace
}  // namespace vela
