#include "objects/signal.h"

#include "host/arrays.h"
#include "objects/find.h"
#include "objects/set.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::raisedBy;
using testing::ElementsAre;
using testing::IsEmpty;

class SignalObjectTest : public test::SignalTest {
 protected:
  boost::shared_ptr<Signal> shared() {
    return boost::shared_ptr<Signal>(new Signal(*manager_));
  }
  boost::shared_ptr<Signal> childOf(const boost::shared_ptr<Signal>& parent) {
    auto child = shared();
    child->setParent(parent);
    return child;
  }
  static std::vector<int> ids(const boost::ptr_vector<ObjectRef>& objects) {
    std::vector<int> ids;
    for (const ObjectRef& object : objects) ids.push_back(object.getObjectID());
    return ids;
  }
  std::vector<int> children(const Signal& signal) {
    boost::ptr_vector<ObjectRef> found;
    signal.getChildren(found);
    return ids(found);
  }
  int source(const std::string& name) {
    return findFirstID(*manager_, strings::SignalSource, {equals(strings::SID, name)});
  }
};

TEST_F(SignalObjectTest, ANewSignalHasItsDefaults) {
  const Signal signal(*manager_);
  EXPECT_EQ(signal.getInterpMethod(), "zoh");
  EXPECT_EQ(signal.getTimeAlignmentMethod(), "union");
  EXPECT_EQ(signal.getLineStyle(), Signal::Solid);
  EXPECT_EQ(signal.getDataTypeLabel(), "Null");
  EXPECT_EQ(signal.getObjectReference().getPropertyInt64(strings::InstanceID),
            manager_->getInstanceID());
  EXPECT_EQ(signal.getElementType(), "Signal");
  EXPECT_THAT(signal.getChecked(), IsEmpty());
  EXPECT_THAT(signal.getBlockPath(), IsEmpty());
  EXPECT_EQ(signal.getUnits(), L"");
  EXPECT_EQ(signal.getRun(), nullptr);
}

TEST_F(SignalObjectTest, PropertiesComeBackThroughAnotherHandleAfterReopening) {
  int id = 0;
  {
    Signal signal(*manager_);
    id = signal.getID();
    signal.beginBulkPropertyUpdate();
    signal.setName(std::wstring(L"speed \u03c9"));
    signal.setDimensions({2, 3});
    signal.setChannel({1, 2});
    signal.setColor(ColorTuple(0.25, 0.5, 1));
    signal.setChecked({32, 1});
    signal.setMarker(Signal::Hexagram);
    signal.setLineStyle(Signal::DashDot);
    signal.setSourceType(Signal::Difference);
    signal.setComplexity(complexity::complex);
    signal.setSampleTimeContinuity(sampleTimeContinuity::discrete);
    signal.setDimMode(dimsMode::variable);
    signal.setInstrumentedSignalUUID(LLONG_MIN);
    signal.setAbsTol(-0.0);
    signal.setInterpMethod("linear");
    EXPECT_EQ(signal.getName(), L"");
    signal.commitBulkPropertyUpdate();
    signal.setUnits(L"m/s");
    signal.setBlockPath({L"model/a//b", L"x\nz", L""});
    signal.setSID(L"m:7");
  }
  reopen();
  const std::unique_ptr<Signal> signal = Signal::getSignalFromID(*manager_, id);
  ASSERT_TRUE(signal);
  EXPECT_EQ(signal->getName(), L"speed \u03c9");
  EXPECT_THAT(signal->getDimensions(), ElementsAre(2, 3));
  EXPECT_THAT(signal->getChannel(), ElementsAre(1, 2));
  EXPECT_EQ(signal->getColor(), ColorTuple(0.25, 0.5, 1));
  EXPECT_THAT(signal->getChecked(), ElementsAre(1, 32));
  EXPECT_EQ(signal->getMarker(), Signal::Hexagram);
  EXPECT_EQ(signal->getLineStyle(), Signal::DashDot);
  EXPECT_EQ(signal->getSourceType(), Signal::Difference);
  EXPECT_EQ(signal->getComplexity(), complexity::complex);
  EXPECT_EQ(signal->getSampleTimeContinuity(), sampleTimeContinuity::discrete);
  EXPECT_EQ(signal->getDimMode(), dimsMode::variable);
  EXPECT_EQ(signal->getInstrumentedSignalUUID(), LLONG_MIN);
  EXPECT_TRUE(std::signbit(signal->getAbsTol()));
  EXPECT_EQ(signal->getInterpMethod(), "linear");
  EXPECT_EQ(signal->getUnits(), L"m/s");
  EXPECT_THAT(signal->getBlockPath(), ElementsAre(L"model/a//b", L"x\nz", L""));
  EXPECT_EQ(signal->getDisplayBlockPath(), L"model/a//b|x\nz|");
  EXPECT_EQ(signal->getSID(), L"m:7");
}

