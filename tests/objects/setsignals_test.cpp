// The signals of a run: queries, membership, removal.
#include <map>
#include <random>

#include "objects/find.h"
#include "objects/metadata.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "objects/strings.h"
#include "tests/objectmanager/managertest.h"

namespace vela {
namespace {

using test::raisedBy;
using testing::ElementsAre;
using Type = Set::SignalQueryType;

class SetSignalsTest : public test::ManagerTest {
 protected:
  Set run() { return Set(*manager_, true); }
  std::unique_ptr<ObjectRef> signal(int runID, int parentID = 0) {
    auto object = create(strings::Signal);
    object->setPropertyInt32(strings::FK_SetID, runID);
    object->setPropertyInt32(strings::FK_Parent, parentID);
    return object;
  }
  Signal handle(int id) {
    bool found = false;
    return Signal(manager_->findObject(id, strings::Signal, found));
  }
  /// A parent with two children, the second of which has one: IDs in that order.
  std::vector<int> tree(int runID) {
    const auto root = signal(runID);
    const auto first = signal(runID, root->getObjectID());
    const auto second = signal(runID, root->getObjectID());
    const auto inner = signal(runID, second->getObjectID());
    root->setPropertyInt32(strings::HasChildren, 1);
    second->setPropertyInt32(strings::HasChildren, 1);
    return {root->getObjectID(), first->getObjectID(), second->getObjectID(),
            inner->getObjectID()};
  }
  int runOf(int signalID) { return handle(signalID).getParentSetID(); }
};

std::vector<int> idsOf(const boost::ptr_vector<ObjectRef>& objects) {
  std::vector<int> ids;
  for (const ObjectRef& object : objects) ids.push_back(object.getObjectID());
  return ids;
}

TEST_F(SetSignalsTest, QueriesAgreeWithLookingAtEverySignal) {
  struct Plain {
    int id, run, parent, hasChildren, source, checked;
  };
  Set set = run();
  Set other = run();
  std::vector<Plain> all;
  std::mt19937 random(4711);
  for (int i = 0; i < 200; ++i) {
    const auto pick = [&](std::vector<int> from) { return from[random() % from.size()]; };
    Plain plain{0,
                pick({set.getID(), set.getID(), other.getID(), 0}),
                pick({0, 0, 1}),
                pick({0, 1}),
                pick({0, 1, 2, 3}),
                pick({0, 0, 5, std::numeric_limits<int>::min()})};
    if (plain.parent != 0 && !all.empty()) plain.parent = all[random() % all.size()].id;
    const auto object = signal(plain.run, plain.parent);
    object->setPropertyInt32(strings::HasChildren, plain.hasChildren);
    object->setPropertyInt32(strings::SourceType, plain.source);
    object->setPropertyInt32(strings::Checked, plain.checked);
    plain.id = object->getObjectID();
    all.push_back(plain);
  }
  const std::pair<Type, bool (*)(const Plain&)> types[] = {
      {Type::top, [](const Plain& s) { return s.parent == 0; }},
      {Type::leaf, [](const Plain& s) { return !s.hasChildren; }},
      {Type::all, [](const Plain&) { return true; }},
      {Type::checked, [](const Plain& s) { return s.checked != 0; }},
      {Type::logged, [](const Plain& s) { return s.source == 0; }},
      {Type::streamed, [](const Plain& s) { return s.source == 1; }},
      {Type::leafStreamed, [](const Plain& s) { return s.source == 1 && !s.hasChildren; }},
      {Type::leafLogged, [](const Plain& s) { return s.source == 0 && !s.hasChildren; }},
      {Type::leafImported, [](const Plain& s) { return s.source == 2 && !s.hasChildren; }}};
  const auto expected = [&](auto&& matches) {
    std::vector<int> ids;
    for (const Plain& plain : all) {
      if (plain.run == set.getID() && matches(plain)) ids.push_back(plain.id);
    }
    return ids;
  };
  for (const auto& [type, matches] : types) {
    SCOPED_TRACE(static_cast<int>(type));
    boost::ptr_vector<ObjectRef> signals;
    set.getAllSignals(type, signals);
    EXPECT_EQ(idsOf(signals), expected(matches));
    EXPECT_EQ(set.getSignalIDs(type), expected(matches));
  }
  boost::ptr_vector<ObjectRef> withParent;
  set.getLeafSignalsWithParent(withParent);
  EXPECT_EQ(idsOf(withParent),
            expected([](const Plain& s) { return !s.hasChildren && s.parent != 0; }));
  boost::ptr_vector<ObjectRef> withoutParent;
  set.getLeafSignalsWithoutParent(withoutParent);
  EXPECT_EQ(idsOf(withoutParent),
            expected([](const Plain& s) { return !s.hasChildren && s.parent == 0; }));
}

TEST_F(SetSignalsTest, SignalsAreReachedByPosition) {
  Set set = run();
  const std::vector<int> ids = tree(set.getID());
  EXPECT_EQ(set.getNumberOfLeafSignals(), 2);
  EXPECT_EQ(set.getSignalByIndex(0), ids[1]);
  EXPECT_EQ(set.getSignalByIndex(1), ids[3]);
  EXPECT_EQ(set.getSignalByIndex(2), 0);
  EXPECT_EQ(set.getSignalByIndex(-1), 0);

  EXPECT_EQ(set.getNumberOfElements(strings::Signal), 4);
  EXPECT_EQ(set.getElement(2, strings::Signal)->getObjectReference().getObjectID(), ids[2]);
  EXPECT_EQ(set.getElement(4, strings::Signal), nullptr);
  EXPECT_EQ(set.getElement(-1, strings::Signal), nullptr);
  boost::ptr_vector<ObjectRef> elements;
  set.getAllElements(strings::Signal, elements);
  EXPECT_EQ(idsOf(elements), ids);
  EXPECT_EQ(raisedBy([&] { set.getElement(0, strings::RunNumberByRunID); }),
            "nexstore:nex:InvalidData");
  EXPECT_EQ(raisedBy([&] { set.getNumberOfElements(strings::Chunk); }),
            "KODD:kodd:InvalidProperty");
}

TEST_F(SetSignalsTest, ElementsMoveWithEverythingBelowThem) {
  Set from = run();
  Set to = run();
  const std::vector<int> ids = tree(from.getID());
  const int bystander = signal(from.getID())->getObjectID();

  to.addElement(handle(ids[0]));
  for (const int id : ids) EXPECT_EQ(runOf(id), to.getID());
  EXPECT_EQ(handle(ids[3]).getParentSet()->getID(), to.getID());
  EXPECT_EQ(runOf(bystander), from.getID());

  from.removeElement(handle(ids[0]));
  EXPECT_EQ(runOf(ids[0]), to.getID());
  to.removeElement(handle(ids[2]));
  EXPECT_EQ(runOf(ids[1]), to.getID());
  EXPECT_EQ(runOf(ids[2]), 0);
  EXPECT_EQ(runOf(ids[3]), 0);
  EXPECT_FALSE(handle(ids[3]).getParentSet());
}

TEST_F(SetSignalsTest, AnElementOfAnotherRepositoryIsRefused) {
  ObjectManager other(test::wide(folder_ / "other.dmr"));
  other.initializeObjectManager("", "");
  const Signal stranger(other.createObject(strings::Signal, true));
  EXPECT_EQ(raisedBy([&] { run().addElement(stranger); }), "nexstore:nex:InvalidData");
}

TEST_F(SetSignalsTest, FlagsOfAllSignalsAreClearedAtOnce) {
  Set set = run();
  Set other = run();
  const int own = signal(set.getID())->getObjectID();
  const int foreign = signal(other.getID())->getObjectID();
  for (const int id : {own, foreign}) {
    const Signal of = handle(id);
    of.getObjectReference().setPropertyInt32(strings::Checked, 3);
    of.getObjectReference().setPropertyInt32(strings::IsActivelyStreaming, 1);
  }
  set.uncheckAllSignals();
  set.setRunSignalsToInactive();
  const auto value = [&](int id, const std::string& property) {
    return handle(id).getObjectReference().getPropertyInt32(property);
  };
  EXPECT_EQ(value(own, strings::Checked), 0);
  EXPECT_EQ(value(own, strings::IsActivelyStreaming), 0);
  EXPECT_EQ(value(foreign, strings::Checked), 3);
  EXPECT_EQ(value(foreign, strings::IsActivelyStreaming), 1);
}

class RunRemovalTest : public SetSignalsTest {
 protected:
  /// How many objects of each class there are.
  std::map<std::string, std::size_t> census() {
    std::vector<std::string> classes;
    std::string ignored;
    manager_->getPackageAndClass(strings::DataSet, ignored).getClassNames(classes);
    std::map<std::string, std::size_t> result;
    for (const std::string& name : classes) result[name] = count(name);
    return result;
  }
  void refer(ObjectRef& object, const std::string& property, int id) {
    object.setPropertyInt32(property, id);
  }
  /// A run with something of everything that can belong to one.
  Set fullRun() {
    Set set = run();
    const std::vector<int> ids = tree(set.getID());
    for (const int id : ids) {
      Signal of = handle(id);
      ObjectRef& object = of.getObjectReference();
      for (int i = 0; i < 3; ++i) {
        const auto chunk = create(strings::Chunk);
        chunk->setPropertyObject(strings::Signal, object);
        create(strings::TimeChunk)->setPropertyObject(strings::Chunk, *chunk);
        create(strings::DataChunk)->setPropertyObject(strings::Chunk, *chunk);
      }
      metadata::set(*manager_, id, strings::Signal, "key", 1);
      refer(*create(strings::SignalObservers), strings::SignalID, id);
      refer(*create(strings::PlottedComparisonSignal), strings::FK_SignalID, id);
      refer(object, strings::SignalSourceID, create(strings::SignalSource)->getObjectID());
    }
    set.setMetaData("key", 2.5);
    create(strings::InputMetaData)
        ->setPropertyObject(strings::DataSet, set.getObjectReference());
    create(strings::ActiveSimulation)
        ->setPropertyObject(strings::SetID, set.getObjectReference());
    const auto output =
        findFirst(*manager_, strings::OutputMetaData, {equals(strings::DataSet, set.getID())});
    output->setPropertyObject(strings::TestHarnessDataID, *create(strings::TestHarnessData));
    output->setPropertyObject(strings::TestUnitDataID, *create(strings::TestHarnessData));
    return set;
  }
};

TEST_F(RunRemovalTest, NothingOfARunIsLeftAndNothingElseIsTaken) {
  fullRun();
  Set shares = run();
  const auto census0 = census();
  Set set = fullRun();
  // A source that a signal of another run uses too.
  const auto shared = signal(shares.getID());
  refer(*shared, strings::SignalSourceID,
        handle(set.getSignalByIndex(0))
            .getObjectReference()
            .getPropertyInt32(strings::SignalSourceID));
  set.remove();
  auto expected = census0;
  ++expected[strings::Signal];
  ++expected[strings::SignalSource];
  EXPECT_EQ(census(), expected);
  EXPECT_EQ(raisedBy([&] { set.remove(); }), "KODD:kodd:NoSuchObject");
}

TEST_F(RunRemovalTest, SeveralRunsGoAtOnce) {
  const auto before = census();
  const int first = fullRun().getID();
  const int second = fullRun().getID();
  const int noRun = create(strings::DataType)->getObjectID();
  EXPECT_EQ(Set::removeRuns(*manager_, {first, second, noRun, first, 0}), 2);
  auto after = before;
  ++after[strings::DataType];
  // The template and this instance's counter stay.
  ++after[strings::RunNameTemplate];
  ++after[strings::RunNumberByRunID];
  ++after[strings::MinMaxOrderIndex];
  EXPECT_EQ(census(), after);
  EXPECT_EQ(Set::removeRuns(*manager_, {}), 0);
  EXPECT_EQ(Set::removeRuns(*manager_, {noRun}), 0);
}

TEST_F(RunRemovalTest, TheFileGetsSmaller) {
  Set set = run();
  const auto chunk = create(strings::Chunk);
  chunk->setPropertyObject(strings::Signal, *signal(set.getID()));
  const std::vector<char> bytes(8'000'000);
  const auto data = create(strings::DataChunk);
  data->setPropertyObject(strings::Chunk, *chunk);
  data->setPropertyConstBlob(strings::BlobData, {bytes.data(), bytes.size()});
  const auto fileSize = [&] {
    kodiag::util::diagnostics diag;
    manager_->repository().checkpoint(diag);
    return std::filesystem::file_size(folder_ / "store.dmr");
  };
  const auto before = fileSize();
  set.remove();
  EXPECT_LT(fileSize(), before - 7'000'000);
}

TEST_F(RunRemovalTest, AFailedUnitBringsTheRunBack) {
  Set set = fullRun();
  const auto before = census();
  EXPECT_THROW(manager_->inTransaction([&] {
    set.remove();
    throw std::runtime_error("no");
  }),
               std::exception);
  EXPECT_EQ(census(), before);
}

}  // namespace
}  // namespace vela
