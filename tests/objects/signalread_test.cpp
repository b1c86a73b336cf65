// Range reads, composite leaves, minimum and maximum, interpolation.
#include <array>
#include <functional>
#include <numeric>

#include "datarangeiterator.h"
#include "objects/set.h"
#include "objects/signalstate.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::bytesOf;
using test::kInfinity;
using test::kNaN;
using test::raisedBy;
using test::valuesIn;
using testing::ElementsAre;
using testing::IsEmpty;

class SignalReadTest : public test::SignalTest {
 protected:
  SignalReadTest() : signal_(*manager_) {}

  std::size_t chunksIn(double t0, double t1) {
    boost::ptr_vector<ObjectRef> found;
    signal_.getChunksInRange(t0, t1, found);
    return found.size();
  }
  /// Records of three int32 at the times 0, 1, ...: {0, 1, 2}, {3, 4, 5}, ...
  void appendRecords(Signal& root, int first, int count) {
    std::vector<double> times(static_cast<std::size_t>(count));
    std::iota(times.begin(), times.end(), first);
    std::vector<int> records(times.size() * 3);
    std::iota(records.begin(), records.end(), first * 3);
    root.addData(records.data(), times.data(), dtypeNull, nullptr, static_cast<unsigned>(count),
                 12, nullptr);
  }

  Signal signal_;
};

TEST_F(SignalReadTest, EachChunkOfARangeIsFoundOnce) {
  append(signal_, {0, 1, 2});
  append(signal_, {4, 5});
  append(signal_, {5, 5});
  append(signal_, {7, 8});
  struct Case {
    double t0, t1;
    std::size_t chunks;
    std::vector<double> times;
  };
  for (const Case& c :
       {Case{4, 5, 2, {4, 5, 5, 5}}, Case{5, 5, 2, {5, 5, 5}}, Case{0.5, 1.5, 1, {1}},
        Case{2.5, 3.5, 0, {}}, Case{2, 4, 2, {2, 4}}, Case{5.5, 9, 1, {7, 8}},
        Case{8, 4, 0, {}}, Case{kNaN, 4, 0, {}}, Case{0, kNaN, 0, {}},
        Case{-kInfinity, kInfinity, 4, {0, 1, 2, 4, 5, 5, 5, 7, 8}},
        Case{-DBL_MAX, 1, 1, {0, 1}}}) {
    SCOPED_TRACE(testing::PrintToString(std::pair(c.t0, c.t1)));
    EXPECT_EQ(chunksIn(c.t0, c.t1), c.chunks);
    EXPECT_EQ(times(signal_, c.t0, c.t1), c.times);
    EXPECT_EQ(values(signal_, c.t0, c.t1), c.times);
    EXPECT_EQ(signal_.getExtent(c.t0, c.t1).samples, c.times.size());
  }
}

TEST_F(SignalReadTest, ALongChunkIsCutWhereTheTimesSay) {
  std::vector<double> ramp(20000);
  std::iota(ramp.begin(), ramp.end(), 0);
  append(signal_, ramp);
  EXPECT_THAT(times(signal_, 1234.5, 1236), ElementsAre(1235, 1236));
  EXPECT_THAT(values(signal_, 19998.5, kInfinity), ElementsAre(19999));
}

TEST_F(SignalReadTest, TheIteratorHandsOutWholeChunksAndTradesBuffers) {
  append(signal_, {0, 1, 2}, {0, 1, 2}, {7, 8, 9});
  append(signal_, {3, 4});
  append(signal_, {5});
  Signal::DataRangeIterator chunks(signal_, 1, 4, true, false);
  EXPECT_EQ(chunks.getNumChunks(), 2u);
  std::vector<char> values;
  std::vector<double> times;
  std::vector<unsigned> epochs;
  bool hasMore = false;
  chunks.getNext(values, times, &epochs, hasMore);
  EXPECT_TRUE(hasMore);
  EXPECT_THAT(times, ElementsAre(0, 1, 2));
  EXPECT_THAT(epochs, ElementsAre(7, 8, 9));
  const double* storage = times.data();
  chunks.getNext(values, times, &epochs, hasMore);
  EXPECT_THAT(times, ElementsAre(3, 4));
  EXPECT_EQ(values, bytesOf<double>({3, 4}));
  EXPECT_THAT(epochs, IsEmpty());
  EXPECT_EQ(times.data(), storage);
  chunks.getNext(values, times, &epochs, hasMore);
  EXPECT_FALSE(hasMore);
  EXPECT_THAT(times, ElementsAre(3, 4));
}

