// Signals and their samples.
#include <complex>

#include "objects/datatypes.h"
#include "objects/signal.h"
#include "scriptingtest.h"

namespace vela {
namespace {

using host::ArrayClass;
using host::Complexity;
using host::HostArray;
using test::array;
using test::idOf;
using test::ints;
using testing::ElementsAre;
using testing::IsEmpty;

using Reals = std::vector<double>;

const host::EnumerationType kGear = {"Gear", {{"low", 1}, {"high", 7}}};

HostArray list(Reals values) {
  return HostArray::list(std::move(values));
}
HostArray samples(const HostArray& times, const HostArray& values) {
  return HostArray::structure({{"Time", times}, {"Data", values}});
}
/// Doubles counted up from 1, shape (dims).
HostArray counted(host::Dimensions dims, Complexity complexity = Complexity::real) {
  std::size_t count = complexity == Complexity::complex ? 2 : 1;
  for (const std::size_t dim : dims) count *= dim;
  Reals values;
  while (values.size() < count) values.push_back(static_cast<double>(values.size() + 1));
  return HostArray::owning(ArrayClass::real64, std::move(dims), std::move(values), complexity);
}

class SignalDataTest : public test::ScriptingTest {
 protected:
  /// The inputs of "add", by position from 1; all but the data and the run are left out.
  HostArray addWith(const HostArray& data,
                    const std::map<std::size_t, HostArray>& inputs = {}) {
    test::HostArrays arguments(20);
    for (const std::size_t text : {3, 4, 5, 7, 8, 9}) arguments[text - 1] = array(L"");
    arguments[0] = data;
    arguments[17] = array(run_);
    for (const auto& [position, value] : inputs) arguments[position - 1] = value;
    return vela_.callAll("add", arguments).front();
  }
  int add(const HostArray& data, const std::map<std::size_t, HostArray>& inputs = {}) {
    return static_cast<int>(addWith(data, inputs).toInt64());
  }
  int fresh() { return vela_.id("createSignal", run_); }
  HostArray values(int signal) { return vela_("getSignalDataValues", signal); }
  Reals times(int signal) {
    const HostArray data = vela_("getHierarchicalSignalData", signal);
    const auto all = data.field("Time").values<double>();
    return {all.begin(), all.end()};
  }
  std::string appending(int signal, const HostArray& at, const HostArray& data) {
    return idOf([&] { vela_("appendSignalData", signal, at, data); });
  }

