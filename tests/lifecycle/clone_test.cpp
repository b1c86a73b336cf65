// Copies of runs and signals: alike, on their own, and independent of their originals.
#include <cstring>

#include "tests/lifecycle/lifecycletest.h"

namespace vela {
namespace {

using test::raisedBy;
using testing::ElementsAre;
using testing::IsEmpty;
using Query = Set::SignalQueryType;

class CloneTest : public test::LifecycleTest {
 protected:
  std::unique_ptr<Signal> signal(int id) { return Signal::getSignalFromID(*manager_, id); }
  std::vector<double> valuesOf(int id) {
    std::vector<double> times;
    std::vector<char> bytes;
    signal(id)->readRange(-HUGE_VAL, HUGE_VAL, times, bytes);
    std::vector<double> values(bytes.size() / sizeof(double));
    memcpy(values.data(), bytes.data(), values.size() * sizeof(double));
    return values;
  }
  int linkOf(int id, const std::string& property) {
    return signal(id)->getObjectReference().getPropertyInt32(property);
  }
  /// Everything but what names objects or tells runs apart.
  std::string described(const Set& set) {
    std::string text;
    for (const int id : set.getSignalIDs(Query::all)) {
      const auto each = signal(id);
      const ObjectRef& object = each->getObjectReference();
      text += text::toUtf8(each->getName()) + "," + text::toUtf8(each->getUnits()) + "," +
              text::toUtf8(each->getDisplayBlockPath()) + "," +
              std::to_string(object.getPropertyInt32(strings::Checked)) + "," +
              std::to_string(object.getPropertyInt32(strings::LastChunkIndex)) + ",";
      text += std::to_string(each->getColor().get<0>()) + ",";
      for (const double time : times(*each)) text += std::to_string(time) + " ";
      text += "\n";
    }
    return text;
  }
};

TEST_F(CloneTest, ACopyIsLikeItsOriginalAndOutlivesIt) {
  Set original = fullRun();
  original.setName(L"name");
  original.setBaselineSetID(original.getID());
  original.setWasVisualizeOnly(true);
  Set compared = run();
  original.setCompareToSetID(compared.getID());
  original.setIsActivelyStreaming(true);
  setFlag(original.getID(), strings::MarkedForDelete, 1);
  setFlag(original.getID(), strings::PriorOverwrittenRun, 1);
  setFlag(original.getID(), strings::SignalHashesAreCached, 1);
  signal(original.getSignalByIndex(0))->setIsActivelyStreaming(true);
  const std::string was = described(original);
  const auto before = census();

  const std::unique_ptr<Set> copy = original.clone(Set::Application::CustomApp);
  auto expected = before;
  for (const std::string* name :
       {&strings::DataSet, &strings::OutputMetaData, &strings::InputMetaData,
        &strings::RunNumberByRunID, &strings::SignalSource}) {
    ++expected[*name];
  }
  expected[strings::TestHarnessData] += 2;
  expected[strings::MetaData] += 2;
  expected[strings::Signal] += 4;
  for (const std::string* name : {&strings::Chunk, &strings::TimeChunk, &strings::DataChunk}) {
    expected[*name] += 3;
  }
  EXPECT_EQ(census(), expected);

  EXPECT_EQ(copy->getApplication(), Set::Application::CustomApp);
  EXPECT_EQ(copy->getRunNumber(), 3);
  EXPECT_EQ(copy->getOrderIndex(), 3);
  EXPECT_EQ(instanceOf(copy->getID()), test::kOwn);
  EXPECT_EQ(copy->getName(), L"name");
  EXPECT_EQ(copy->getModel(), L"model");
  EXPECT_TRUE(copy->getRunHasEnumSignals());
  EXPECT_TRUE(copy->getWasVisualizeOnly());
  EXPECT_EQ(copy->getCompareToSetID(), compared.getID());
  EXPECT_EQ(copy->getBaselineSetID(), copy->getID());
  EXPECT_EQ(std::get<std::string>(copy->getMetaData(strings::RunData).value), "data");
  for (const std::string* property :
       {&strings::IsActivelyStreaming, &strings::MarkedForDelete, &strings::PriorOverwrittenRun,
        &strings::SignalHashesAreCached}) {
    EXPECT_EQ(flag(copy->getID(), *property), 0) << *property;
  }
  EXPECT_EQ(described(*copy), was);

  original.setIsActivelyStreaming(false);
  original.remove();
  EXPECT_EQ(described(*copy), was);
  const std::vector<int> signals = copy->getSignalIDs(Query::all);
  ASSERT_EQ(signals.size(), 4u);
  const int bus = signals[0];
  const int plain = signals[3];
  EXPECT_THAT(valuesOf(signals[1]), ElementsAre(1, 3, 5));
  EXPECT_THAT(valuesOf(signals[2]), ElementsAre(2, 4, 6));
  for (const int leaf : {signals[1], signals[2]}) {
    EXPECT_EQ(linkOf(leaf, strings::FK_Parent), bus);
    EXPECT_EQ(linkOf(leaf, strings::IdOfSignalWhoHasMyData), bus);
    EXPECT_FALSE(signal(leaf)->getIsActivelyStreaming());
  }
  EXPECT_EQ(signal(plain)->getSourceSignal()->getID(), bus);
  EXPECT_EQ(std::get<std::string>(signal(plain)->getMetaData("note").value), "kept");
  EXPECT_THAT(problems(), IsEmpty());

  // The copy can be written on its own.
  append(*signal(plain), {6});
  EXPECT_EQ(times(*signal(plain)).size(), 6u);
}

TEST_F(CloneTest, ManySignalsGetCopiesInTheirOrder) {
  Set original = run();
  constexpr int kSignals = 700;
  manager_->inTransaction([&] {
    for (int i = 0; i < kSignals; ++i) {
      Signal each(*manager_);
      original.addElement(each);
      each.setName(std::to_wstring(i));
      append(each, {1.0 * i, 1.0 * i + 1});
    }
  });
  for (int copies = 0; copies < 2; ++copies) {
    const auto copy = original.clone(Set::Application::VELA);
    const std::vector<int> ids = copy->getSignalIDs(Query::all);
    ASSERT_EQ(ids.size(), static_cast<std::size_t>(kSignals));
    for (int i = 0; i < kSignals; i += 37) {
      EXPECT_EQ(signal(ids[static_cast<std::size_t>(i)])->getName(), std::to_wstring(i));
      EXPECT_THAT(valuesOf(ids[static_cast<std::size_t>(i)]),
                  ElementsAre(1.0 * i, 1.0 * i + 1));
    }
  }
  EXPECT_THAT(problems(), IsEmpty());
}

TEST_F(CloneTest, ARunThatIsGoneCannotBeCopied) {
  Set gone = run();
  const int id = gone.getID();
  manager_->removeObject(id, strings::DataSet);
  const std::string before = contents();
  EXPECT_EQ(raisedBy([&] { gone.clone(Set::Application::VELA); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(contents(), before);
}

TEST_F(CloneTest, ARunOfAnotherInstanceBecomesOneOfOurs) {
  const auto neighbour = openAs(7);
  const int foreign = Set(*neighbour, true).getID();
  const auto copy = handle(foreign).clone(Set::Application::VELA);
  EXPECT_EQ(instanceOf(copy->getID()), test::kOwn);
  EXPECT_EQ(copy->getRunNumber(), 1);
  EXPECT_EQ(instanceOf(foreign), 7);
}

TEST_F(CloneTest, ASignalIsCopiedWithWhatIsBelowIt) {
  Set original = fullRun();
  Set target = run();
  const std::vector<int> ids = original.getSignalIDs(Query::all);
  const int bus = signal(ids[0])->clone(target)->getID();
  EXPECT_EQ(target.getSignalIDs(Query::all).size(), 3u);
  EXPECT_EQ(linkOf(bus, strings::FK_Parent), 0);
  // A leaf alone takes its own samples along.
  const int leaf = signal(ids[2])->clone(target)->getID();
  EXPECT_EQ(linkOf(leaf, strings::FK_Parent), 0);
  EXPECT_EQ(linkOf(leaf, strings::IdOfSignalWhoHasMyData), 0);
  original.remove();
  EXPECT_THAT(valuesOf(leaf), ElementsAre(2, 4, 6));
  EXPECT_THAT(valuesOf(target.getSignalByIndex(0)), ElementsAre(1, 3, 5));
}

}  // namespace
}  // namespace vela