TEST_F(SignalReadTest, TheIteratorKeepsToTheSamplesOfItsConstruction) {
  Signal::setMinimumChunkNumBytes(1000);
  append(signal_, {1, 2});
  Signal::DataRangeIterator all(signal_, false, false);
  append(signal_, {3});
  std::vector<char> values;
  std::vector<double> times;
  bool hasMore = false;
  all.getNext(values, times, nullptr, hasMore);
  EXPECT_THAT(times, ElementsAre(1, 2));

  Signal::DataRangeIterator gone(signal_, false, false);
  signal_.removeAllChunks();
  gone.getNext(values, times, nullptr, hasMore);
  EXPECT_TRUE(hasMore);
  EXPECT_THAT(times, IsEmpty());
  EXPECT_THAT(values, IsEmpty());
}

TEST_F(SignalReadTest, ChunksWithoutTimesComeWithFullReadsOnly) {
  const double value = 7;
  append(signal_, {1});
  signal_.addData(8, &value, 0, nullptr, 0, 0, 0);
  EXPECT_EQ(chunksIn(-10, 10), 1u);
  EXPECT_EQ(Signal::DataRangeIterator(signal_, false, false).getNumChunks(), 2u);
  setType(signal_, dtypeNull);
  Signal::DataRangeIterator all(signal_, false, false);
  std::vector<char> values;
  std::vector<double> times;
  bool hasMore = false;
  all.getNext(values, times, nullptr, hasMore);
  EXPECT_THAT(times, IsEmpty());
  EXPECT_EQ(values, bytesOf<double>({7}));
}

TEST_F(SignalReadTest, ABlobThatIsTooShortIsReadToItsEnd) {
  const double times[] = {1, 2, 3};
  signal_.addData(20, "01234567abcdefghABCD", 24, times, 1, 3, 3);
  setType(signal_, dtypeDouble);
  std::vector<double> read;
  std::vector<char> values;
  signal_.readRange(-kInfinity, kInfinity, read, values);
  EXPECT_EQ(std::string(values.begin(), values.end()), "01234567abcdefghABCD");
  signal_.readRange(2, 3, read, values);
  EXPECT_EQ(std::string(values.begin(), values.end()), "abcdefghABCD");
}

TEST_F(SignalReadTest, ALeafReadsItsElementsOutOfTheRecordsOfItsRoot) {
  appendRecords(signal_, 0, 3);
  appendRecords(signal_, 3, 2);
  Signal leaf = leafOf(signal_, 4, 12, 4, dtypeInt32);
  EXPECT_TRUE(leaf.isInHierarchy());
  EXPECT_EQ(leaf.getHierarchicalSignalRootID(), signal_.getID());
  EXPECT_THAT(values<int>(leaf), ElementsAre(1, 4, 7, 10, 13));
  EXPECT_THAT(values<int>(leaf, 2, 3), ElementsAre(7, 10));
  EXPECT_EQ(values<int>(signal_, 1, 1), (std::vector<int>{3, 4, 5}));

  Signal::DataRangeIterator extracted(leaf, false, true);
  Signal::DataRangeIterator records(leaf, false, false);
  EXPECT_EQ(extracted.getNumChunks(), 2u);
  std::vector<char> bytes;
  std::vector<double> times;
  bool hasMore = false;
  extracted.getNext(bytes, times, nullptr, hasMore);
  EXPECT_THAT(valuesIn<int>(bytes), ElementsAre(1, 4, 7));
  records.getNext(bytes, times, nullptr, hasMore);
  EXPECT_EQ(bytes.size(), 36u);

  EXPECT_EQ(leaf.getLatestTimeValue(), 4);
  const SignalDataRange range = leaf.getDataRange(1, 3);
  EXPECT_EQ(range.minValue, 4);
  EXPECT_EQ(range.maxValue, 10);
  EXPECT_FALSE(signal_.getDataRange().isValid);
  EXPECT_EQ(raisedBy([&] { append(leaf, {9}); }), "nexstore:nex:InvalidData");
  EXPECT_EQ(raisedBy([&] { leaf.deleteData({1}); }), "nexstore:nex:InvalidData");
  leaf.removeAllChunks();
  leaf.rollback(1.5);
  EXPECT_THAT(values<int>(leaf), ElementsAre(1, 4));
}

