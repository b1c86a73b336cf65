// Copies, the overwrite run, and what other instances left behind.
#include "objects/set.h"
#include "scriptingtest.h"

namespace vela {
namespace {

using test::array;
using test::ints;
using testing::ElementsAre;
using testing::IsEmpty;

class SessionMethodsTest : public test::ScriptingTest {
 protected:
  /// A run of an instance that has closed.
  int runLeftBehind() {
    const int row = vela_.id("createObject", "InstanceID");
    vela_("setProperty", row, "id", 4711LL, "IsClosed", 1);
    const int id = run(L"left behind");
    set(id, "InstanceID", array(4711LL));
    return id;
  }
};

TEST_F(SessionMethodsTest, ACopyHasItsOwnSignalsAndNumber) {
  const int original = run(L"name");
  const int signal = signalIn(original);
  vela_("setRunData", original, 2.5);
  const int copy = vela_.id("copyRun", original, "qrv");
  EXPECT_EQ(vela_("getRunName", copy).toWide(), L"name");
  EXPECT_EQ(vela_.id("getRunApp", copy), 3);
  EXPECT_EQ(vela_.id("getRunNumber", copy), 2);
  EXPECT_EQ(vela_("getRunData", copy), array(2.5));
  ASSERT_EQ(vela_.id("getSignalCount", copy), 1);
  EXPECT_NE(ints(vela_("getAllSignalIDs", copy)).front(), signal);
}

TEST_F(SessionMethodsTest, TheOverwriteRunIsChosenByAFlag) {
  const int first = run();
  const int second = run();
  EXPECT_EQ(vela_.id("getOverWriteSetID"), 0);
  vela_("setOverwrite", first, true);
  EXPECT_TRUE(vela_("getOverwrite", first).toBool());
  vela_("setOverwrite", second, false);
  EXPECT_EQ(vela_.id("getOverWriteSetID"), first);
  EXPECT_EQ(vela_.id("getPriorOverwriteRunID"), 0);
  EXPECT_EQ(vela_.id("uncheckOverwrittenSignals"), 0);

  const int signal = signalIn(first);
  set(signal, "Checked", array(1));
  EXPECT_EQ(Set::cacheOverwriteRun(vela_.manager()), first);
  EXPECT_EQ(vela_.id("getPriorOverwriteRunID"), first);
  EXPECT_EQ(vela_.id("uncheckOverwrittenSignals"), first);
  EXPECT_EQ(property(signal, "Checked").toInt64(), 0);
}

TEST_F(SessionMethodsTest, RunsOfClosedInstancesAreFoundAndTakenOver) {
  EXPECT_FALSE(vela_("hasDataFromPriorSession").toBool());
  const int id = runLeftBehind();
  EXPECT_THAT(ints(vela_("getAllRunIDs")), IsEmpty());
  EXPECT_TRUE(vela_("hasDataFromPriorSession").toBool());
  EXPECT_FALSE(vela_("hasDataFromPriorSession", "qrv").toBool());
  vela_("importDataFromPriorSession");
  EXPECT_THAT(ints(vela_("getAllRunIDs")), ElementsAre(id));
  EXPECT_FALSE(vela_("hasDataFromPriorSession").toBool());
}

TEST_F(SessionMethodsTest, RunsOfClosedInstancesCanBeDiscarded) {
  const int own = run();
  const int other = runLeftBehind();
  vela_("discardDataFromPriorSession");
  EXPECT_FALSE(vela_("isValidRunID", other).toBool());
  EXPECT_THAT(ints(vela_("getAllRunIDs")), ElementsAre(own));
}

TEST_F(SessionMethodsTest, FinishedRunsOfAcceleratorChildrenAreTakenOver) {
  const int finished = run();
  const int streaming = run();
  for (const int id : {finished, streaming}) set(id, "InstanceID", array(1LL));
  set(streaming, "IsActivelyStreaming", array(1));
  EXPECT_THAT(ints(vela_("importCompletedRapidAccelRuns")), ElementsAre(finished));
  EXPECT_THAT(ints(vela_("getAllRunIDs")), ElementsAre(finished));
  EXPECT_TRUE(vela_("isValidRunID", streaming).toBool());
}

}  // namespace
}  // namespace vela
