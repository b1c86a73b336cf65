// Appending, merging, rolling back and deleting samples: what is stored and what is counted.
#include "objects/dataserializationutil.h"
#include "objects/set.h"
#include "objects/signalstate.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::bytesOf;
using test::kInfinity;
using test::kNaN;
using test::raisedBy;
using testing::ElementsAre;
using testing::IsEmpty;

class SignalStorageTest : public test::SignalTest {
 protected:
  SignalStorageTest() : signal_(*manager_) {}

  /// "number: points start..end" of every chunk.
  std::vector<std::string> layout() {
    std::vector<std::string> texts;
    for (const ChunkRow& chunk : chunks(signal_)) {
      texts.push_back(std::to_string(chunk.number) + ": " + std::to_string(chunk.points) + " " +
                      std::to_string(static_cast<int>(chunk.startTime)) + ".." +
                      std::to_string(static_cast<int>(chunk.endTime)));
    }
    return texts;
  }
  SignalState counters() { return manager_->prepared<SignalStates>().read(signal_.getID()); }
  /// Puts the signal into a run with these stepping properties.
  Set steppedRun(double startTime, int interval, int numSteps) {
    Set run(*manager_, false);
    run.setStartTime(startTime);
    run.setStepperInterval(interval);
    run.setStepperNumSteps(numSteps);
    run.addElement(signal_);
    signal_.setIsSimStepperEnabled(true);
    return run;
  }

  Signal signal_;
};

TEST_F(SignalStorageTest, EveryAppendIsAChunkOfItsOwn) {
  append(signal_, {1});
  append(signal_, {2});
  append(signal_, {3, 4});
  EXPECT_THAT(layout(), ElementsAre("1: 1 1..1", "2: 1 2..2", "3: 2 3..4"));
  const SignalState counted = counters();
  EXPECT_EQ(counted.lastChunk, 3);
  EXPECT_EQ(counted.lastChunkBytes, 16);
  EXPECT_EQ(counted.largestChunkBytes, 16);
  EXPECT_EQ(signal_.getLatestTimeValue(), 4);
  EXPECT_THAT(times(signal_), ElementsAre(1, 2, 3, 4));
}

TEST_F(SignalStorageTest, SmallAppendsFillTheNewestChunkInPlace) {
  Signal::setMinimumChunkNumBytes(40);
  for (int i = 1; i <= 4; ++i) append(signal_, {double(i)}, {10. * i});
  const int chunk = chunks(signal_)[0].id;
  append(signal_, {5}, {50});
  EXPECT_THAT(layout(), ElementsAre("1: 5 1..5"));
  EXPECT_EQ(chunks(signal_)[0].id, chunk);
  EXPECT_EQ(counters().lastChunkBytes, 40);
  EXPECT_EQ(counters().largestChunkBytes, 40);
  append(signal_, {6}, {60});
  EXPECT_THAT(layout(), ElementsAre("1: 5 1..5", "2: 1 6..6"));
  EXPECT_THAT(times(signal_), ElementsAre(1, 2, 3, 4, 5, 6));
  EXPECT_THAT(values(signal_), ElementsAre(10, 20, 30, 40, 50, 60));
}

TEST_F(SignalStorageTest, AMergeNeverBringsTrimmedSamplesBack) {
  Signal::setMinimumChunkNumBytes(1000);
  append(signal_, {1, 2, 3, 4});
  signal_.rollback(2.5);
  append(signal_, {3}, {30});
  EXPECT_THAT(layout(), ElementsAre("1: 3 1..3"));
  EXPECT_THAT(values(signal_), ElementsAre(1, 2, 30));
}

TEST_F(SignalStorageTest, ChunksThatDoNotFitTogetherAreNotMerged) {
  Signal::setMinimumChunkNumBytes(1000);
  append(signal_, {1});
  append(signal_, {2}, {2}, {7});
  append(signal_, {3}, {3}, {8});
  append(signal_, {4});
  EXPECT_THAT(layout(), ElementsAre("1: 1 1..1", "2: 2 2..3", "3: 1 4..4"));
  const double time = 5;
  const int small = 5;
  signal_.addData(&small, &time, dtypeNull, nullptr, 1, sizeof small, nullptr);
  EXPECT_EQ(layout().size(), 4u);
}

