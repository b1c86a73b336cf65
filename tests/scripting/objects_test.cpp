// Stored objects of any class.
#include "scriptingtest.h"

namespace vela {
namespace {

using host::HostArray;
using test::idOf;
using test::ints;
using testing::ElementsAre;
using testing::IsEmpty;

class ObjectMethodsTest : public test::ScriptingTest {
 protected:
  int create(const char* className) { return vela_.id("createObject", className); }
};

TEST_F(ObjectMethodsTest, ObjectsOfAllClassesHaveOneKindOfID) {
  const int run = create("DataSet");
  const int harness = create("vela.TestHarnessData");
  EXPECT_GT(run, 0);
  EXPECT_NE(run, harness);
  vela_("removeObject", run);
  EXPECT_EQ(idOf([&] { vela_("removeObject", run); }), "KODD:kodd:NoSuchObject");
  EXPECT_EQ(idOf([&] { property(run, "UName"); }), "KODD:kodd:InvalidObject");
  EXPECT_GT(create("DataSet"), run);
  EXPECT_EQ(idOf([&] { create("Nothing"); }), "KODD:kodd:NoSuchObjectType");
}

TEST_F(ObjectMethodsTest, PropertiesKeepTheirValuesToTheLastBit) {
  const int signal = create("Signal");
  const std::int64_t big = (std::int64_t{1} << 53) + 1;
  const std::wstring text(L"\u00e4\0\U0001F600", 3);
  vela_("setProperty", signal, "InstanceID", big, "HierarchyReference", text,
        "SimTimeOfNewestPoint", -0.0);
  EXPECT_EQ(property(signal, "InstanceID").toInt64(), big);
  EXPECT_EQ(property(signal, "HierarchyReference").toWide(), text);
  EXPECT_TRUE(std::signbit(property(signal, "SimTimeOfNewestPoint").toDouble()));
  EXPECT_EQ(ints(vela_("findObjects", "Signal", "InstanceID", big)), std::vector{signal});
  EXPECT_THAT(ints(vela_("findObjects", "Signal", "InstanceID", big - 1)), IsEmpty());
}

TEST_F(ObjectMethodsTest, TheTrailingFlagDecidesAboutTheWidthOfTexts) {
  const int run = create("DataSet");
  for (const bool wide : {false, true}) {
    vela_("setProperty", run, "UName", L"d\u00e4", wide);
    EXPECT_EQ(property(run, "UName").toWide(), L"d\u00e4");
    const HostArray asWide = vela_("getProperty", run, "UName", true);
    EXPECT_TRUE(asWide.isWideText());
  }
  const int harness = create("TestHarnessData");
  vela_("setProperty", harness, "name", L"\u00e4", true);
  EXPECT_EQ(property(harness, "name").toString(), "\u00e4");
  EXPECT_FALSE(property(harness, "name").isWideText());
}

TEST_F(ObjectMethodsTest, SetPropertyCountsNamesAndValuesBeforeItLooksAtThem) {
  const int run = create("DataSet");
  const HostArray oneFlag = HostArray::list(std::span<const bool>(std::array{true}));
  const HostArray twoFlags = HostArray::list(std::span<const bool>(std::array{true, true}));
  const struct {
    host::HostArrays inputs;
    const char* id;
  } cases[] = {
      {{}, ""},
      {{HostArray::scalar(true)}, ""},
      {{oneFlag}, ""},
      {{twoFlags}, "nexstore:nex:MismatchedPropVal"},
      {{HostArray::scalar(1)}, "nexstore:nex:MismatchedPropVal"},
      {{test::array("UName")}, "nexstore:nex:MismatchedPropVal"},
      {{test::array("UName"), test::array("a"), test::array("Tag")},
       "nexstore:nex:MismatchedPropVal"},
      {{HostArray::scalar(1), test::array("a")}, "nexstore:nex:PropNameString"},
      {{test::array("UName"), test::array("a"), HostArray::scalar(1), HostArray::scalar(1)},
       "nexstore:nex:PropNameString"},
      // An even list ends in a value, a flag or not.
      {{test::array("OrderIndex"), HostArray::scalar(true)}, ""}};
  for (const auto& c : cases) {
    host::HostArrays inputs = c.inputs;
    inputs.insert(inputs.begin(), HostArray::scalar(run));
    EXPECT_EQ(idOf([&] { vela_.callAll("setProperty", inputs); }), c.id);
  }
  EXPECT_EQ(property(run, "UName").toWide(), L"");
  EXPECT_EQ(property(run, "OrderIndex").toInt64(), 1);
  EXPECT_EQ(idOf([&] { vela_("setProperty", 999'999, "UName", "a"); }),
            "KODD:kodd:InvalidObject");
}

TEST_F(ObjectMethodsTest, SetPropertyWritesAllOrNothing) {
  const int run = create("DataSet");
  for (const auto& [name, value, id] :
       {std::tuple{"NoSuch", HostArray::scalar(1), "KODD:kodd:InvalidProperty"},
        {"OrderIndex", HostArray::scalar(1.5), "KODD:kodd:InvalidPropertyValue"},
        {"OrderIndex", HostArray::scalar(1LL << 40), "KODD:kodd:InvalidPropertyValue"},
        {"OrderIndex", HostArray::text("1"), "KODD:kodd:InvalidPropertyValue"},
        {"OrderIndex", vela_.self(), "KODD:kodd:InvalidPropertyValue"},
        {"UName", HostArray::scalar(1), "KODD:kodd:InvalidPropertyValue"},
        {"BaselineSetID", HostArray::scalar(999'999), "KODD:kodd:InvalidPropertyValue"}}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(idOf([&] { vela_("setProperty", run, "UName", "changed", name, value); }), id);
    EXPECT_EQ(property(run, "UName").toWide(), L"");
  }
}

TEST_F(ObjectMethodsTest, ReferencesAreIDs) {
  const int run = create("DataSet");
  const int baseline = create("DataSet");
  vela_("setProperty", run, "BaselineSetID", baseline);
  EXPECT_EQ(property(run, "BaselineSetID").toInt64(), baseline);
  EXPECT_THAT(ints(vela_("findObjects", "DataSet", "BaselineSetID", baseline)),
              ElementsAre(run));
  EXPECT_THAT(ints(vela_("findObjects", "DataSet", "BaselineSetID", 0)), ElementsAre(baseline));
  vela_("removeObject", baseline);
  EXPECT_EQ(property(run, "BaselineSetID").toInt64(), 0);
}

TEST_F(ObjectMethodsTest, ArraysKeepTheirShape) {
  const int entry = create("MetaData");
  const HostArray value = HostArray::cell(
      {HostArray::list(std::vector<int>{5}), HostArray::scalar(std::complex<double>(1, 2))});
  for (const HostArray& kept : {value, HostArray::scalar(2.5)}) {
    vela_("setProperty", entry, "HostarrayValue", kept);
    EXPECT_EQ(property(entry, "HostarrayValue"), kept);
  }
  const HostArray bytes = HostArray::list(std::vector<std::uint8_t>{1, 0, 255});
  vela_("setProperty", entry, "BlobValue", bytes);
  EXPECT_EQ(property(entry, "BlobValue"), bytes);
}

TEST_F(ObjectMethodsTest, FindObjectsWantsEveryPairToMatch) {
  const int first = create("DataSet");
  const int second = create("DataSet");
  vela_("setProperty", first, "UName", "a", "OrderIndex", 4);
  vela_("setProperty", second, "UName", "a", "OrderIndex", 5);
  EXPECT_THAT(ints(vela_("findObjects", "DataSet")), ElementsAre(first, second));
  EXPECT_THAT(ints(vela_("findObjects", "DataSet", "UName", "a")), ElementsAre(first, second));
  EXPECT_THAT(ints(vela_("findObjects", "DataSet", "UName", "a", "OrderIndex", 5.0)),
              ElementsAre(second));
  EXPECT_THAT(ints(vela_("findObjects", "DataSet", "UName", "b")), IsEmpty());
  EXPECT_EQ(idOf([&] { vela_("findObjects", "DataSet", "UName"); }),
            "nexstore:nex:MismatchedPropVal");
  EXPECT_EQ(idOf([&] { vela_("findObjects", "DataSet", 1, "a"); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(idOf([&] { vela_("findObjects", "Nothing"); }), "KODD:kodd:NoSuchObjectType");
  EXPECT_EQ(idOf([&] { vela_("findObjects", "DataSet", "NoSuch", 1); }),
            "KODD:kodd:InvalidProperty");
}

TEST_F(ObjectMethodsTest, ChildrenComeAndGoAndTheParentIsLookedUpFirst) {
  const int run = this->run();
  const int signal = create("Signal");
  EXPECT_THAT(ints(vela_("getChildren", run, "Signal")), IsEmpty());
  vela_("addChild", run, signal);
  EXPECT_THAT(ints(vela_("getChildren", run, "Signal")), ElementsAre(signal));
  vela_("removeChild", run, signal);
  EXPECT_THAT(ints(vela_("getChildren", run, "Signal")), IsEmpty());
  vela_("removeChild", run, signal);

  for (const char* const method : {"addChild", "removeChild"}) {
    try {
      vela_(method, 999'998, 999'999);
      ADD_FAILURE() << method;
    } catch (const kodiag::except::ExceptionWithCauses& error) {
      EXPECT_EQ(error.id(), "KODD:kodd:InvalidObject");
      EXPECT_NE(error.message().text().find("999998"), std::string::npos);
    }
    EXPECT_EQ(idOf([&] { vela_(method, run, 999'999); }), "KODD:kodd:InvalidObject");
  }
  EXPECT_EQ(idOf([&] { vela_("getChildren", 999'999, "Signal"); }), "KODD:kodd:InvalidObject");
}

TEST_F(ObjectMethodsTest, LocksAreNotOffered) {
  EXPECT_EQ(vela_("getLock"), HostArray::scalar(false));
  vela_("setLock", true);
  EXPECT_EQ(vela_("getLock"), HostArray::scalar(false));
}

}  // namespace
}  // namespace vela