TEST_F(SignalReadTest, NoMemoryIsMadeForSamplesThatAreOnlyCounted) {
  for (double time = 0; time < 5; ++time) append(signal_, {time});
  boost::ptr_vector<ObjectRef> all;
  signal_.getAllChunks(all);
  all[2].setPropertyInt32(strings::NumPoints, INT_MAX);
  std::size_t most = 0;
  std::vector<double> times(100);
  std::vector<char> values(100 * sizeof(double));
  signal_.readRange(-kInfinity, kInfinity, [&](const SampleExtent& extent) {
    most = std::max(most, extent.samples);
    return extent.samples <= times.size() ? SampleTarget{times.data(), values.data(), nullptr}
                                          : SampleTarget{};
  });
  EXPECT_EQ(most, 5u);
}

TEST_F(SignalReadTest, TheNewestTimeOfNoSamplesIsTheStartOfTheRun) {
  EXPECT_EQ(signal_.getLatestTimeValue(), 0);
  Set run(*manager_, true);
  run.setStartTime(5);
  run.addElement(signal_);
  EXPECT_EQ(signal_.getLatestTimeValue(), 5);
}

TEST_F(SignalReadTest, ElementsAreTakenFromWholeRecords) {
  Signal leaf = leafOf(signal_, 4, 12, 8, dtypeInt32);
  std::vector<char> records(38);
  std::iota(records.begin(), records.end(), 0);
  std::vector<char> out;
  leaf.deinterleaveStructuredData(records.data(), 38, out);
  EXPECT_THAT(out, ElementsAre(8, 9, 10, 11, 20, 21, 22, 23, 32, 33, 34, 35));
  const int negative = -1, offset = 9;
  for (const auto& [element, at] : {std::pair(&negative, &offset), {nullptr, &offset}}) {
    EXPECT_EQ(
        raisedBy([&] { leaf.setLeafInfoForCompositeSignal(element, nullptr, at, nullptr); }),
        "nexstore:nex:InvalidData");
  }
  leaf.getObjectReference().setPropertyInt32(strings::CompositeSigByteOffset, 9);
  EXPECT_EQ(raisedBy([&] { leaf.deinterleaveStructuredData(records.data(), 36, out); }),
            "nexstore:nex:InvalidData");
}

TEST_F(SignalReadTest, AFixedPointLeafDeliversRealWorldValues) {
  appendRecords(signal_, 0, 3);
  Signal leaf = leafOf(signal_, 2, 12, 4, dtypeNull);
  long long type = 0;
  DataTypeUtil::createFixedPointDataType_BinaryPointScaling(4, 1, 16, 1, *manager_, type);
  setType(leaf, type);
  EXPECT_THAT(values(leaf), ElementsAre(0.5, 2, 3.5));
  EXPECT_EQ(leaf.getDataRange().maxValue, 3.5);
  Signal copy(*manager_);
  leaf.copyChunksTo(boost::shared_ptr<Signal>(boost::shared_ptr<Signal>(), &copy));
  setType(copy, type);
  EXPECT_EQ(copy.getHierarchicalSignalRootID(), 0);
  EXPECT_THAT(values(copy), ElementsAre(0.5, 2, 3.5));
}

TEST_F(SignalReadTest, ACopyHasTheSamplesAndNothingElse) {
  Signal::setMinimumChunkNumBytes(1000);
  append(signal_, {1, 2}, {1, 2}, {1, 2});
  append(signal_, {2, 4, 5}, {3, 4, 5}, {3, 4, 5});
  signal_.rollback(5);
  boost::shared_ptr<Signal> copy(new Signal(*manager_));
  append(*copy, {77});
  signal_.copyChunksTo(copy);
  signal_.copyChunksTo(boost::shared_ptr<Signal>(boost::shared_ptr<Signal>(), &signal_));
  EXPECT_THAT(times(*copy), ElementsAre(1, 2, 2, 4));
  EXPECT_THAT(values(*copy), ElementsAre(1, 2, 3, 4));
  EXPECT_TRUE(copy->getHasDuplicateTimes());
  EXPECT_EQ(copy->getLatestTimeValue(), 4);
  append(*copy, {6}, {6}, {6});
  append(signal_, {7}, {7}, {7});
  EXPECT_THAT(times(*copy), ElementsAre(1, 2, 2, 4, 6));
  EXPECT_THAT(times(signal_), ElementsAre(1, 2, 2, 4, 7));
}

