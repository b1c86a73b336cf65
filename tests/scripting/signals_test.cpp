// What is stored with signals, and how they stand to each other and to their runs.
#include <cmath>
#include <limits>

#include "scriptingtest.h"

namespace vela {
namespace {

using host::HostArray;
using test::array;
using test::idOf;
using test::ints;
using testing::ElementsAre;
using testing::IsEmpty;

HostArray list(std::vector<double> values) {
  return HostArray::list(std::move(values));
}

class SignalMethodsTest : public test::ScriptingTest {
 protected:
  int signal() { return vela_.id("createSignal", run_); }
  int withSamples(const wchar_t* name) {
    const int id = signal();
    vela_("setSignalLabel", id, name);
    vela_("appendSignalData", id, list({0, 1}), list({1, 2}));
    return id;
  }

  const int run_ = run();
};

TEST_F(SignalMethodsTest, SettersAreReadBackByTheirGetters) {
  const struct {
    const char* setter;
    const char* getter;
    HostArray value;
  } cases[] = {{"setSignalAbsTol", "getSignalAbsTol", array(0.5)},
               {"setSignalRelTol", "getSignalRelTol", array(0.25)},
               {"setSignalSyncMethod", "getSignalSyncMethod", HostArray::text("uniform")},
               {"setSignalInterpMethod", "getSignalInterpMethod", HostArray::text("linear")},
               {"setSignalLineColor", "getSignalLineColor", list({0.1, 0.2, 0.3})},
               {"setSignalLineDashed", "getSignalLineDashed", HostArray::text("--")},
               {"setSignalMarker", "getSignalMarker", HostArray::text("o")},
               {"setSignalSourceType", "getSignalSourceType", HostArray::text("imported")},
               {"setSignalChecked", "getSignalChecked",
                HostArray::list(std::vector<std::uint8_t>{1, 32})},
               {"setSignalSampleDims", "getSignalSampleDims", array(std::vector<int>{2, 3})},
               {"setSignalHierarchyReference", "getSignalHierarchyReference", array(L"a.b")},
               {"setSignalDataSource", "getSignalDataSource", array(L"\u00e4")},
               {"setSignalLabel", "getSignalLabel", array(L"\U0001F600")},
               {"setUnit", "getUnit", array(L"m/s")}};
  const int other = signal();
  for (const auto& c : cases) {
    SCOPED_TRACE(c.setter);
    const int id = signal();
    const HostArray before = vela_(c.getter, other);
    ASSERT_NE(before, c.value);
    vela_(c.setter, id, c.value);
    EXPECT_EQ(vela_(c.getter, id), c.value);
    EXPECT_EQ(vela_(c.getter, other), before);
  }
}

TEST_F(SignalMethodsTest, SettingsThatMeanNothingAreRefused) {
  const int id = signal();
  constexpr double kInf = std::numeric_limits<double>::infinity();
  const struct {
    const char* setter;
    const char* getter;
    int object;
    std::vector<HostArray> values;
  } cases[] = {
      {"setSignalAbsTol", "getSignalAbsTol", id, {array(-1.), array(kInf), array(NAN)}},
      {"setSignalRelTol", "getSignalRelTol", id, {array(-1.), array(kInf), array(NAN)}},
      {"setSignalSyncMethod", "getSignalSyncMethod", id, {array("Union"), array("")}},
      {"setSignalInterpMethod", "getSignalInterpMethod", id, {array("none"), array("")}},
      {"setRunStartTime", "getRunStartTime", run_, {array(NAN), array(-kInf)}}};
  for (const auto& c : cases) {
    const HostArray before = vela_(c.getter, c.object);
    for (const HostArray& value : c.values) {
      EXPECT_EQ(idOf([&] { vela_(c.setter, c.object, value); }), "nexstore:nex:InvalidSetting")
          << c.setter << " " << value.describe();
      EXPECT_EQ(vela_(c.getter, c.object), before);
    }
  }
  EXPECT_EQ(idOf([&] { vela_("setRunStartAndStopTime", run_, 1., std::nan("")); }),
            "nexstore:nex:InvalidSetting");
  EXPECT_EQ(vela_("getRunStartTime", run_), array(0.)) << "neither of the two is kept";
}

TEST_F(SignalMethodsTest, WhatNamesNothingStandsForTheDefault) {
  const int id = signal();
  const struct {
    const char* setter;
    const char* getter;
    HostArray value;
    const char* expected;
  } cases[] = {{"setSignalSyncMethod", "getSignalSyncMethod", array(1), "union"},
               {"setSignalInterpMethod", "getSignalInterpMethod", HostArray(), "zoh"},
               {"setSignalLineDashed", "getSignalLineDashed", array("x"), "-"},
               {"setSignalMarker", "getSignalMarker", array("x y"), ""},
               {"setSignalSourceType", "getSignalSourceType", array("x"), "logged"}};
  for (const auto& c : cases) {
    vela_(c.setter, id, c.value);
    EXPECT_EQ(vela_(c.getter, id).toString(), c.expected) << c.setter;
  }
}

TEST_F(SignalMethodsTest, ValuesOutOfRangeAreRefused) {
  const int id = signal();
  const test::Census before = test::censusOf(vela_.manager());
  const struct {
    const char* setter;
    HostArray value;
    const char* key;
  } cases[] = {{"setSignalLineColor", list({1, 2}), "InvalidDimensions"},
               {"setSignalLineColor", HostArray(), "InvalidDimensions"},
               {"setSignalLineColor", array(L"red"), "InvalidData"},
               {"setSignalLineColor", list({0, 0, HUGE_VAL}), "InvalidData"},
               {"setSignalChecked", array(0), "InvalidData"},
               {"setSignalChecked", array(33), "InvalidData"},
               {"setSignalSampleDims", array(-1), "InvalidDimensions"}};
  for (const auto& c : cases) {
    EXPECT_EQ(idOf([&] { vela_(c.setter, id, c.value); }), std::string("nexstore:nex:") + c.key)
        << c.setter << " " << c.value.describe();
  }
  EXPECT_EQ(test::censusOf(vela_.manager()), before);
}

TEST_F(SignalMethodsTest, MetadataComeBackAsTheyWereGiven) {
  const int id = signal();
  EXPECT_EQ(vela_("getSignalMetaData", id, "key"), HostArray());
  for (const HostArray& value :
       {array(2.5f), array(true), array(L"\u00e4"), HostArray(), list({1}),
        HostArray::structure({{"b", HostArray::cell({array(1)})}, {"a", HostArray()}})}) {
    vela_("setSignalMetaData", id, "key", value);
    EXPECT_EQ(vela_("getSignalMetaData", id, "key"), value) << value.describe();
  }
  EXPECT_EQ(idOf([&] { vela_("setSignalMetaData", id, "key", vela_.self()); }),
            "nexstore:nex:InvalidData");
}

TEST_F(SignalMethodsTest, ABlockPathIsATextOrItsElements) {
  const int id = signal();
  vela_("setSignalBlockSource", id, L"model/a");
  EXPECT_EQ(vela_("getSignalBlockSource", id, false).toWide(), L"model/a");
  EXPECT_EQ(vela_("getSignalBlockSource", id, true).cells().front(), array(L"model/a"));
  vela_("setSignalBlockSource", id, L"");
  EXPECT_THAT(vela_("getSignalBlockSource", id, true).cells(), IsEmpty());

  set(id, "PortIndex", array(2));
  vela_("setSignalBlockSource", id, L"model/a");
  const auto isStreamed = [&](const HostArray& path, int port) {
    return vela_("isSignalStreamed", run_, path, port).toBool();
  };
  EXPECT_FALSE(isStreamed(array(L"model/a"), 2));
  vela_("setSignalSourceType", id, "visualized");
  EXPECT_TRUE(isStreamed(array(L"model/a"), 2));
  EXPECT_TRUE(isStreamed(HostArray::cell({array(L"model/a")}), 2));
  EXPECT_FALSE(isStreamed(array(L"model/a"), 1));
  EXPECT_EQ(idOf([&] { isStreamed(array(1), 2); }), "nexstore:nex:InvalidData");
  EXPECT_EQ(idOf([&] { vela_("isSignalStreamed", id, L"model/a", 2); }),
            "nexstore:nex:NoSuchRun");
}

TEST_F(SignalMethodsTest, ShapeIsTold) {
  const int id = signal();
  vela_("setLeafBusSignal", id, L"a.b");
  const HostArray info = vela_("getSignalComplexityAndLeafPath", id);
  EXPECT_FALSE(info.field("IsComplex").toBool());
  EXPECT_FALSE(info.field("IsImagPart").toBool());
  EXPECT_EQ(info.field("LeafBusPath").toWide(), L"a.b");
  EXPECT_EQ(vela_.id("getSignalTimeDim", id), 1);
  vela_("setSignalSampleDims", id, std::vector<int>{3});
  EXPECT_EQ(vela_.id("getSignalTimeDim", id), 1);
  vela_("setSignalSampleDims", id, std::vector<int>{3, 2});
  EXPECT_EQ(vela_.id("getSignalTimeDim", id), 3);
}

TEST_F(SignalMethodsTest, SignalsAreMovedFromParentToParent) {
  const int first = signal();
  const int second = signal();
  const int child = signal();
  EXPECT_EQ(vela_.id("getSignalParent", child), 0);
  vela_("setParent", child, first);
  vela_("setParent", child, second);
  EXPECT_EQ(vela_.id("getSignalParent", child), second);
  EXPECT_THAT(ints(vela_("getSignalChildren", first)), IsEmpty());
  EXPECT_THAT(ints(vela_("getSignalChildren", second)), ElementsAre(child));
  EXPECT_EQ(property(first, "HasChildren").toInt64(), 0);
  EXPECT_EQ(idOf([&] { vela_("setParent", second, child); }), "nexstore:nex:InvalidData");
  EXPECT_EQ(idOf([&] { vela_("setParent", child, child); }), "nexstore:nex:InvalidData");
  EXPECT_EQ(vela_.id("getSignalParent", child), second);
  EXPECT_EQ(vela_.id("getHierarchicalSignalRootID", child), 0);
  EXPECT_FALSE(vela_("signalIsInHierarchy", child).toBool());
}

TEST_F(SignalMethodsTest, SignalsAreFoundByWhatIsKnownOfThem) {
  EXPECT_TRUE(vela_("isSignalCountZero").toBool());
  const int first = signal();
  const int second = signal();
  EXPECT_FALSE(vela_("isSignalCountZero").toBool());
  EXPECT_TRUE(vela_("isValidSignal", first).toBool());
  EXPECT_FALSE(vela_("isValidSignal", run_).toBool());
  EXPECT_EQ(vela_.id("getSignalIDByIndex", run_, 1), first);
  EXPECT_EQ(vela_.id("getSignalIDByIndex", run_, 2), second);
  for (const int beyond : {-1, 0, 3}) {
    EXPECT_EQ(vela_.id("getSignalIDByIndex", run_, beyond), 0);
  }
  vela_("setSignalDataSource", second, L"file.csv");
  EXPECT_EQ(vela_.id("getSignalIDByDataSource", L"file.csv"), second);
  EXPECT_EQ(vela_.id("getSignalIDByDataSource", L"none"), 0);
  set(second, "InstrumentedSignalUUID", array(std::int64_t{1} << 60));
  const auto leaves = [&](int runID) {
    return ints(vela_("getLeavesForInstrumentedSignal", runID, std::int64_t{1} << 60));
  };
  EXPECT_THAT(leaves(run_), ElementsAre(second));
  EXPECT_THAT(leaves(run()), IsEmpty());
}

TEST_F(SignalMethodsTest, SignalsOnPlotsAreListedByApplication) {
  const int own = signal();
  const int others = signalIn(vela_.id("createEmptyRun", L"b", "qrv"));
  const int nobodys = vela_.id("createObject", "Signal");
  signal();
  for (const int id : {own, others, nobodys}) vela_("setSignalChecked", id, array(3));
  // Objects made without more belong to the instance whose ID is 0, as do those of a private
  // file.
  EXPECT_THAT(ints(vela_("getAllCheckedSignals")), ElementsAre(own, others, nobodys));
  EXPECT_THAT(ints(vela_("getAllCheckedSignals", "allvela")), ElementsAre(own));
  EXPECT_THAT(ints(vela_("getAllCheckedSignals", "qrv")), ElementsAre(others));
  EXPECT_THAT(ints(vela_("getAllCheckedSignals", "allapplications")), ElementsAre(own, others));
}

TEST_F(SignalMethodsTest, ComparisonsKeepCopiesAndTheirVerdict) {
  const int baseline = withSamples(L"a");
  const int compareTo = withSamples(L"b");
  const int difference = withSamples(L"d");
  const test::HostArrays made =
      vela_.callAll("addSignalComparison",
                    {array(run(L"comparison")), array(false), array(L"Name"), array(baseline),
                     array(compareTo), array(difference), HostArray()});
  const int comparison = static_cast<int>(made[0].toInt64());
  const std::vector<int> family = ints(made[1]);
  ASSERT_EQ(family.size(), 4u);
  EXPECT_FALSE(vela_("getIsWithinTol", comparison).toBool());
  EXPECT_EQ(vela_("getSignalAlignedBy", comparison).toWide(), L"Name");
  EXPECT_EQ(vela_.id("getSignalSource", family[0]), baseline);
  EXPECT_EQ(vela_.id("getSignalSource", family[1]), compareTo);
  EXPECT_EQ(vela_.id("getSignalSource", baseline), 0);
  EXPECT_EQ(vela_("getSignalDataValues", family[2]), list({1, 2}));
  EXPECT_EQ(vela_("getSignalDataValues", family[3]), list({0, 0}));
  EXPECT_EQ(vela_.id("findCopiedCompareSignal", baseline), family[0]);
  EXPECT_EQ(vela_.id("findCopiedCompareSignal", family[0]), 0);

  vela_("updateSignalComparison", comparison, HostArray(), difference, true);
  EXPECT_TRUE(vela_("getIsWithinTol", comparison).toBool());
  EXPECT_EQ(
      idOf([&] { vela_("updateSignalComparison", baseline, HostArray(), HostArray(), true); }),
      "nexstore:nex:InvalidData");
  const test::Census before = test::censusOf(vela_.manager());
  EXPECT_EQ(idOf([&] {
              vela_("addSignalComparison", run_, true, L"", baseline, compareTo, HostArray(),
                    0);
            }),
            "nexstore:nex:NoSuchSignal");
  EXPECT_EQ(test::censusOf(vela_.manager()), before);
}

TEST_F(SignalMethodsTest, ASignalsLikeInAnotherRunFollowsItsName) {
  const int original = withSamples(L"a");
  const int other = run(L"other");
  const int like = signalIn(other);
  const auto found = [&] { return vela_.id("findAlignedSignalFromRun", original, other); };
  EXPECT_EQ(found(), 0);
  vela_("setSignalLabel", like, L"a");
  EXPECT_EQ(found(), like);
  vela_("setSignalBlockSource", like, L"x");
  EXPECT_EQ(found(), 0);
}

TEST_F(SignalMethodsTest, MinimumAndMaximumAreWorkedOutAnewOnRequest) {
  const int parent = signal();
  const int child = signal();
  vela_("setParent", child, parent);
  set(parent, "MinMaxDirectReadOkay", array(2));
  set(child, "MinMaxDirectReadOkay", array(1));
  vela_("clearMinMaxDirectReadOkayFlag", parent);
  EXPECT_EQ(property(parent, "MinMaxDirectReadOkay").toInt64(), 0);
  EXPECT_EQ(property(child, "MinMaxDirectReadOkay").toInt64(), 0);
}

TEST_F(SignalMethodsTest, TheDefaultColoursStartOverOnRequest) {
  vela_("resetSignalColors");
  const HostArray first = vela_("getSignalLineColor", signal());
  EXPECT_NE(vela_("getSignalLineColor", signal()), first);
  vela_("resetSignalColors");
  EXPECT_EQ(vela_("getSignalLineColor", signal()), first);
}

}  // namespace
}  // namespace vela
