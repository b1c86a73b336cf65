// Runs and what is stored with them.
#include "scriptingtest.h"

namespace vela {
namespace {

using host::HostArray;
using test::array;
using test::idOf;
using testing::ElementsAre;
using testing::IsEmpty;

class RunMethodsTest : public test::ScriptingTest {};

TEST_F(RunMethodsTest, SettersAreReadBackByTheirGetters) {
  const struct {
    const char* setter;
    const char* getter;
    HostArray value;
  } cases[] = {{"setRunName", "getRunName", array(L"\u00e4 <run_index>")},
               {"setRunDescription", "getRunDescription", array(L"\U0001F600")},
               {"setRunTag", "getRunTag", array(L"tag")},
               {"setRunModel", "getRunModel", array(L"model")},
               {"setRunSimMode", "getRunSimMode", HostArray::text("normal")},
               {"setRunNumber", "getRunNumber", array(-5)},
               {"setRunIndex", "getRunIndex", array(-7)},
               {"setRunStartTime", "getRunStartTime", array(-0.0)},
               {"setDateCreated", "getDateCreated", array(1e9)},
               {"setRunWasVisualizeOnly", "getRunWasVisualizeOnly", array(true)}};
  const int other = run(L"other");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.setter);
    const int id = run();
    const HostArray before = vela_(c.getter, other);
    vela_(c.setter, id, c.value);
    EXPECT_EQ(vela_(c.getter, id), c.value);
    EXPECT_EQ(vela_(c.getter, other), before);
  }
}

TEST_F(RunMethodsTest, NewRunsAreNumberedAndListed) {
  const int plain = run(L"Run <run_index>");
  const int empty = vela_.id("createEmptyRun", L"b", "qrv");
  const int view = vela_.id("createViewRun", L"c");
  EXPECT_EQ(vela_("getRunDisplayName", plain).toWide(), L"Run 1");
  EXPECT_EQ(vela_.id("getRunNumber", empty), 2);
  EXPECT_EQ(vela_.id("getRunApp", empty), 3);
  EXPECT_EQ(vela_("getRunAppAsString", empty).toString(), "QRVRun");
  EXPECT_EQ(vela_.id("getRunApp", vela_("createEmptyRun", L"d", 3.0)), 0);
  EXPECT_EQ(vela_.id("getHighestRunNumber"), 4);
  EXPECT_EQ(property(view, "Visible").toInt64(), 1);
  EXPECT_EQ(vela_("getVersion", plain).toString(), "");
  EXPECT_FALSE(vela_("getDateCreatedString", plain).toString().empty());
}

