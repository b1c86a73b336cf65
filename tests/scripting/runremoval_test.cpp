// Removal of runs and signals.
#include "scriptingtest.h"

namespace vela {
namespace {

using test::array;
using test::idOf;
using test::ints;
using testing::ElementsAre;
using testing::IsEmpty;

class RunRemovalMethodsTest : public test::ScriptingTest {
 protected:
  std::vector<int> all(const char* className) { return ints(vela_("findObjects", className)); }
};

TEST_F(RunRemovalMethodsTest, ARunGoesWithEverythingOfIt) {
  const int first = run();
  const int second = run();
  signalIn(first);
  const int kept = signalIn(second);
  vela_("removeRun", first);
  EXPECT_THAT(all("DataSet"), ElementsAre(second));
  EXPECT_THAT(all("Signal"), ElementsAre(kept));
}

TEST_F(RunRemovalMethodsTest, WhatIsBeingWrittenRefusesTheWholeCall) {
  const int quiet = run();
  const int streaming = run();
  const int signal = signalIn(quiet);
  set(streaming, "IsActivelyStreaming", array(1));
  const test::Census before = test::censusOf(vela_.manager());
  for (const auto& removal : std::initializer_list<std::function<void()>>{
           [&] { vela_("removeRun", streaming); }, [&] { vela_("deleteAllRuns"); },
           [&] {
             vela_("deleteRunsAndSignals", std::vector{quiet, streaming}, true);
           },
           [&] {
             vela_("deleteRunsAndSignals", std::vector{quiet, streaming}, false);
           }}) {
    EXPECT_EQ(idOf(removal), "nexstore:nex:DeleteStreamingSignal");
    EXPECT_TRUE(test::censusOf(vela_.manager()) == before);
  }
  set(streaming, "IsActivelyStreaming", array(0));
  set(signal, "IsActivelyStreaming", array(1));
  EXPECT_EQ(idOf([&] {
              vela_("deleteRunsAndSignals", std::vector{streaming, signal}, true);
            }),
            "nexstore:nex:DeleteStreamingSignal");
  EXPECT_THAT(all("DataSet"), ElementsAre(quiet, streaming));
}

TEST_F(RunRemovalMethodsTest, AllRunsAreThoseOfTheInstanceAndTheApplication) {
  const int foreign = run();
  set(foreign, "InstanceID", array(77LL));
  const int ordinary = run();
  const int hidden = run();
  const int comparison = vela_.id("createComparisonRun", L"", 0, 0);
  const int test = vela_.id("createEmptyRun", L"", "qrv");
  set(hidden, "Visible", array(0));
  vela_("deleteAllRuns", "velacomparison");
  EXPECT_THAT(all("DataSet"), ElementsAre(foreign, ordinary, hidden, test));
  vela_("deleteAllRuns", "allvela");
  EXPECT_THAT(all("DataSet"), ElementsAre(foreign, test));
  vela_("deleteAllRuns");
  EXPECT_THAT(all("DataSet"), ElementsAre(foreign));
  EXPECT_NE(comparison, 0);
}

TEST_F(RunRemovalMethodsTest, RunsMayBeHiddenUntilThePurge) {
  const int first = run();
  const int second = run();
  const int third = run();
  const int signal = signalIn(third);
  const int below = signalIn(third);
  set(below, "FK_Parent", array(signal));
  vela_("deleteRunsAndSignals", std::vector{first, 999'999, first}, false);
  EXPECT_THAT(ints(vela_("getAllRunIDs")), ElementsAre(second, third));
  EXPECT_TRUE(vela_("isValidRunID", first).toBool());
  vela_("deleteRunsAndSignals", std::vector{second, signal, below}, true);
  EXPECT_THAT(all("DataSet"), ElementsAre(first, third));
  EXPECT_THAT(all("Signal"), IsEmpty());
  vela_("purgeDeletedRuns");
  EXPECT_THAT(all("DataSet"), ElementsAre(third));
}

}  // namespace
}  // namespace vela
