// What every call goes through: inputs, errors, turns, closed objects.
#include <thread>

#include "scriptingtest.h"

namespace vela {
namespace {

using host::HostArray;
using host::HostArrays;
using test::idOf;
using testing::ElementsAre;

class FrameTest : public test::ScriptingTest {
 protected:
  HostArray function(std::function<HostArray()> body) {
    return HostArray::function(
        [body = std::move(body)](auto, std::size_t) { return HostArrays{body()}; });
  }
};

TEST_F(FrameTest, RefusesANumberOfInputsThatIsNotDeclared) {
  const struct {
    const char* method;
    HostArrays inputs;
  } cases[] = {{"createRun", {}},
               {"createRun", {test::array("a"), test::array("b")}},
               {"getRunCount", {test::array(1)}},
               {"hasBeenCreated", {vela_.self()}},
               {"getAllRunIDs", {test::array("a"), test::array("b")}},
               {"setPersistentDMRFeature", {}},
               {"safeTransaction", {}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.method);
    EXPECT_EQ(idOf([&] { vela_.callAll(c.method, c.inputs); }), "nexstore:nex:InputCount");
  }
  EXPECT_EQ(vela_.id("getRunCount"), 0);
  // A host that does not count is told as well, before anything is read.
  int count = 7;
  const host::InputValue self = vela_.object();
  EXPECT_EQ(idOf([&] {
              test::ScriptObject::method("createRun").invoke(count, {}, std::span(&self, 1));
            }),
            "nexstore:nex:InputCount");
  EXPECT_EQ(count, 0);
}

TEST_F(FrameTest, ErrorsCarryTheInnermostIDAndTheUnitsAsCauses) {
  const HostArray inner = function([&] { return vela_("getRunName", 999'999); });
  const HostArray outer = function([&] { return vela_("safeTransaction", inner); });
  try {
    vela_("safeTransaction", outer);
    FAIL();
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    EXPECT_EQ(error.id(), "nexstore:nex:NoSuchRun");
    EXPECT_EQ(error.message().text(), "getRunName: there is no run with the ID 999999.");
    std::vector<std::string> causes;
    for (const kodiag::Message& cause : error.message().causes) {
      EXPECT_TRUE(cause.causes.empty());
      causes.push_back(cause.id.key);
    }
    EXPECT_THAT(causes, ElementsAre("DictFuncThrewException", "DictFuncThrewException"));
  }
}

TEST_F(FrameTest, WhatAFunctionOfTheHostThrowsComesOutAsItWas) {
  struct HostError : std::runtime_error {
    using runtime_error::runtime_error;
  };
  const HostArray failing = function([&]() -> HostArray {
    run();
    throw HostError("from the host");
  });
  const HostArray nested = function([&] { return vela_("safeTransaction", failing); });
  EXPECT_THROW(vela_("safeTransaction", nested), HostError);
  EXPECT_EQ(vela_.id("getRunCount"), 0);
}

TEST_F(FrameTest, ClosedObjectsRefuseAndSayWhatTheyAre) {
  const std::string file = "private '" + (folder_ / "store.dmr").string() + "'";
  EXPECT_EQ(vela_.data().describe(), file);
  vela_("beginTransaction");
  run();
  vela_.data().close();
  vela_.data().close();
  EXPECT_EQ(vela_.data().describe(), "closed");
  EXPECT_EQ(idOf([&] { run(); }), "nexstore:nex:RepositoryClosed");
  EXPECT_EQ(idOf([&] { vela_("throwCorruptDatabase", vela_.self()); }), "sqldb:ssdb:Corrupt");
  const test::ScriptObject again({test::array((folder_ / "store.dmr").c_str())});
  EXPECT_EQ(again.id("getRunCount"), 0);  // the open transaction was rolled back
}

TEST_F(FrameTest, AnObjectClosedInTheMidstOfItsOwnUnitLetsTheUnitEnd) {
  const HostArray closing = function([&] {
    const HostArray id = vela_("createRun", L"kept");
    vela_.data().close();
    EXPECT_EQ(idOf([&] { run(); }), "nexstore:nex:RepositoryClosed");
    return id;
  });
  const HostArray id = vela_("safeTransaction", closing);
  const test::ScriptObject again({test::array((folder_ / "store.dmr").c_str())});
  EXPECT_EQ(again("getRunName", id).toWide(), L"kept");
}

TEST_F(FrameTest, AnObjectThatWasNeverConstructedIsClosed) {
  const auto object = std::make_shared<host::COSObject>(test::ScriptObject::classInfo());
  EXPECT_EQ(object->instanceData().describe(), "closed");
  const HostArray self = host::arrayOfObject(object, "vela.Repository");
  EXPECT_EQ(idOf([&] {
              host::callMethod(test::ScriptObject::method("getRunCount"), std::span(&self, 1));
            }),
            "nexstore:nex:RepositoryClosed");
}

TEST_F(FrameTest, ThreadsTakeTurns) {
  // Each unit reads, lets others in if they can come, and writes what it has read plus one.
  const HostArray increment = function([&] {
    const int number = vela_.id("getHighestRunNumber");
    std::this_thread::yield();
    return vela_("setHighestRunNumber", number + 1);
  });
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 25; ++n) vela_("safeTransaction", increment);
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(vela_.id("getHighestRunNumber"), 100);
}

}  // namespace
}  // namespace vela