TEST_F(SignalReadTest, MinimumAndMaximumOfEveryElementType) {
  const double times[] = {1, 2, 3};
  const auto range = [&](builtInDTypeId type, const auto& elements) {
    Signal signal(*manager_);
    signal.addData(elements.data(), times, type, nullptr, 3, 0, nullptr);
    const SignalDataRange found = signal.getDataRange();
    EXPECT_TRUE(found.isValid);
    EXPECT_EQ(found.firstTime, 1);
    EXPECT_EQ(found.lastTime, 3);
    return std::pair(found.minValue, found.maxValue);
  };
  using Pair = std::pair<double, double>;
  EXPECT_EQ(range(dtypeDouble, std::array<double, 3>{2, -3, 1}), Pair(-3, 2));
  EXPECT_EQ(range(dtypeDouble, std::array<double, 3>{kNaN, 5, kInfinity}), Pair(5, kInfinity));
  EXPECT_EQ(range(dtypeDouble, std::array<double, 3>{kInfinity, kInfinity, kNaN}),
            Pair(kInfinity, kInfinity));
  EXPECT_EQ(range(dtypeSingle, std::array<float, 3>{0.5F, -1, 2}), Pair(-1, 2));
  EXPECT_EQ(range(dtypeInt8, std::array<std::int8_t, 3>{-128, 1, 127}), Pair(-128, 127));
  EXPECT_EQ(range(dtypeUInt8, std::array<std::uint8_t, 3>{255, 1, 3}), Pair(1, 255));
  EXPECT_EQ(range(dtypeInt16, std::array<std::int16_t, 3>{-1, -2, -3}), Pair(-3, -1));
  EXPECT_EQ(range(dtypeUInt16, std::array<std::uint16_t, 3>{9, 65535, 8}), Pair(8, 65535));
  EXPECT_EQ(range(dtypeInt32, std::array<int, 3>{INT_MIN, 0, 5}), Pair(INT_MIN, 5));
  EXPECT_EQ(range(dtypeUInt32, std::array<unsigned, 3>{UINT_MAX, 7, 8}), Pair(7, UINT_MAX));
  EXPECT_EQ(range(dtypeInt64, std::array<long long, 3>{-(1LL << 60), 4, 3}), Pair(-0x1p60, 4));
  EXPECT_EQ(range(dtypeUInt64, std::array<unsigned long long, 3>{1ULL << 63, 4, 3}),
            Pair(3, 0x1p63));
  EXPECT_EQ(range(dtypeBoolean, std::array<bool, 3>{true, false, true}), Pair(0, 1));
  const Pair none = range(dtypeDouble, std::array<double, 3>{kNaN, kNaN, kNaN});
  EXPECT_TRUE(std::isnan(none.first) && std::isnan(none.second));
}

TEST_F(SignalReadTest, ARangeWithoutSamplesOrNumbersIsNotValid) {
  EXPECT_FALSE(signal_.getDataRange().isValid);
  append(signal_, {1, 2, 3}, {5, kNaN, -5});
  EXPECT_FALSE(signal_.getDataRange(1.5, 1.75).isValid);
  EXPECT_FALSE(signal_.getDataRange(3, 1).isValid);
  const SignalDataRange cut = signal_.getDataRange(1.5, 3);
  EXPECT_EQ(cut.firstTime, 2);
  EXPECT_EQ(cut.minValue, -5);
  EXPECT_EQ(cut.maxValue, -5);
  setType(signal_, dtypeNull);
  EXPECT_FALSE(signal_.getDataRange().isValid);
}