TEST_F(RunMethodsTest, ComparisonRunsNameTheirRuns) {
  const int baseline = run();
  const int compareTo = run();
  const int id = vela_.id("createComparisonRun", L"diff", baseline, compareTo);
  EXPECT_EQ(vela_.id("getBaselineRunID", id), baseline);
  EXPECT_EQ(vela_.id("getCompareToRunID", id), compareTo);
  EXPECT_EQ(vela_.id("getRunApp", id), 1);
  EXPECT_EQ(vela_.id("getBaselineRunID", vela_("createComparisonRun", L"", 0, 0)), 0);
  const int runs = vela_.id("getRunCount");
  EXPECT_EQ(idOf([&] { vela_("createComparisonRun", L"x", baseline, 999'999); }),
            "KODD:kodd:NoSuchObject");
  EXPECT_EQ(vela_.id("getRunCount"), runs);
  vela_("removeObject", baseline);
  EXPECT_EQ(vela_.id("getBaselineRunID", id), 0);
}

TEST_F(RunMethodsTest, RunDataComesBackAsItWasGiven) {
  const int id = run();
  EXPECT_EQ(vela_("getRunData", id), HostArray());
  for (const HostArray& data :
       {array(2.5f), array(true), array(L"\u00e4"), HostArray::text(""), HostArray(),
        HostArray::list(std::vector<double>{1}), HostArray::scalar(std::uint64_t{1} << 63),
        HostArray::structure({{"b", HostArray::cell({array(1)})}, {"a", HostArray()}})}) {
    vela_("setRunData", id, data);
    EXPECT_EQ(vela_("getRunData", id), data) << data.describe();
  }
  const HostArray before = vela_("getRunData", id);
  EXPECT_EQ(idOf([&] { vela_("setRunData", id, vela_.self()); }), "nexstore:nex:InvalidData");
  EXPECT_EQ(vela_("getRunData", id), before);
}

TEST_F(RunMethodsTest, StartAndStopAreWrittenTogether) {
  const int id = run();
  vela_("setRunStartAndStopTime", id, 1.5, 9.0);
  EXPECT_EQ(vela_("getRunStartTime", id).toDouble(), 1.5);
  EXPECT_EQ(vela_("getRunStopTime", id).toDouble(), 9.0);
}

TEST_F(RunMethodsTest, FlagsTellOfTheSignals) {
  const int id = run();
  const int signal = signalIn(id);
  signalIn(run());
  EXPECT_FALSE(vela_("runHasCustomHierarchy", id).toBool());
  EXPECT_FALSE(vela_("runHasDataHierarchy", id).toBool());
  EXPECT_FALSE(vela_("runHasEnumSignals", id).toBool());
  vela_("setProperty", signal, "HierarchyReference", "a.b", "HasDataHierarchy", 1);
  vela_("setProperty", id, "RunHasEnumSignals", 1);
  EXPECT_TRUE(vela_("runHasCustomHierarchy", id).toBool());
  EXPECT_TRUE(vela_("runHasDataHierarchy", id).toBool());
  EXPECT_TRUE(vela_("runHasEnumSignals", id).toBool());
  EXPECT_FALSE(vela_("runHasEnumSignals", 999'999).toBool());
}

TEST_F(RunMethodsTest, NumbersAndPlacesAreKeptForTheNextRuns) {
  EXPECT_EQ(vela_.id("getHighestRunNumber"), 0);
  vela_("setHighestRunNumber", 41);
  EXPECT_EQ(vela_.id("getRunNumber", run()), 42);
  vela_("setRunNumber", run(), 1000);
  EXPECT_EQ(vela_.id("getHighestRunNumber"), 43);

  EXPECT_FALSE(vela_("getShowRunAtTop").toBool());
  vela_("setShowRunAtTop", true);
  EXPECT_TRUE(vela_("getShowRunAtTop").toBool());
  EXPECT_LT(vela_.id("getRunIndex", run()), 0);
}

TEST_F(RunMethodsTest, ShowAtTopNeedsTheOneRecordOfTheInstance) {
  vela_("setShowRunAtTop", true);
  const int second = vela_.id("createObject", "MinMaxOrderIndex");
  EXPECT_FALSE(vela_("getShowRunAtTop").toBool());
  vela_("setShowRunAtTop", true);
  EXPECT_EQ(property(second, "ShowAtTop").toInt64(), 0);
}

TEST_F(RunMethodsTest, TheNameTemplateIsForNewRunsOnly) {
  const std::wstring preferred = vela_("getRunNameTemplate").toWide();
  vela_("setRunNameTemplate", L"T <run_index>");
  EXPECT_EQ(vela_("getRunNameTemplate").toWide(), L"T <run_index>");
  vela_("restoreRunNameTemplate");
  EXPECT_EQ(vela_("getRunNameTemplate").toWide(), preferred);
}

TEST_F(RunMethodsTest, APausedModelWritesIntoOneRun) {
  const int first = run();
  const int second = run();
  EXPECT_EQ(vela_.id("getRunIDFromModel", 3.5), 0);
  vela_("addPausedModel", 3.5, first);
  vela_("addPausedModel", 3.5, second);
  vela_("addPausedModel", 4.5, first);
  EXPECT_EQ(vela_.id("getRunIDFromModel", 3.5), second);
  EXPECT_THAT(test::ints(vela_("findObjects", "PausedModel")).size(), 2u);
  vela_("updatePausedModelRunID", first, second);
  EXPECT_EQ(vela_.id("getRunIDFromModel", 4.5), second);
  vela_("removePausedModel", 4.5);
  vela_("removePausedModel", 4.5);
  EXPECT_EQ(vela_.id("getRunIDFromModel", 4.5), 0);
  vela_("removeObject", second);
  EXPECT_EQ(vela_.id("getRunIDFromModel", 3.5), 0);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(idOf([&] { vela_("addPausedModel", nan, first); }), "nexstore:nex:InvalidData");
}

HostArray part(const char* name) {
  HostArray::Fields fields;
  for (const char* const field :
       {"name", "version", "modified", "solverType", "solverName", "fixedStep"}) {
    fields.emplace_back(field, HostArray::text(std::string(name) + field));
  }
  return HostArray::structure(std::move(fields));
}

TEST_F(RunMethodsTest, HarnessDataNeedsBothParts) {
  const int id = run();
  const auto data = [](const HostArray& unit, const HostArray& harness) {
    return HostArray::structure({{"testUnit", unit}, {"testHarness", harness}});
  };
  EXPECT_EQ(vela_("getRunHarnessModelMetaData", id), HostArray());
  vela_("setRunHarnessModelMetaData", id, HostArray::structure({{"testUnit", part("u")}}));
  EXPECT_EQ(vela_("getRunHarnessModelMetaData", id), HostArray());
  for (const char* const unit : {"first ", "second "}) {
    const HostArray both = data(part(unit), part("h"));
    vela_("setRunHarnessModelMetaData", id, both);
    EXPECT_EQ(vela_("getRunHarnessModelMetaData", id), both);
    EXPECT_EQ(test::ints(vela_("findObjects", "TestHarnessData")).size(), 2u);
  }
  const HostArray before = vela_("getRunHarnessModelMetaData", id);
  const HostArray number = HostArray::structure({{"name", array(1)}});
  for (const HostArray& bad : {array(1), data(array(1), part("h")), data(part("u"), number)}) {
    EXPECT_EQ(idOf([&] { vela_("setRunHarnessModelMetaData", id, bad); }),
              "nexstore:nex:InvalidData");
  }
  EXPECT_EQ(vela_("getRunHarnessModelMetaData", id), before);
}

}  // namespace
}  // namespace vela
