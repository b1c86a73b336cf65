// Lists of runs and signals.
#include "scriptingtest.h"

namespace vela {
namespace {

using host::HostArray;
using test::array;
using test::idOf;
using test::ints;
using testing::ElementsAre;
using testing::IsEmpty;

class RunListMethodsTest : public test::ScriptingTest {
 protected:
  std::vector<int> list(const char* method) { return ints(vela_(method)); }
};

TEST_F(RunListMethodsTest, ListsHoldTheVisibleRunsByTheirPlace) {
  EXPECT_THAT(list("getAllRunIDs"), IsEmpty());
  const int first = run();
  EXPECT_THAT(list("getAllRunIDs"), ElementsAre(first));
  const int second = run();
  const int hidden = run();
  const int test = vela_.id("createEmptyRun", L"t", "qrv");
  set(hidden, "Visible", array(0));
  vela_("setRunIndex", second, -1);
  EXPECT_THAT(list("getAllRunIDs"), ElementsAre(second, first, test));
  for (const int index : {0, -7, 1, 99}) {
    EXPECT_THAT(ints(vela_("getRunID", index)), ElementsAre(second, first, test));
  }
  EXPECT_EQ(vela_.id("getRunCount"), 2);
  EXPECT_THAT(ints(vela_("getAllRunIDs", "allvela")), ElementsAre(second, first));
  EXPECT_THAT(ints(vela_("getAllRunIDs", "QRV")), ElementsAre(test));
  EXPECT_THAT(ints(vela_("getAllRunIDs", "anything")), ElementsAre(second, first));
  EXPECT_EQ(vela_.id("getRunIDByIndex", 1), second);
  EXPECT_EQ(vela_.id("getRunIDByIndex", 3), test);
  for (const int index : {0, 4, -1, 2147483647}) {
    EXPECT_EQ(idOf([&] { vela_("getRunIDByIndex", index); }), "VELA:vela:InvalidRunID");
  }
  EXPECT_TRUE(vela_("isValidRunID", hidden).toBool());
  EXPECT_FALSE(vela_("isValidRunID", 0).toBool());
}

TEST_F(RunListMethodsTest, SignalsAreListedByKindAndMoveBetweenRuns) {
  const int first = run();
  const int second = run();
  const int parent = signalIn(first);
  const int leaf = signalIn(first);
  set(parent, "HasChildren", array(1));
  set(leaf, "FK_Parent", array(parent));
  set(leaf, "Checked", array(4));
  const auto signals = [&](const char* kind) {
    return ints(vela_("getAllSignalIDs", first, kind));
  };
  EXPECT_THAT(ints(vela_("getAllSignalIDs", first)), ElementsAre(parent, leaf));
  EXPECT_THAT(signals("top"), ElementsAre(parent));
  EXPECT_THAT(signals("leaf"), ElementsAre(leaf));
  EXPECT_THAT(signals("checked"), ElementsAre(leaf));
  EXPECT_THAT(signals("whatever"), ElementsAre(parent, leaf));
  EXPECT_EQ(vela_.id("getSignalCount", first), 1);
  vela_("addSignal", second, parent);
  EXPECT_THAT(ints(vela_("getAllSignalIDs", first)), IsEmpty());
  EXPECT_THAT(ints(vela_("getAllSignalIDs", second)), ElementsAre(parent, leaf));
  vela_("uncheckAllSignalsInRun", second);
  EXPECT_THAT(ints(vela_("getAllSignalIDs", second, "checked")), IsEmpty());
}

TEST_F(RunListMethodsTest, TheStreamingRunIsFoundByModelThenByApplication) {
  const int first = run();
  const int second = run();
  EXPECT_EQ(vela_.id("getCurrentStreamingRunID", "vela"), 0);
  for (const int id : {first, second}) set(id, "IsActivelyStreaming", array(1));
  EXPECT_TRUE(vela_("getRunIsActivelyStreaming", first).toBool());
  EXPECT_EQ(vela_.id("getCurrentStreamingRunID", "VELA"), second);
  EXPECT_EQ(vela_.id("getCurrentStreamingRunID", "allapplications"), second);
  EXPECT_EQ(vela_.id("getCurrentStreamingRunID", "qrv"), 0);
  EXPECT_EQ(vela_.id("getCurrentStreamingRunID", "plant"), 0);
  const int active = vela_.id("createObject", "ActiveSimulation");
  vela_("setProperty", active, "Model", "plant", "SetID", first);
  EXPECT_EQ(vela_.id("getCurrentStreamingRunID", "plant"), first);
}

TEST_F(RunListMethodsTest, MixedIDsAreSortedOut) {
  const int first = run();
  const int second = run();
  const int checked = signalIn(first);
  const int plain = signalIn(first);
  const int other = signalIn(second);
  for (const int id : {checked, other}) set(id, "Checked", array(1));

  const host::HostArrays sorted =
      vela_.callAll("getUniqueRunAndSignalIDs",
                    {HostArray::list(std::vector<int>{second, first, second, 999'999, checked}),
                     HostArray::list(std::vector<int>{other, plain, other, first})});
  EXPECT_THAT(ints(sorted[0]), ElementsAre(first, second));
  EXPECT_THAT(ints(sorted[1]), ElementsAre(plain, other));
  ASSERT_EQ(sorted[2].size(), 2u);
  EXPECT_EQ(sorted[2].rank(), 1u);
  EXPECT_EQ(sorted[2].field("signalID", 1).toInt64(), other);
  EXPECT_EQ(sorted[2].field("parentRunID", 1).toInt64(), second);

  EXPECT_THAT(ints(vela_("getCheckedSignalsFromDbIDs",
                         std::vector<int>{other, second, plain, first, 999'999})),
              ElementsAre(checked, other));
  EXPECT_THAT(ints(vela_("getCheckedSignalsFromDbIDs", std::vector<int>())), IsEmpty());
}

}  // namespace
}  // namespace vela