TEST_F(SignalReadTest, MembersInRecordsKeepTheSignOfTheirStorageType) {
  const struct {
    const char* storage;
    int bytes, member;
  } cases[] = {{"uint8", 1, 200}, {"int8", 1, -56}, {"uint16", 2, 65000}, {"int16", 2, -536}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.storage);
    Signal root(*manager_);
    // The member, then a byte or two of something else.
    const auto stored = static_cast<std::uint16_t>(c.member);
    const char record[] = {static_cast<char>(stored & 0xFF), static_cast<char>(stored >> 8), 9};
    const double time = 1;
    root.addData(record, &time, dtypeNull, nullptr, 1, 3, nullptr);
    long long type = 0;
    DataTypeUtil::createEnumDataType(c.storage, {{c.member, "x"}}, c.storage, *manager_, type);
    Signal leaf = leafOf(root, c.bytes, 3, 0, dtypeInt8);
    setType(leaf, type);
    EXPECT_THAT(values<int>(leaf), ElementsAre(c.member));
    EXPECT_EQ(leaf.getDataRange().maxValue, c.member);
  }
}

class CachedBoundsTest : public SignalReadTest {
 protected:
  CachedBoundsTest() { signal_.setSourceType(Signal::Visualized); }
  /// Puts a false value into the cache, to see whether it is answered.
  static bool answersFromCache(Signal& signal) {
    signal.getDataRange();
    signal.getObjectReference().setPropertyReal64(strings::MaxValue, 1e9);
    return signal.getDataRange().maxValue == 1e9;
  }
};

TEST_F(CachedBoundsTest, OnlyVisualizedSignalsAnswerWithWhatIsStored) {
  append(signal_, {1, 2});
  EXPECT_TRUE(answersFromCache(signal_));
  EXPECT_EQ(signal_.getDataRange().firstTime, 1);
  EXPECT_EQ(signal_.getDataRange().lastTime, 2);
  signal_.setSourceType(Signal::Logged);
  EXPECT_FALSE(answersFromCache(signal_));
}

TEST_F(CachedBoundsTest, AnyChangeOfSamplesMakesTheStoredBoundsStale) {
  boost::shared_ptr<Signal> source(new Signal(*manager_));
  append(*source, {1, 2}, {1, 40});
  const std::vector<std::function<void(Signal&)>> changes = {
      [](Signal& signal) { append(signal, {4}, {50}); },
      [](Signal& signal) { signal.rollback(3); },
      [](Signal& signal) { signal.deleteData({3}); },
      [](Signal& signal) { signal.createConstValueData(9, 10, 99); },
      [&](Signal& signal) {
        source->copyChunksTo(boost::shared_ptr<Signal>(boost::shared_ptr<Signal>(), &signal));
      }};
  for (std::size_t i = 0; i < changes.size(); ++i) {
    SCOPED_TRACE(i);
    signal_.removeAllChunks();
    append(signal_, {1, 2, 3}, {1, 2, 30});
    ASSERT_TRUE(answersFromCache(signal_));
    changes[i](signal_);
    EXPECT_EQ(state(signal_, strings::MinMaxDirectReadOkay), kMinMaxStale);
    EXPECT_EQ(signal_.getDataRange().maxValue, signal_.getDataRange(-1e9, 1e9).maxValue);
  }
  signal_.removeAllChunks();
  EXPECT_FALSE(signal_.getDataRange().isValid);
}

TEST_F(CachedBoundsTest, AChangeOfTheRootReachesEveryLeafThatSharesItsSamples) {
  appendRecords(signal_, 0, 2);
  Signal leaf = leafOf(signal_, 4, 12, 4, dtypeInt32);
  Signal other = leafOf(signal_, 4, 12, 8, dtypeInt32);
  leaf.setSourceType(Signal::Visualized);
  other.setSourceType(Signal::Visualized);
  EXPECT_TRUE(answersFromCache(leaf));
  EXPECT_TRUE(answersFromCache(other));
  EXPECT_FALSE(signal_.getDataRange().isValid);
  appendRecords(signal_, 2, 1);
  EXPECT_EQ(leaf.getDataRange().maxValue, 7);
  EXPECT_EQ(other.getDataRange().maxValue, 8);
  other.rollback(2);
  EXPECT_EQ(leaf.getDataRange().maxValue, 4);
}