TEST_F(SignalStorageTest, EpochsAreKeptOnlyWhereTheyWereGiven) {
  append(signal_, {1, 2}, {1, 2}, {5, 6});
  append(signal_, {3});
  std::vector<double> times;
  std::vector<char> values;
  std::vector<unsigned> epochs;
  signal_.readRange(1, 2, times, values, &epochs);
  EXPECT_THAT(epochs, ElementsAre(5, 6));
  signal_.readRange(2, 3, times, values, &epochs);
  EXPECT_THAT(epochs, IsEmpty());
  boost::ptr_vector<ObjectRef> objects;
  manager_->findObjects(strings::TimeChunk, {}, objects);
  std::vector<char> blob;
  objects[1].getProperty(strings::EpochBlobData, blob);
  EXPECT_THAT(blob, IsEmpty());
}

TEST_F(SignalStorageTest, AnEarlierStartReplacesWhatCameLater) {
  append(signal_, {1, 2, 3});
  append(signal_, {4, 5});
  append(signal_, {2.5, 6}, {25, 60});
  EXPECT_THAT(times(signal_), ElementsAre(1, 2, 2.5, 6));
  EXPECT_THAT(values(signal_), ElementsAre(1, 2, 25, 60));
  EXPECT_THAT(layout(), ElementsAre("1: 2 1..2", "2: 2 2..6"));
}

TEST_F(SignalStorageTest, EqualTimesAreKeptSideBySide) {
  append(signal_, {1, 2}, {1, 2});
  EXPECT_FALSE(signal_.getHasDuplicateTimes());
  append(signal_, {2}, {20});
  EXPECT_TRUE(signal_.getHasDuplicateTimes());
  EXPECT_THAT(values(signal_, 2, 2), ElementsAre(2, 20));
  append(signal_, {3, 4});
  EXPECT_TRUE(signal_.getHasDuplicateTimes());
  append(signal_, {2}, {200});
  EXPECT_THAT(times(signal_), ElementsAre(1, 2));
  EXPECT_THAT(values(signal_), ElementsAre(1, 200));
}

TEST_F(SignalStorageTest, DuplicateTimesAreNoticedWithinACall) {
  const double ordered[] = {0, 1, 2};
  const double repeated[] = {0, 1, 1, 2};
  const double unordered[] = {kNaN, kNaN};
  signal_.calculateHasDuplicateTimes(ordered, 3);
  signal_.calculateHasDuplicateTimes(ordered, 1);
  signal_.calculateHasDuplicateTimes(unordered, 2);
  EXPECT_FALSE(signal_.getHasDuplicateTimes());
  signal_.calculateHasDuplicateTimes(repeated, 4);
  EXPECT_TRUE(signal_.getHasDuplicateTimes());
}

TEST_F(SignalStorageTest, TheFirstSamplesMayHaveNegativeTimes) {
  append(signal_, {-5, -4});
  EXPECT_THAT(layout(), ElementsAre("1: 2 -5..-4"));
}

TEST_F(SignalStorageTest, BadInputIsRefusedBeforeAnythingIsWritten) {
  append(signal_, {1, 2});
  const std::vector<std::vector<double>> cases = {
      {kNaN}, {3, kNaN, 4}, {3, kInfinity}, {-kInfinity, 3},
      {4, 3}, {0, kNaN},    {5, 6, 5.5},    {kInfinity, kInfinity}};
  for (const std::vector<double>& bad : cases) {
    SCOPED_TRACE(testing::PrintToString(bad));
    EXPECT_EQ(raisedBy([&] { append(signal_, bad); }), "nexstore:nex:InvalidData");
    const auto bytes = static_cast<unsigned>(bad.size() * sizeof(double));
    EXPECT_EQ(raisedBy([&] {
                signal_.addData(bytes, bad.data(), bytes, bad.data(), bad.front(), bad.back(),
                                static_cast<unsigned>(bad.size()));
              }),
              "nexstore:nex:InvalidData");
  }
  const double time = 3;
  EXPECT_EQ(raisedBy([&] { signal_.addData(8, &time, 16, &time, 3, 3, 1); }),
            "nexstore:nex:InvalidData");
  EXPECT_EQ(raisedBy([&] { signal_.addData(8, &time, 8, &time, 2, 3, 1); }),
            "nexstore:nex:InvalidData");
  EXPECT_EQ(raisedBy([&] { signal_.rollback(kNaN); }), "nexstore:nex:InvalidData");
  EXPECT_THAT(times(signal_), ElementsAre(1, 2));
}

TEST_F(SignalStorageTest, AMessageNamesSignalAndSample) {
  signal_.setName(L"speed");
  try {
    append(signal_, {1, 3, 2});
    FAIL();
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    EXPECT_THAT(error.what(), testing::HasSubstr("\"speed\""));
    EXPECT_THAT(error.what(), testing::HasSubstr("time 2 (2)"));
  }
}

