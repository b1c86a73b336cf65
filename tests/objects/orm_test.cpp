#include "objects/orm.h"

#include <gmock/gmock.h>

#include <boost/make_shared.hpp>

#include "objects/find.h"
#include "objects/set.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::raisedBy;

struct Use {
  const char* what;
  std::function<void(Set& run, Signal& signal)> perform;
};

const Use kUses[] = {
    {"remove a run", [](Set& run, Signal&) { run.remove(); }},
    {"mark a run", [](Set& run, Signal&) { run.lightweightRemove(); }},
    {"number a run", [](Set& run, Signal&) { run.setRunNumber(99); }},
    {"read a number", [](Set& run, Signal&) { run.getRunNumber(); }},
    {"describe a run", [](Set& run, Signal&) { run.setMetaData("k", 1); }},
    {"read a description", [](Set& run, Signal&) { run.getMetaData("k"); }},
    {"copy a run", [](Set& run, Signal&) { run.clone(Set::Application::VELA); }},
    {"list signals", [](Set& run, Signal&) { run.getSignalIDs(Set::SignalQueryType::all); }},
    {"count elements", [](Set& run, Signal&) { run.getNumberOfElements(strings::Signal); }},
    {"get an element", [](Set& run, Signal&) { run.getElement(0, strings::Signal); }},
    {"uncheck signals", [](Set& run, Signal&) { run.uncheckAllSignals(); }},
    {"stop signals", [](Set& run, Signal&) { run.setRunSignalsToInactive(); }},
    {"ask for the overwrite run", [](Set& run, Signal&) { run.getOverWrite(); }},
    {"list children",
     [](Set&, Signal& signal) {
       boost::ptr_vector<ObjectRef> children;
       signal.getChildren(children);
     }},
    {"describe a signal", [](Set&, Signal& signal) { signal.setMetaData("k", 1); }},
    {"read a signal's description", [](Set&, Signal& signal) { signal.getMetaData("k"); }},
    {"find a copy", [](Set&, Signal& signal) { signal.findCopiedSignal(); }},
    {"ask for the observer", [](Set&, Signal& signal) { signal.getObserverUUID(); }},
    {"remove a signal", [](Set&, Signal& signal) { signal.remove(); }},
};

class HandleTest : public test::SignalTest {
 protected:
  /// A run with one signal on plot 1, both with a description.
  std::pair<std::unique_ptr<Set>, std::unique_ptr<Signal>> family() {
    auto run = std::make_unique<Set>(*manager_, true);
    auto signal = std::make_unique<Signal>(*manager_);
    run->addElement(*signal);
    run->setMetaData("k", 7);
    signal->setMetaData("k", 7);
    signal->setChecked({1});
    return {std::move(run), std::move(signal)};
  }
};

// IDs start over in a new file at the same place.
TEST_F(HandleTest, AHandleFromBeforeTouchesNoStranger) {
  const auto [run, signal] = family();
  manager_->disconnect();
  std::filesystem::remove(folder_ / "store.dmr");
  manager_->initializeObjectManager("", "");
  const auto [stranger, strangeSignal] = family();
  ASSERT_EQ(stranger->getID(), run->getID());
  ASSERT_EQ(strangeSignal->getID(), signal->getID());
  for (const Use& use : kUses) {
    SCOPED_TRACE(use.what);
    EXPECT_EQ(raisedBy([&] { use.perform(*run, *signal); }), "KODD:kodd:InvalidObject");
  }
  EXPECT_EQ(raisedBy([&] { strangeSignal->clone(*run); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(raisedBy([&] { run->addElement(*strangeSignal); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(raisedBy([&] { stranger->addElement(*signal); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(stranger->getRunNumber(), 1);
  EXPECT_EQ(std::get<long long>(stranger->getMetaData("k").value), 7);
  EXPECT_EQ(std::get<long long>(strangeSignal->getMetaData("k").value), 7);
  EXPECT_THAT(strangeSignal->getChecked(), testing::ElementsAre(1));
  EXPECT_EQ(Set::getRunCount(*manager_, Set::Application::AllApplications), 1);
}

TEST_F(HandleTest, NothingIsAttachedToWhatIsGone) {
  const auto [run, signal] = family();
  const Signal other(*manager_);
  run->remove();
  const int rows = countObjects(*manager_, strings::MetaData, {}) +
                   countObjects(*manager_, strings::RunNumberByRunID, {});
  for (const std::function<void()>& use : std::vector<std::function<void()>>{
           [&] { run->setMetaData("k", 1); }, [&] { run->setRunNumber(5); },
           [&] { run->addElement(other); }, [&] { other.clone(*run); },
           [&] { signal->setMetaData("k", 1); }}) {
    EXPECT_EQ(raisedBy(use), "KODD:kodd:InvalidObject");
  }
  EXPECT_EQ(countObjects(*manager_, strings::MetaData, {}) +
                countObjects(*manager_, strings::RunNumberByRunID, {}),
            rows);
  EXPECT_EQ(other.getParentSetID(), 0);
}

TEST_F(HandleTest, AParentIsASignalOfTheSameRepository) {
  Signal signal(*manager_);
  ObjectManager elsewhere(test::wide(folder_ / "other.dmr"));
  elsewhere.initializeObjectManager("", "");
  EXPECT_EQ(raisedBy([&] { signal.setParent(nullptr); }), "nexstore:nex:InvalidData");
  EXPECT_EQ(raisedBy([&] { signal.setParent(boost::make_shared<Signal>(elsewhere)); }),
            "nexstore:nex:InvalidData");
  EXPECT_EQ(raisedBy([&] { signal.clone(Set(elsewhere, true)); }), "nexstore:nex:InvalidData");
}

}  // namespace
}  // namespace vela