TEST_F(SignalObjectTest, TheBlockNameEndsTheLastPathElement) {
  Signal signal(*manager_);
  for (const auto& [path, name] :
       std::vector<std::pair<std::wstring, std::wstring>>{{L"model/sub/gain", L"gain"},
                                                          {L"model", L"model"},
                                                          {L"m/a//b", L"a//b"},
                                                          {L"", L""}}) {
    signal.setBlockPath({L"outer/block", path});
    EXPECT_EQ(signal.getBlockName(), name);
  }
}

TEST_F(SignalObjectTest, UnitsAreSharedUnlessTheirChecksumsMerelyMeet) {
  // Two labels of one CRC-32.
  Signal first(*manager_);
  Signal second(*manager_);
  Signal third(*manager_);
  first.setUnits(L"plumless");
  second.setUnits(L"buckeroo");
  third.setUnits(L"plumless");
  EXPECT_EQ(first.getUnits(), L"plumless");
  EXPECT_EQ(second.getUnits(), L"buckeroo");
  EXPECT_EQ(third.getUnits(), L"plumless");
  EXPECT_EQ(count(strings::Unit), 2u);
  first.setUnits(L"");
  EXPECT_EQ(first.getUnits(), L"");
  EXPECT_EQ(third.getUnits(), L"plumless");
}

TEST_F(SignalObjectTest, APlotThatCannotBeKeptIsRefused) {
  Signal signal(*manager_);
  signal.setChecked({3});
  for (const unsigned char plot : std::vector<unsigned char>{0, 33}) {
    EXPECT_EQ(raisedBy([&] { signal.setChecked({1, plot}); }), "nexstore:nex:InvalidData");
  }
  EXPECT_THAT(signal.getChecked(), ElementsAre(3));
}

TEST_F(SignalObjectTest, LookupsAnswerOnlyForSignals) {
  const Signal signal(*manager_);
  Set run(*manager_, false);
  boost::shared_ptr<Signal> found;
  for (const int id : {0, -1, run.getID(), INT_MAX}) {
    EXPECT_FALSE(Signal::lookupSignal(id, found, *manager_)) << id;
    EXPECT_FALSE(Signal::getSignalFromID(*manager_, id)) << id;
    EXPECT_TRUE(Signal::isLeafSignal(*manager_, id)) << id;
  }
  EXPECT_FALSE(found);
  ASSERT_TRUE(Signal::lookupSignal(signal.getID(), found, *manager_));
  EXPECT_EQ(found->getID(), signal.getID());

  EXPECT_FALSE(Signal::lookupVisibleSignal(signal.getID(), found, *manager_));
  run.addElement(signal);
  EXPECT_TRUE(Signal::lookupVisibleSignal(signal.getID(), found, *manager_));
  run.getObjectReference().setPropertyInt32(strings::MarkedForDelete, 1);
  EXPECT_FALSE(Signal::lookupVisibleSignal(signal.getID(), found, *manager_));
}