TEST_F(SignalStorageTest, NothingToAppendIsNoError) {
  append(signal_, {});
  signal_.addData(0, nullptr, 0, nullptr, 0, 0, 0);
  const double time = 1;
  signal_.addData(&time, &time, dtypeNull, nullptr, 1, 0, nullptr);
  EXPECT_THAT(layout(), IsEmpty());
  EXPECT_EQ(counters().lastChunk, 0);
}

TEST_F(SignalStorageTest, ValuesWithoutTimesMakeAChunkThatIsNeverMerged) {
  Signal::setMinimumChunkNumBytes(1000);
  const double value = 7;
  append(signal_, {1});
  signal_.addData(8, &value, 0, nullptr, 0, 0, 0);
  append(signal_, {2});
  EXPECT_THAT(layout(), ElementsAre("0: 0 0..0", "1: 1 1..1", "3: 1 2..2"));
  EXPECT_THAT(times(signal_), ElementsAre(1, 2));
  EXPECT_THAT(times(signal_, -1, 1), ElementsAre(1));
}

TEST_F(SignalStorageTest, RollbackKeepsWhatIsEarlierAndCountsIt) {
  struct Case {
    double time;
    std::vector<double> left;
    int lastChunk;
    int lastBytes;
    double newest;
  };
  for (const Case& c :
       {Case{kInfinity, {1, 2, 3, 4, 5, 6}, 3, 16, 6}, Case{6.5, {1, 2, 3, 4, 5, 6}, 3, 16, 6},
        Case{6, {1, 2, 3, 4, 5}, 3, 8, 5}, Case{5, {1, 2, 3, 4}, 2, 16, 4},
        Case{4.5, {1, 2, 3, 4}, 2, 16, 4}, Case{4, {1, 2, 3}, 2, 8, 3}, Case{1, {}, 0, 0, 0},
        Case{-kInfinity, {}, 0, 0, 0}}) {
    SCOPED_TRACE(c.time);
    signal_.removeAllChunks();
    append(signal_, {1, 2});
    append(signal_, {3, 4});
    append(signal_, {5, 6});
    signal_.rollback(c.time);
    EXPECT_EQ(times(signal_), c.left);
    EXPECT_EQ(counters().lastChunk, c.lastChunk);
    EXPECT_EQ(counters().lastChunkBytes, c.lastBytes);
    EXPECT_EQ(counters().largestChunkBytes, 16);
    EXPECT_EQ(signal_.getLatestTimeValue(), c.newest);
  }
}

TEST_F(SignalStorageTest, SamplesStayInOrderAfterARollbackBetweenChunks) {
  append(signal_, {1, 2});
  append(signal_, {6, 7});
  signal_.rollback(3);
  append(signal_, {0, 1, 2, 3});
  EXPECT_THAT(times(signal_), ElementsAre(0, 1, 2, 3));
}

TEST_F(SignalStorageTest, AnEmptiedSignalStartsAtItsRunsStart) {
  steppedRun(2, 1, 0);
  append(signal_, {2, 3});
  signal_.rollback(2);
  EXPECT_EQ(signal_.getLatestTimeValue(), 2);
  append(signal_, {2, 3});
  signal_.removeAllChunks();
  EXPECT_EQ(signal_.getLatestTimeValue(), 2);
  EXPECT_EQ(counters().largestChunkBytes, 0);
}

TEST_F(SignalStorageTest, SteppingBackToTheStartDropsTheWholeChunk) {
  steppedRun(2, 2, 0);
  append(signal_, {1, 2, 3});
  signal_.rollback(2);
  EXPECT_THAT(times(signal_), IsEmpty());
}

TEST_F(SignalStorageTest, SteppingOnFromTheStartAllowsOneStepBackToIt) {
  Set run = steppedRun(0, 1, 1);
  const std::string& remaining = strings::NumRemainingStepbacksToModelStartBeforeCompleteFlush;
  append(signal_, {0});
  EXPECT_EQ(run.getObjectReference().getPropertyInt32(remaining), 0);
  append(signal_, {1});
  EXPECT_EQ(run.getObjectReference().getPropertyInt32(remaining), 1);
}