TEST_F(CachedBoundsTest, AParentLearnsOfChangesBelowAndForgetsThemWhenRefreshed) {
  boost::shared_ptr<Signal> parent(new Signal(*manager_));
  signal_.setParent(parent);
  append(signal_, {1, 2});
  EXPECT_EQ(state(*parent, strings::MinMaxDirectReadOkay), kMinMaxChildrenChanged);
  EXPECT_TRUE(answersFromCache(signal_));
  EXPECT_EQ(state(*parent, strings::MinMaxDirectReadOkay), kMinMaxStale);
  parent->dirtyMinMaxDirectReadOkayFlagForAllChildrenInHierarchy();
  EXPECT_EQ(state(signal_, strings::MinMaxDirectReadOkay), kMinMaxStale);
}

TEST_F(CachedBoundsTest, OrderOfQuestionsDoesNotMatterInNestedBuses) {
  const boost::shared_ptr<Signal> top(new Signal(*manager_));
  const boost::shared_ptr<Signal> root(new Signal(*manager_));
  const boost::shared_ptr<Signal> sibling(new Signal(*manager_));
  root->setParent(top);
  sibling->setParent(top);
  Signal leaf = leafOf(*root, 4, 12, 4, dtypeInt32);
  leaf.setParent(root);
  for (Signal* signal : {&leaf, sibling.get()}) signal->setSourceType(Signal::Visualized);
  appendRecords(*root, 0, 1);
  const double first = leaf.getDataRange().maxValue;
  append(*sibling, {1});
  sibling->getDataRange();
  appendRecords(*root, 1, 3);
  EXPECT_GT(leaf.getDataRange().maxValue, first);
  EXPECT_EQ(leaf.getDataRange().maxValue, leaf.getDataRange(-1e9, 1e9).maxValue);
}

TEST_F(CachedBoundsTest, ALeafThatIsMovedInItsRecordHasOtherBounds) {
  appendRecords(signal_, 0, 2);
  Signal leaf = leafOf(signal_, 4, 12, 4, dtypeInt32);
  leaf.setSourceType(Signal::Visualized);
  for (const bool inBulk : {false, true}) {
    SCOPED_TRACE(inBulk);
    const int offset = inBulk ? 4 : 8;
    const double former = leaf.getDataRange().maxValue;
    if (inBulk) leaf.beginBulkPropertyUpdate();
    leaf.setLeafInfoForCompositeSignal(nullptr, nullptr, &offset, nullptr);
    if (inBulk) {
      EXPECT_EQ(leaf.getDataRange().maxValue, former);
    }
    leaf.commitBulkPropertyUpdate();
    EXPECT_EQ(leaf.getDataRange().maxValue, leaf.getDataRange(-1e9, 1e9).maxValue);
    EXPECT_NE(leaf.getDataRange().maxValue, former);
  }
}

TEST_F(CachedBoundsTest, BoundsCanBeFrozen) {
  append(signal_, {1, 2}, {-1, 4});
  signal_.cacheMinMaxValuesAtTimeOfNormalization();
  append(signal_, {3}, {9});
  EXPECT_EQ(signal_.getMinMaxValuesAtTimeOfNormalization(), std::pair(-1., 4.));
}

TEST_F(SignalReadTest, InterpolatesBetweenStoredSamplesAndNowhereElse) {
  append(signal_, {0}, {10});
  append(signal_, {2, 4}, {20, 20});
  append(signal_, {4}, {-6});
  append(signal_, {5, 6}, {kInfinity, 8});
  struct Case {
    double time, value;
  };
  for (const Case& c : {Case{0, 10}, Case{1, 15}, Case{2, 20}, Case{3.5, 0.5}, Case{4, -6},
                        Case{5, kInfinity}, Case{6, 8}, Case{5.5, kInfinity}}) {
    EXPECT_EQ(signal_.getLinearInterpYValue(c.time), c.value) << c.time;
  }
  for (const double outside : {-0.5, 6.5, kNaN, kInfinity, -kInfinity}) {
    EXPECT_TRUE(std::isnan(signal_.getLinearInterpYValue(outside))) << outside;
  }
  Signal wide(*manager_);
  append(wide, {-1.5e308, 1.5e308}, {1, 3});
  EXPECT_EQ(wide.getLinearInterpYValue(0), 2);
  Signal level(*manager_);
  append(level, {0, 3}, {0.1, 0.1});
  EXPECT_EQ(level.getLinearInterpYValue(1), 0.1);
}

}  // namespace
}  // namespace vela