TEST_F(SignalObjectTest, SignalsAreFoundByWhatTheyAre) {
  Set run(*manager_, false);
  Set other(*manager_, false);
  const auto parent = shared();
  const auto first = childOf(parent);
  const auto second = childOf(parent);
  run.addElement(*parent);
  for (const auto& child : {first, second}) {
    child->setBlockPath({L"m/b"});
    child->setPortIndex(child == first ? 1 : 2);
    child->setInstrumentedSignalUUID(99);
    child->setChecked(child == first ? std::vector<unsigned char>{1, 32}
                                     : std::vector<unsigned char>{32});
  }
  EXPECT_EQ(Signal::getSignalFromPath(*manager_, run.getID(), {L"m/b"}, 2)->getID(),
            second->getID());
  EXPECT_FALSE(Signal::getSignalFromPath(*manager_, other.getID(), {L"m/b"}, 2));
  EXPECT_FALSE(Signal::getSignalFromPath(*manager_, run.getID(), {L"m/c"}, 2));
  EXPECT_EQ(Signal::getSignalByProperties(*manager_, {equals(strings::PortIndex, 1)})->getID(),
            first->getID());

  boost::ptr_vector<ObjectRef> leaves;
  Signal::getLeavesForInstrumentedSignal(*manager_, run.getID(), 99, leaves);
  EXPECT_THAT(ids(leaves), ElementsAre(first->getID(), second->getID()));
  std::unordered_map<int, boost::shared_ptr<Signal>> visible;
  Signal::getVisibleLeafSignals(visible, *manager_);
  EXPECT_EQ(visible.size(), 2u);
  EXPECT_EQ(visible.count(parent->getID()), 0u);

  boost::ptr_vector<ObjectRef> checked;
  Signal::getAllCheckedSignals(*manager_, checked);
  EXPECT_EQ(checked.size(), 2u);
  std::vector<int> inPlot;
  Signal::getCheckedSignalsInPlot(inPlot, 32, 0, *manager_);
  EXPECT_THAT(inPlot, ElementsAre(first->getID(), second->getID()));
  inPlot.clear();
  Signal::getCheckedSignalsInPlot(inPlot, 1, run.getID(), *manager_);
  EXPECT_THAT(inPlot, ElementsAre(first->getID()));
  inPlot.clear();
  Signal::getCheckedSignalsInPlot(inPlot, 32, other.getID(), *manager_);
  EXPECT_THAT(inPlot, IsEmpty());
}

TEST_F(SignalObjectTest, ParentsKnowWhetherTheyHaveChildren) {
  const auto parent = shared();
  const auto first = childOf(parent);
  const auto second = childOf(parent);
  bool found = false;
  EXPECT_EQ(first->getParent(found)->getID(), parent->getID());
  EXPECT_TRUE(found);
  EXPECT_FALSE(parent->getParent(found));
  EXPECT_FALSE(found);
  EXPECT_THAT(children(*parent), ElementsAre(first->getID(), second->getID()));
  EXPECT_FALSE(Signal::isLeafSignal(*manager_, parent->getID()));
  first->removeFromMyParent();
  EXPECT_EQ(state(*parent, strings::HasChildren), 1);
  const auto other = shared();
  second->setParent(other);
  EXPECT_EQ(state(*parent, strings::HasChildren), 0);
  EXPECT_EQ(state(*other, strings::HasChildren), 1);
  parent->removeFromMyParent();
  EXPECT_TRUE(Signal::isLeafSignal(*manager_, parent->getID()));
}

TEST_F(SignalObjectTest, ASignalCannotBeBelowItself) {
  const auto top = shared();
  const auto middle = childOf(top);
  const auto bottom = childOf(middle);
  for (const auto& below : {top, middle, bottom}) {
    EXPECT_EQ(raisedBy([&] { top->setParent(below); }), "nexstore:nex:InvalidData");
  }
  EXPECT_THAT(children(*bottom), IsEmpty());
}

TEST_F(SignalObjectTest, ChildrenJoinTheRunOfTheirParent) {
  Set run(*manager_, false);
  const auto parent = shared();
  run.addElement(*parent);
  EXPECT_EQ(childOf(parent)->getRun()->getID(), run.getID());
}

class SignalRemovalTest : public SignalObjectTest {
 protected:
  SignalRemovalTest() {
    root_ = shared();
    child_ = childOf(root_);
    stranger_ = shared();
    for (const auto& signal : {root_, child_, stranger_}) {
      append(*signal, {1, 2});
      append(*signal, {3}, {3}, {7});
      signal->setMetaData("key", 1);
    }
    root_->setSID(L"family");
    child_->setSignalSourceID(root_->getSignalSourceID());
    stranger_->setSID(L"own");
  }
  std::vector<std::size_t> census() {
    std::vector<std::size_t> counts;
    for (const std::string& name :
         {strings::Signal, strings::Chunk, strings::TimeChunk, strings::DataChunk,
          strings::MetaData, strings::SignalSource}) {
      counts.push_back(count(name));
    }
    return counts;
  }

  boost::shared_ptr<Signal> root_;
  boost::shared_ptr<Signal> child_;
  boost::shared_ptr<Signal> stranger_;
};

TEST_F(SignalRemovalTest, TakesTheSubtreeAndWhatBelongsToIt) {
  root_->remove();
  EXPECT_THAT(census(), ElementsAre(1, 2, 2, 2, 1, 1));
  EXPECT_THAT(times(*stranger_), ElementsAre(1, 2, 3));
  EXPECT_EQ(raisedBy([&] { root_->remove(); }), "KODD:kodd:InvalidObject");
}