  const int run_ = run();
};

TEST_F(SignalDataTest, NewSignalsBelongToTheirRun) {
  const int plain = fresh();
  EXPECT_EQ(vela_("getSignalDataTypeLabel", plain).toWide(), L"Null");
  EXPECT_EQ(values(plain), list({}));
  EXPECT_TRUE(vela_("signalIsEmpty", plain).toBool());
  const int scalar = vela_.id("createDoubleScalarSignal", run_);
  EXPECT_EQ(vela_("getSignalDataTypeLabel", scalar).toWide(), L"double");
  EXPECT_EQ(vela_("getSignalInterpMethod", scalar).toString(), "linear");
  EXPECT_THAT(ints(vela_("getAllSignalIDs", run_)), ElementsAre(plain, scalar));
  EXPECT_EQ(vela_.id("getSignalRunID", scalar), run_);
  for (const char* const method : {"createSignal", "createDoubleScalarSignal"}) {
    EXPECT_EQ(idOf([&] { vela_(method, plain); }), "nexstore:nex:NoSuchRun");
  }
  EXPECT_EQ(idOf([&] {
              addWith(samples(list({}), list({})), {{18, array(0)}});
            }),
            "nexstore:nex:NoSuchRun");
}

TEST_F(SignalDataTest, TheFirstSamplesGiveASignalItsType) {
  const std::pair<HostArray, const wchar_t*> cases[] = {
      {list({1.5}), L"double"},
      {array(2.5f), L"single"},
      {array(std::int8_t{-3}), L"int8"},
      {HostArray::scalar(std::uint64_t{1} << 63), L"uint64"},
      {array(true), L"boolean"},
      {HostArray::enumeration(kGear, array(std::vector<int>{7})), L"Gear"},
      {HostArray::fixedPoint({true, 16, 4, 0.0625, 0}, list({0.5})),
       L"fxp_binary_point_scaling"},
      {HostArray::fixedPoint({false, 8, std::nullopt, 0.3, -1}, list({0.5})),
       L"fxp_slope_bias_scaling"}};
  for (const auto& [sample, label] : cases) {
    SCOPED_TRACE(sample.describe());
    const int signal = fresh();
    vela_("appendSignalData", signal, 2.5, sample);
    EXPECT_EQ(vela_("getSignalDataTypeLabel", signal).toWide(), label);
    EXPECT_EQ(values(signal), sample.withRank(1));
    EXPECT_EQ(vela_("isEnum", signal).toBool(), sample.isEnumeration());
    EXPECT_FALSE(vela_("signalIsEmpty", signal).toBool());
  }
  EXPECT_TRUE(vela_("runHasEnumSignals", run_).toBool());
}

TEST_F(SignalDataTest, AppendedNumbersTakeOnTheTypeOfTheSignal) {
  const int small = add(samples(list({0}), HostArray::list(std::vector<std::int8_t>{1})));
  EXPECT_EQ(appending(small, list({1, 2}), list({2, -128})), "");
  const int gear = add(
      samples(list({0}), HostArray::enumeration(kGear, HostArray::list(std::vector<int>{1}))));
  EXPECT_EQ(appending(gear, list({1}), list({7})), "");
  const struct {
    int signal;
    HostArray data;
    const char* id;
  } refused[] = {
      {small, list({1.5}), "IntegerExpected"},
      {small, list({128}), "InvalidData"},
      {small, HostArray::enumeration(kGear, HostArray::list(std::vector<int>{1})),
       "InvalidData"},
      {small, HostArray::text("a"), "InvalidData"},
      {small, HostArray::cell({array(1)}), "InvalidData"},
      {small, HostArray::scalar(std::complex<double>(1, 1)), "InvalidData"},
      {gear, list({2}), "InvalidData"},
      {gear,
       HostArray::enumeration({"Gear", {{"low", 1}}}, HostArray::list(std::vector<int>{1})),
       "InvalidData"},
      {small, list({1, 2}), "InvalidDimensions"},
      {small, counted({1, 2}), "InvalidDimensions"}};
  const HostArray before = values(small);
  EXPECT_EQ(before, HostArray::list(std::vector<std::int8_t>{1, 2, -128}));
  for (const auto& c : refused) {
    SCOPED_TRACE(c.data.describe());
    EXPECT_EQ(appending(c.signal, list({9}), c.data), std::string("nexstore:nex:") + c.id);
  }
  EXPECT_EQ(values(small), before);
  EXPECT_EQ(values(gear),
            HostArray::enumeration(kGear, HostArray::list(std::vector<int>{1, 7})));
}

TEST_F(SignalDataTest, TimesMustBeFiniteAndOrderedAlongOneAxis) {
  const int signal = add(samples(list({0, 1}), list({10, 20})));
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const HostArray& bad : {list({3, 2}), list({2, nan}), list({2, HUGE_VAL})}) {
    EXPECT_EQ(appending(signal, bad, list({1, 2})), "nexstore:nex:InvalidData");
  }
  EXPECT_EQ(appending(signal, HostArray::text("ab"), list({1, 2})), "nexstore:nex:InvalidData");
  EXPECT_EQ(appending(signal, counted({2, 2}), counted({4, 1})),
            "nexstore:nex:InvalidDimensions");
  EXPECT_THAT(times(signal), ElementsAre(0, 1));
  vela_("appendSignalData", signal, HostArray::list(std::vector<int>{1, 2}), list({30, 40}));
  EXPECT_THAT(times(signal), ElementsAre(0, 1, 1, 2));
  vela_("appendSignalData", signal, list({1.5}), list({50}));
  EXPECT_THAT(times(signal), ElementsAre(0, 1, 1, 1.5));
  EXPECT_EQ(appending(signal, list({}), list({})), "");
}

TEST_F(SignalDataTest, DataOfAnyShapeComeBackAsTheyWereGiven) {
  const HostArray flags = HostArray::numeric(
      ArrayClass::logical, {2, 2}, std::as_bytes(std::span<const char>("\1\0\0\1", 4)));
  const HostArray gears = HostArray::enumeration(
      kGear, HostArray::owning(ArrayClass::int32, {2, 2}, std::vector<int>{1, 7, 7, 1}));
  const HostArray singles = HostArray::owning(ArrayClass::real32, {2, 2},
                                              std::vector<float>(8, 1.5F), Complexity::complex);
  for (const HostArray& data :
       {counted({2, 1}).withRank(1), counted({2, 3}), counted({2, 2, 3}), flags, gears, singles,
        counted({2, 1}, Complexity::complex).withRank(1),
        counted({2, 2, 3}, Complexity::complex), counted({0, 3})}) {
    SCOPED_TRACE(data.describe());
    const std::size_t n = data.dimensions()[0];
    const HostArray at = list(Reals{0.5, 1.5}).withRank(1);
    const HostArray given = samples(n == 2 ? at : list({}), data);
    const int signal = add(given);
    EXPECT_EQ(vela_("getHierarchicalSignalData", signal), given);
    EXPECT_EQ(values(signal), data);
    EXPECT_EQ(vela_("signalIsEmpty", signal).toBool(), n == 0);
    // What was read can be added again.
    EXPECT_EQ(values(add(vela_("getHierarchicalSignalData", signal))), data);
  }
}

TEST_F(SignalDataTest, EveryElementAndPartHasASignalOfItsOwn) {
  const int matrix = add(samples(list({0, 1}), counted({2, 2, 2})), {{9, array(L"m")}});
  const std::vector<int> elements = ints(vela_("getSignalChildren", matrix));
  ASSERT_EQ(elements.size(), 4u);
  EXPECT_EQ(values(elements[1]), list({3, 4}));
  EXPECT_THAT(ints(vela_("getSignalChannel", elements[1])), ElementsAre(2, 1));
  EXPECT_EQ(vela_("getSignalName", elements[1]).toWide(), L"m");

  const int complex =
      add(samples(list({0, 1}), counted({2, 1}, Complexity::complex).withRank(1)),
          {{9, array(L"z")}});
  const std::vector<int> parts = ints(vela_("getSignalChildren", complex));
  ASSERT_EQ(parts.size(), 2u);
  EXPECT_EQ(values(parts[0]), list({1, 3}));
  EXPECT_EQ(values(parts[1]), list({2, 4}));
  EXPECT_EQ(vela_("getSignalName", parts[1]).toWide(), L"z (imaginary)");
  const auto isImaginary = [&](int signal) {
    return vela_("getSignalComplexityAndLeafPath", signal).field("IsImagPart").toBool();
  };
  EXPECT_FALSE(isImaginary(parts[0]));
  EXPECT_TRUE(isImaginary(parts[1]));
  vela_("appendSignalData", complex, list({2}), list({5}));
  EXPECT_EQ(values(parts[1]), list({2, 4, 0}));
}

TEST_F(SignalDataTest, PartsThatDoNotBelongTogetherAnyMoreAreNotMixedUp) {
  const int matrix = add(samples(list({0, 1}), counted({2, 2})));
  const std::vector<int> elements = ints(vela_("getSignalChildren", matrix));
  vela_("appendSignalData", elements[0], list({2}), list({9}));
  EXPECT_EQ(idOf([&] { values(matrix); }), "nexstore:nex:InvalidData");
  vela_("rollback", elements[0], 1.0);
  vela_("appendSignalData", elements[0], list({1.5}), list({9}));
  EXPECT_EQ(idOf([&] { values(matrix); }), "nexstore:nex:InvalidData");
}

TEST_F(SignalDataTest, ARangeHoldsBothItsEnds) {
  for (const HostArray& data : {counted({4, 1}).withRank(1), counted({4, 2})}) {
    const int signal = add(samples(list({0, 1, 1, 2}), data));
    const auto timesIn = [&](double start, double end) {
      const HostArray read = vela_("getSignalDataValues", signal, true, start, end, "option");
      const auto all = read.field("Time").values<double>();
      EXPECT_EQ(read.field("Data"), vela_("getSignalDataValues", signal, false, start, end));
      EXPECT_EQ(read.field("Data").dimensions()[0], all.size());
      return Reals(all.begin(), all.end());
    };
    EXPECT_THAT(timesIn(1, 2), ElementsAre(1, 1, 2));
    EXPECT_THAT(timesIn(-HUGE_VAL, 0.5), ElementsAre(0));
    EXPECT_THAT(timesIn(2, 1), IsEmpty());
    EXPECT_EQ(vela_("getSignalDataValues", signal, true, 1.0).field("Time").size(), 3u);
    EXPECT_EQ(idOf([&] { vela_("getSignalDataValues", signal, false, std::nan(""), 1.0); }),
              "nexstore:nex:InvalidData");
  }
}

TEST_F(SignalDataTest, ValuesAreReplacedWhileTheTimesStay) {
  const int signal = add(samples(list({0, 1}), HostArray::list(std::vector<int>{1, 2})));
  vela_("appendSignalData", signal, list({2}), list({3}));
  EXPECT_EQ(vela_.id("getNumberOfChunks", signal), 2);
  vela_("setSignalDataValues", signal, list({4, 5, 6}));
  EXPECT_EQ(values(signal), HostArray::list(std::vector<int>{4, 5, 6}));
  EXPECT_THAT(times(signal), ElementsAre(0, 1, 2));
  const std::pair<HostArray, const char*> refused[] = {{list({1, 2}), "InvalidDimensions"},
                                                       {list({1, 2, 0.5}), "IntegerExpected"},
                                                       {HostArray::text("abc"), "InvalidData"}};
  for (const auto& [data, id] : refused) {
    EXPECT_EQ(idOf([&] { vela_("setSignalDataValues", signal, data); }),
              std::string("nexstore:nex:") + id);
  }
  EXPECT_EQ(values(signal), HostArray::list(std::vector<int>{4, 5, 6}));

  const int matrix = add(samples(list({0, 1}), counted({2, 2})));
  const HostArray other = HostArray::owning(ArrayClass::real64, {2, 2}, Reals{9, 8, 7, 6});
  vela_("setSignalDataValues", matrix, other);
  EXPECT_EQ(values(matrix), other);
}

TEST_F(SignalDataTest, ARollbackDropsWhatIsAtOrAfterATime) {
  for (const HostArray& data : {counted({3, 1}).withRank(1), counted({3, 2})}) {
    const int signal = add(samples(list({0, 1, 2}), data));
    vela_("rollback", signal, 1.0);
    EXPECT_THAT(times(signal), ElementsAre(0));
    EXPECT_EQ(idOf([&] { vela_("rollback", signal, std::nan("")); }),
              "nexstore:nex:InvalidData");
  }
}

TEST_F(SignalDataTest, ASignalGoesWithEverythingBelowIt) {
  const int parent = fresh();
  const int matrix = add(samples(list({0}), counted({1, 2})), {{19, array(parent)}});
  EXPECT_EQ(vela_.id("getSignalParent", matrix), parent);
  const int element = ints(vela_("getSignalChildren", matrix))[0];
  set(element, "IsActivelyStreaming", array(1));
  EXPECT_EQ(idOf([&] { vela_("remove", parent); }), "nexstore:nex:DeleteStreamingSignal");
  EXPECT_EQ(idOf([&] { vela_("deleteRunsAndSignals", std::vector<int>{matrix}, true); }),
            "nexstore:nex:DeleteStreamingSignal");
  EXPECT_TRUE(vela_("getSignalIsActivelyStreaming", element).toBool());
  set(element, "IsActivelyStreaming", array(0));
  vela_("remove", matrix);
  EXPECT_THAT(ints(vela_("getAllSignalIDs", run_)), ElementsAre(parent));
  EXPECT_EQ(property(parent, "HasChildren").toInt64(), 0);
}

TEST_F(SignalDataTest, MergedSamplesKeepTheOrderOfTheirTimes) {
  const int target = add(samples(list({0, 2}), list({1, 2})));
  const int source = add(samples(list({1, 2}), list({3, 4})));
  EXPECT_EQ(idOf([&] { vela_("mergeSignals", target, target); }), "nexstore:nex:InvalidData");
  vela_("mergeSignals", target, source);
  EXPECT_EQ(values(target), list({1, 3, 2, 4}));
  EXPECT_FALSE(vela_("isValidSignal", source).toBool());
}

TEST_F(SignalDataTest, WhatHasLostItsShapeIsNotReadAsEmpty) {
  const auto matrix = [&] { return add(samples(list({0}), counted({1, 2, 2}))); };
  const HostArray complexOne = counted({2, 1}, Complexity::complex);
  const auto elements = [&](int signal) { return ints(vela_("getSignalChildren", signal)); };
  const int shrunk = matrix();
  vela_("remove", elements(shrunk)[1]);
  const int reshaped = matrix();
  vela_("setSignalSampleDims", reshaped, std::vector<int>{4});
  const int doubled = matrix();
  vela_("setProperty", elements(doubled)[0], "Channel",
        vela_("getProperty", elements(doubled)[1], "Channel"));
  const int real = add(samples(list({0, 1}), complexOne));
  vela_("remove", elements(real)[1]);
  const int nothing = add(samples(list({0, 1}), complexOne));
  for (const int part : elements(nothing)) vela_("remove", part);
  for (const int signal : {shrunk, reshaped, doubled, real, nothing}) {
    EXPECT_EQ(idOf([&] { values(signal); }), "nexstore:nex:InvalidData");
    EXPECT_EQ(idOf([&] { vela_("getHierarchicalSignalData", signal); }),
              "nexstore:nex:InvalidData");
  }
}

TEST_F(SignalDataTest, LeavesTakeTheirElementsOutOfRecords) {
  const int leaf = fresh();
  ObjectManager& manager = vela_.manager();
  long long type = 0;
  DataTypeUtil::getBuiltInDataTypeHandle(dtypeInt16, manager, type);
  bool found = false;
  Signal::getSignalFromID(manager, leaf)
      ->setDataType(*manager.findObject(static_cast<int>(type), "DataType", found));
  const HostArray records =
      HostArray::list(std::vector<std::uint8_t>{9, 1, 0, 9, 2, 0, 9, 255, 255, 9});
  const auto elements = [&](const HostArray& bytes, double count) {
    return vela_("getLeafDataFromStructuredData", leaf, bytes, count);
  };
  EXPECT_EQ(idOf([&] { elements(records, 9); }), "nexstore:nex:InvalidDimensions");
  vela_("setProperty", leaf, "CompositeDataSize", 3, "ObservedElemSize", 2,
        "CompositeSigByteOffset", 2);
  EXPECT_EQ(idOf([&] { elements(records, 9); }), "nexstore:nex:InvalidDimensions");
  set(leaf, "CompositeSigByteOffset", array(1));
  EXPECT_TRUE(vela_("signalIsInHierarchy", leaf).toBool());
  EXPECT_EQ(elements(records, 1e300), HostArray::list(std::vector<std::int16_t>{1, 2, -1}));
  EXPECT_EQ(elements(records, 8.9), HostArray::list(std::vector<std::int16_t>{1, 2}));
  EXPECT_EQ(elements(records, 0).size(), 0u);
  for (const double bad : {-1.0, std::nan("")}) {
    EXPECT_EQ(idOf([&] { elements(records, bad); }), "nexstore:nex:InvalidData");
  }
  EXPECT_EQ(idOf([&] { elements(list({1, 2, 3}), 3); }), "nexstore:nex:InvalidData");
}

TEST_F(SignalDataTest, AddWritesWhatItIsTold) {
  const int parent = fresh();
  const HostArray metadata = HostArray::structure({{"a", array(L"x")}, {"b", list({1, 2})}});
  const int signal = add(samples(list({0, 0}), list({1, 2})), {{2, array(L"m/s")},
                                                               {3, array(L"root")},
                                                               {4, array(L"root data")},
                                                               {5, array(L"time")},
                                                               {6, array(L"data")},
                                                               {7, array(L"model/block")},
                                                               {8, array(L"model")},
                                                               {9, array(L"speed")},
                                                               {10, list({1, 1})},
                                                               {11, array(3)},
                                                               {12, list({2, 4})},
                                                               {13, array(L"m:1")},
                                                               {14, array(0.5)},
                                                               {15, array(0.25)},
                                                               {16, array(L"intersection")},
                                                               {17, metadata},
                                                               {19, array(parent)},
                                                               {20, array(L"linear")}});
  const std::pair<const char*, const wchar_t*> texts[] = {
      {"getUnit", L"m/s"},
      {"getSignalRootSource", L"root"},
      {"getRootDataSource", L"root data"},
      {"getSignalTimeSource", L"time"},
      {"getSignalDataSource", L"data"},
      {"getSignalModelSource", L"model"},
      {"getSignalLabel", L"speed"},
      {"getSignalName", L"speed"},
      {"getSignalSID", L"m:1"},
      {"getSignalSyncMethod", L"intersection"},
      {"getSignalInterpMethod", L"linear"}};
  for (const auto& [getter, text] : texts) {
    EXPECT_EQ(vela_(getter, signal).toWide(), text) << getter;
  }
  EXPECT_EQ(vela_("getSignalBlockSource", signal, false).toWide(), L"model/block");
  EXPECT_EQ(vela_("getSignalBlockSource", signal, true).cells().size(), 1u);
  EXPECT_EQ(vela_.id("getSignalPortIndex", signal), 3);
  EXPECT_THAT(ints(vela_("getSignalSampleDims", signal)), ElementsAre(1, 1));
  EXPECT_EQ(vela_.id("getSignalTimeDim", signal), 3);
  EXPECT_THAT(ints(vela_("getSignalChannel", signal)), ElementsAre(2, 4));
  EXPECT_EQ(vela_("getSignalAbsTol", signal).toDouble(), 0.5);
  EXPECT_EQ(vela_("getSignalRelTol", signal).toDouble(), 0.25);
  EXPECT_EQ(vela_("getSignalMetaData", signal, "a"), array(L"x"));
  EXPECT_EQ(vela_("getSignalMetaData", signal, "b"), list({1, 2}));
  EXPECT_EQ(vela_.id("getSignalParent", signal), parent);
  EXPECT_EQ(vela_.id("getSignalRunID", signal), run_);
  EXPECT_EQ(vela_("getSignalExportProps", signal).field("HasDuplicateTimes").toInt64(), 1);
}

TEST_F(SignalDataTest, AddRefusesWhatItCannotUseAndLeavesNothing) {
  const HostArray one = samples(list({0}), list({1}));
  const int elsewhere = signalIn(run());
  const struct {
    std::size_t position;
    HostArray value;
    const char* id;
  } cases[] = {{1, list({1}), "InvalidData"},
               {1, HostArray::structure({{"Time", list({0})}}), "InvalidData"},
               {1, samples(list({0, 1}), list({1})), "InvalidDimensions"},
               {1, samples(list({1, 0}), list({1, 2})), "InvalidData"},
               {1, samples(list({0}), HostArray::text("a")), "InvalidData"},
               {2, array(1), "InvalidData"},
               {6, array(1), "InvalidData"},
               {10, list({2}), "InvalidDimensions"},
               {10, list({-1}), "InvalidDimensions"},
               {10, list({1.5}), "IntegerExpected"},
               {10, array(L"1"), "IntegerExpected"},
               {11, array(1.5), "IntegerScalarExpected"},
               {11, list({1, 2}), "IntegerScalarExpected"},
               {12, list({0.5}), "IntegerExpected"},
               {13, array(1), "InvalidData"},
               {14, array(L"1"), "InvalidData"},
               {15, list({1, 2}), "InvalidData"},
               {17, array(1), "InvalidData"},
               {17, HostArray::structure({{"f", vela_.self()}}), "InvalidData"},
               {19, array(0), "NoSuchSignal"},
               {19, array(elsewhere), "InvalidData"}};
  const test::Census before = test::censusOf(vela_.manager());
  for (const auto& c : cases) {
    SCOPED_TRACE(std::to_string(c.position) + ": " + c.value.describe());
    EXPECT_EQ(idOf([&] {
                add(one, {{c.position, c.value}});
              }),
              std::string("nexstore:nex:") + c.id);
  }
  EXPECT_EQ(test::censusOf(vela_.manager()), before);
  EXPECT_EQ(idOf([&] { add(one, {{16, array(1)}, {20, array(1)}}); }), "");
}

}  // namespace
}  // namespace vela