TEST_F(SignalStorageTest, DeletingTakesEverySampleAtThoseTimes) {
  append(signal_, {1, 2, 2}, {1, 2, 3}, {1, 2, 3});
  append(signal_, {2, 3}, {4, 5}, {4, 5});
  append(signal_, {4}, {6}, {6});
  signal_.deleteData({4, 2, kNaN, 2.5, kInfinity});
  std::vector<double> times;
  std::vector<char> bytes;
  std::vector<unsigned> epochs;
  signal_.readRange(-DBL_MAX, DBL_MAX, times, bytes, &epochs);
  EXPECT_THAT(times, ElementsAre(1, 3));
  EXPECT_EQ(bytes, bytesOf<double>({1, 5}));
  EXPECT_THAT(epochs, ElementsAre(1, 5));
  EXPECT_THAT(layout(), ElementsAre("1: 1 1..1", "2: 1 3..3"));
  EXPECT_EQ(counters().lastChunk, 2);
  EXPECT_EQ(counters().lastChunkBytes, 8);
  EXPECT_EQ(signal_.getLatestTimeValue(), 3);
  EXPECT_EQ(count(strings::DataChunk), 2u);
}

TEST_F(SignalStorageTest, ALargeAppendIsSplitIntoSeveralChunks) {
  Signal::setMaximumChunkNumBytes(24);
  append(signal_, {1, 2, 3, 4, 5, 6, 7}, {1, 2, 3, 4, 5, 6, 7}, {1, 2, 3, 4, 5, 6, 7});
  EXPECT_THAT(layout(), ElementsAre("1: 3 1..3", "2: 3 4..6", "3: 1 7..7"));
  const std::int8_t small[] = {7, 8, 9, 10};
  const double late[] = {8, 9, 10, 11};
  Signal bytes(*manager_);
  bytes.addData(small, late, dtypeInt8, nullptr, 4, 0, nullptr);
  EXPECT_THAT(values<std::int8_t>(bytes), ElementsAre(7, 8, 9, 10));
  EXPECT_EQ(chunks(bytes).size(), 2u);
  Signal::setMinimumChunkNumBytes(1000);
  append(signal_, {8}, {8}, {8});
  append(signal_, {9, 10}, {9, 10}, {9, 10});
  EXPECT_THAT(layout(), ElementsAre("1: 3 1..3", "2: 3 4..6", "3: 2 7..8", "4: 2 9..10"));
}

TEST_F(SignalStorageTest, ConstantSamplesReplaceThoseOfAnotherType) {
  const double time = 1;
  const float value = 2;
  signal_.addData(&value, &time, dtypeSingle, nullptr, 1, 0, nullptr);
  signal_.createConstValueData(3, 5, 7);
  EXPECT_THAT(times(signal_), ElementsAre(3, 5));
  EXPECT_THAT(values(signal_), ElementsAre(7, 7));
  EXPECT_EQ(signal_.getInterpMethod(), "linear");
  EXPECT_EQ(signal_.getDataTypeLabel(), "double");
  EXPECT_EQ(raisedBy([&] { signal_.createConstValueData(5, 3, 7); }),
            "nexstore:nex:InvalidData");
  signal_.createConstValueData(4, 4, 8);
  EXPECT_THAT(times(signal_), ElementsAre(3, 4, 4));
}

TEST_F(SignalStorageTest, TheFirstSamplesGiveATypelessSignalTheirType) {
  const double time = 1;
  const std::uint8_t value = 200;
  signal_.addData(&value, &time, dtypeUInt8, nullptr, 1, 0, nullptr);
  EXPECT_EQ(signal_.getDataTypeLabel(), "uint8");
  EXPECT_EQ(signal_.getDataRange().maxValue, 200);
}

TEST_F(SignalStorageTest, EnumerationsAreKeptAsInt32WhateverTheirStorageType) {
  long long type = 0;
  DataTypeUtil::createEnumDataType("Gear", {{-1, "R"}, {200, "Top"}}, "int16", *manager_, type);
  setType(signal_, type);
  const double times[] = {1, 2, 3, 4};
  const std::int8_t bytes[] = {-1, 5};
  const std::uint16_t words[] = {65535, 1};
  signal_.addData(bytes, times, dtypeInt8, nullptr, 2, 0, nullptr);
  signal_.addData(words, times + 2, dtypeUInt16, nullptr, 2, 0, nullptr);
  EXPECT_THAT(values<int>(signal_), ElementsAre(-1, 5, 65535, 1));
}