TEST_F(SignalRemovalTest, LeavesTheSourceToTheRestOfTheFamily) {
  child_->remove();
  EXPECT_THAT(census(), ElementsAre(2, 4, 4, 4, 2, 2));
  EXPECT_EQ(state(*root_, strings::HasChildren), 0);
  EXPECT_EQ(root_->getSID(), L"family");
}

TEST_F(SignalRemovalTest, LeavesTheRecordsOfACompositeSignalToTheirOwner) {
  leafOf(*stranger_, 4, 8, 0, dtypeInt32).remove();
  EXPECT_THAT(times(*stranger_), ElementsAre(1, 2, 3));
}

TEST_F(SignalRemovalTest, InBulkHappensAtTheOutermostCommit) {
  Signal::beginBulkRemove(*manager_);
  child_->bulkRemove();
  Signal::beginBulkRemove(*manager_);
  root_->bulkRemove();
  Signal::commitBulkRemove(*manager_);
  EXPECT_EQ(count(strings::Signal), 3u);
  Signal::commitBulkRemove(*manager_);
  EXPECT_THAT(census(), ElementsAre(1, 2, 2, 2, 1, 1));
  stranger_->bulkRemove();
  EXPECT_THAT(census(), ElementsAre(0, 0, 0, 0, 0, 0));
}

TEST_F(SignalRemovalTest, AUnitThatFailsClosesTheBracketsItOpened) {
  Signal::beginBulkRemove(*manager_);
  EXPECT_NE(raisedBy([&] {
              manager_->inTransaction([&] {
                Signal::beginBulkRemove(*manager_);
                root_->bulkRemove();
                throw std::runtime_error("undone");
              });
            }),
            "");
  child_->bulkRemove();
  Signal::commitBulkRemove(*manager_);
  EXPECT_THAT(census(), ElementsAre(2, 4, 4, 4, 2, 2));
  stranger_->bulkRemove();
  EXPECT_THAT(census(), ElementsAre(1, 2, 2, 2, 1, 1)) << "no bracket is left open";
}

TEST_F(SignalObjectTest, BulkUpdatesMakeOneSourceAndNoneWhenTheyAreDropped) {
  Signal signal(*manager_);
  signal.beginBulkPropertyUpdate();
  signal.setBlockPath({L"m", L"b"});
  signal.setSID(L"7");
  EXPECT_EQ(count(strings::SignalSource), 0u);
  EXPECT_EQ(signal.getSID(), L"") << "not written yet";
  signal.commitBulkPropertyUpdate();
  EXPECT_EQ(signal.getSID(), L"7");
  EXPECT_THAT(signal.getBlockPath(), ElementsAre(L"m", L"b"));
  EXPECT_EQ(count(strings::SignalSource), 1u);
}

TEST_F(SignalObjectTest, ExportPropertiesAreAStructureOfSixFields) {
  Signal signal(*manager_);
  signal.setName(L"n\u00e4me");
  signal.setPortIndex(3);
  signal.setBlockPath({L"m/a", L"b"});
  signal.setUnits(L"V");
  append(signal, {1, 1});
  const auto properties = signal.getExportProperties();
  EXPECT_THAT(properties->fieldNames(), ElementsAre("Name", "PortIndex", "BlockPath", "Interp",
                                                    "Units", "HasDuplicateTimes"));
  EXPECT_EQ(properties->field("Name").toWide(), L"n\u00e4me");
  EXPECT_TRUE(properties->field("Name").isWideText());
  EXPECT_EQ(properties->field("PortIndex").values<int>()[0], 3);
  EXPECT_THAT(properties->field("BlockPath").dimensions(), ElementsAre(2, 1));
  EXPECT_EQ(properties->field("BlockPath").cell(1).toWide(), L"b");
  EXPECT_FALSE(properties->field("Interp").isWideText());
  EXPECT_EQ(properties->field("Interp").toString(), "zoh");
  EXPECT_EQ(properties->field("Units").toWide(), L"V");
  EXPECT_EQ(properties->field("HasDuplicateTimes").values<int>()[0], 1);
}

TEST_F(SignalObjectTest, AHandleFromAFileThatWasReopenedIsRefused) {
  Signal signal(*manager_);
  append(signal, {1});
  manager_->initializeObjectManager("", "");
  EXPECT_EQ(raisedBy([&] { append(signal, {2}); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(raisedBy([&] { times(signal); }), "KODD:kodd:InvalidObject");
}

}  // namespace
}  // namespace vela