TEST_F(SignalStorageTest, NumbersOfAnotherTypeAreConvertedExactlyOrRefused) {
  const double times[] = {1, 2};
  const auto add = [&](builtInDTypeId kept, builtInDTypeId given, const auto& numbers) {
    Signal signal(*manager_);
    setType(signal, kept);
    signal.addData(numbers.data(), times, given, nullptr, 2, 0, nullptr);
    return signal;
  };
  EXPECT_THAT(values(add(dtypeDouble, dtypeInt8, std::array<std::int8_t, 2>{-3, 7})),
              ElementsAre(-3., 7.));
  EXPECT_THAT(values<float>(add(dtypeSingle, dtypeDouble, std::array<double, 2>{0.5, -2})),
              ElementsAre(0.5F, -2.F));
  EXPECT_THAT(
      values<std::int8_t>(add(dtypeInt8, dtypeInt64, std::array<std::int64_t, 2>{-128, 127})),
      ElementsAre(-128, 127));
  EXPECT_THAT(
      values<std::uint64_t>(add(dtypeUInt64, dtypeDouble, std::array<double, 2>{0x1p63, 3})),
      ElementsAre(1ULL << 63, 3ULL));
  const auto refused = [&](builtInDTypeId kept, builtInDTypeId given, const auto& numbers) {
    return raisedBy([&] { add(kept, given, numbers); }) == "nexstore:nex:InvalidData";
  };
  EXPECT_TRUE(refused(dtypeInt8, dtypeInt16, std::array<std::int16_t, 2>{1, 128}));
  EXPECT_TRUE(refused(dtypeUInt32, dtypeInt32, std::array<int, 2>{0, -1}));
  EXPECT_TRUE(refused(dtypeInt32, dtypeDouble, std::array<double, 2>{1, 0.5}));
  EXPECT_TRUE(refused(dtypeInt32, dtypeDouble, std::array<double, 2>{1, kNaN}));
  EXPECT_TRUE(refused(dtypeInt64, dtypeDouble, std::array<double, 2>{1, 0x1p63}));
  EXPECT_TRUE(refused(dtypeSingle, dtypeDouble, std::array<double, 2>{0.1, 1}));
  EXPECT_TRUE(refused(dtypeSingle, dtypeDouble, std::array<double, 2>{1e300, 1}));
  EXPECT_TRUE(
      refused(dtypeDouble, dtypeInt64, std::array<std::int64_t, 2>{(1LL << 53) + 1, 0}));
  EXPECT_TRUE(
      refused(dtypeDouble, dtypeUInt64, std::array<std::uint64_t, 2>{std::uint64_t(-1), 0}));
}

TEST_F(SignalStorageTest, FixedPointSamplesAreKeptAsRealWorldValues) {
  fxpDataTypeProp type;
  type.wordLength = 12;
  type.fractionLength = 2;
  const std::int16_t stored[] = {5, 0x0FFF};
  const double times[] = {1, 2};
  signal_.addData(stored, times, dtypeInt16, &type, 2, 2, nullptr);
  EXPECT_THAT(values(signal_), ElementsAre(1.25, -0.25));
}

TEST_F(SignalStorageTest, SerialisedBytesComeBackAndFalseOnesAreRefused) {
  const std::vector<char> bytes = {'a', '\0', 'b'};
  std::vector<char> archived;
  DataSerializationUtil::Serialize(bytes.data(), 3, archived);
  std::vector<std::vector<char>> chunks = {archived, archived};
  DataSerializationUtil::deserializeDataChunks(chunks);
  EXPECT_EQ(chunks[0], bytes);
  std::vector<char> joined;
  DataSerializationUtil::concatenateDataChunks(chunks, joined);
  EXPECT_THAT(joined, ElementsAre('a', '\0', 'b', 'a', '\0', 'b'));
  for (unsigned length = 0; length < archived.size(); ++length) {
    std::vector<char> out = {'x'};
    EXPECT_EQ(
        raisedBy([&] { DataSerializationUtil::Deserialize(archived.data(), length, out); }),
        "nexstore:nex:InvalidData")
        << length;
    EXPECT_THAT(out, ElementsAre('x'));
  }
  // Any byte may be false; among the first is a length that must not be believed.
  for (std::size_t i = 0; i < archived.size(); ++i) {
    std::vector<char> damaged = archived;
    damaged[i] = static_cast<char>(damaged[i] ^ 0x7F);
    std::vector<char> out;
    const std::string id = raisedBy([&] {
      DataSerializationUtil::Deserialize(damaged.data(), static_cast<unsigned>(damaged.size()),
                                         out);
    });
    EXPECT_THAT(id, testing::AnyOf("", "nexstore:nex:InvalidData")) << i;
  }
  std::vector<char> out;
  const std::vector<char> garbage(64, 'x');
  EXPECT_EQ(raisedBy([&] { DataSerializationUtil::Deserialize(garbage.data(), 64, out); }),
            "nexstore:nex:InvalidData");
}

}  // namespace
}  // namespace vela
