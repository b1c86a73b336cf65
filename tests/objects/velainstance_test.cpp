#include "velainstance.h"

#include <cstdlib>
#include <future>
#include <map>
#include <set>
#include <thread>

#include "host/features.h"
#include "objects/find.h"
#include "objects/set.h"
#include "objects/strings.h"
#include "tests/objectmanager/managertest.h"

namespace vela {
namespace {

namespace fs = std::filesystem;
using test::inKilledProcess;

/// There is one instance and one shared path in a process, so every case runs in a process of
/// its own, with a temporary directory of its own.
class VelaInstanceDeathTest : public testing::Test {
 protected:
  VelaInstanceDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  /// Runs `body` in this process, which then ends; for use inside EXPECT_EXIT.
  [[noreturn]] void run(const std::function<void()>& body) {
    {
      test::TemporaryFolder folder;
      setenv("TMPDIR", folder.path().c_str(), 1);
      setenv("USER", "someone", 1);
      folder_ = folder.path();
      body();
      instance().disconnectAll();
    }
    std::exit(HasFailure() ? 1 : 0);
  }
  static VelaInstance& instance() { return VelaInstance::getInstance(); }
  static ObjectManager& repository() { return instance().getObjectManager({}, {}); }
  static void setFeature(int value) {
    host::findFeature("VELAStaticDMR")->setFeatValFromC(value);
  }
  static fs::path shared() { return text::toUtf8(ObjectManager::persistentDMRPath()); }
  int filesOfOurs() const {
    return static_cast<int>(
        std::distance(fs::directory_iterator(folder_), fs::directory_iterator()));
  }

  fs::path folder_;
};

#define EXPECT_IN_OWN_PROCESS(...) EXPECT_EXIT(run(__VA_ARGS__), testing::ExitedWithCode(0), "")

TEST_F(VelaInstanceDeathTest, FeatureAndBatchAccountDecideAboutTheSharedFile) {
  struct Case {
    int feature;
    bool isBatchJob;
    bool expectsShared;
  };
  for (const Case& c : {Case{0, false, false}, Case{1, false, true}, Case{1, true, false},
                        Case{2, false, true}, Case{2, true, true}}) {
    SCOPED_TRACE(testing::Message() << "feature " << c.feature << ", batch " << c.isBatchJob);
    EXPECT_IN_OWN_PROCESS([&] {
      setFeature(c.feature);
      setenv("VELA_BATCH_ACCOUNT", c.isBatchJob ? "someone" : "nobody", 1);
      EXPECT_EQ(repository().isPersistentDMR(), c.expectsShared);
      EXPECT_EQ(fs::exists(shared()), c.expectsShared);
    });
  }
}

TEST_F(VelaInstanceDeathTest, WhateverStandsInTheWayOfTheSharedFileIsLeftAlone) {
  EXPECT_IN_OWN_PROCESS([&] {
    fs::create_directory(shared());
    EXPECT_FALSE(repository().isPersistentDMR());
    EXPECT_TRUE(repository().isOpen());
    EXPECT_TRUE(fs::is_directory(shared()));
  });
}

TEST_F(VelaInstanceDeathTest, EverySchemaHasOneManagerAndTheDefaultOneManyNames) {
  EXPECT_IN_OWN_PROCESS([&] {
    const std::string viewSchema = ObjectManager::getSchemaPath("vela_view_schema.xml");
    ObjectManager& view = instance().getObjectManager(viewSchema, "vela_view");
    ObjectManager& defaultOne =
        instance().getObjectManager(ObjectManager::getSchemaPath("schema.xml"), {});
    EXPECT_EQ(&defaultOne, &repository());
    EXPECT_EQ(&view, &instance().getObjectManager(viewSchema, "vela_view"));
    EXPECT_NE(&view, &defaultOne);
    EXPECT_TRUE(defaultOne.isPersistentDMR());
    EXPECT_FALSE(view.isPersistentDMR());
    EXPECT_EQ(static_cast<unsigned long long>(view.getInstanceID()),
              instance().getInstanceID());
  });
}

class CountingNotifier : public VelaInstance::CreateNotifier {
 public:
  CountingNotifier(int& told, std::function<void()> then = {})
      : told_(told), then_(std::move(then)) {}
  void notify() override {
    ++told_;
    if (then_) then_();
  }

 private:
  int& told_;
  std::function<void()> then_;
};

TEST_F(VelaInstanceDeathTest, NotifiersAreToldOnceWhateverTheOthersDo) {
  EXPECT_IN_OWN_PROCESS([&] {
    int dropped = 0;
    VelaInstance::registerCreateNotifier(new CountingNotifier(dropped));
    VelaInstance::unregisterAllNotifiers();

    int early = 0;
    int fromWithin = 0;
    VelaInstance::registerCreateNotifier(
        new CountingNotifier(early, [] { throw std::runtime_error("no"); }));
    VelaInstance::registerCreateNotifier(new CountingNotifier(early, [&] {
      EXPECT_TRUE(repository().isOpen());
      VelaInstance::registerCreateNotifier(new CountingNotifier(fromWithin));
    }));
    EXPECT_FALSE(instance().hasObjMgrBeenCreated());
    EXPECT_THROW(repository(), std::runtime_error);
    EXPECT_TRUE(instance().hasObjMgrBeenCreated());
    repository();
    EXPECT_EQ(early, 2);
    EXPECT_EQ(fromWithin, 1);
    EXPECT_EQ(dropped, 0);

    int late = 0;
    VelaInstance::registerCreateNotifier(new CountingNotifier(late));
    EXPECT_EQ(late, 1);
  });
}

TEST_F(VelaInstanceDeathTest, NoThreadIsGivenARepositoryThatIsStillBeingOpened) {
  EXPECT_IN_OWN_PROCESS([&] {
    std::vector<std::future<ObjectManager*>> openers;
    for (int i = 0; i < 8; ++i) {
      openers.push_back(std::async(std::launch::async, [] {
        ObjectManager& manager = repository();
        return manager.isOpen() ? &manager : nullptr;
      }));
    }
    std::set<ObjectManager*> managers;
    for (auto& opener : openers) managers.insert(opener.get());
    EXPECT_EQ(managers, std::set<ObjectManager*>{&repository()});
  });
}

// A unit of work asks for the repository while another thread opens it: neither may wait for
// the other for ever.
TEST_F(VelaInstanceDeathTest, AUnitOfWorkMayAskForTheRepositoryAnotherThreadIsOpening) {
  EXPECT_IN_OWN_PROCESS([&] {
    ObjectManager& view = instance().getObjectManager(
        ObjectManager::getSchemaPath("vela_view_schema.xml"), "vela_view");
    std::promise<void> inUnit;
    std::thread opener([&] {
      inUnit.get_future().wait();
      repository();
    });
    view.inTransaction([&] {
      inUnit.set_value();
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      EXPECT_TRUE(repository().isOpen());
    });
    opener.join();
  });
}

TEST_F(VelaInstanceDeathTest, AFailedOpeningIsTriedAgain) {
  EXPECT_IN_OWN_PROCESS([&] {
    setenv("VELA_DURABILITY", "rather", 1);
    EXPECT_NE(test::raisedBy([] { repository(); }), "");
    EXPECT_FALSE(instance().hasObjMgrBeenCreated());
    unsetenv("VELA_DURABILITY");
    EXPECT_TRUE(repository().isOpen());
  });
}

TEST_F(VelaInstanceDeathTest, TheQueryLogTellsWhatTheMainThreadAndWhatAllAsked) {
  EXPECT_IN_OWN_PROCESS([&] {
    const auto rows = [](const char* log) {
      return instance().getQueryLog().field(log).dimensions()[0];
    };
    repository();
    instance().purgeQueryLog();
    EXPECT_EQ(instance().getQueryLog().fieldNames(),
              (std::vector<std::string>{"MainThreadLog", "AllThreadsLog"}));
    boost::ptr_vector<ObjectRef> found;
    repository().findObjects(strings::DataSet, {}, found);
    std::thread([&] { repository().findObjects(strings::Unit, {}, found); }).join();
    EXPECT_EQ(rows("MainThreadLog"), 2u);
    EXPECT_EQ(rows("AllThreadsLog"), 3u);
    instance().purgeQueryLog();
    EXPECT_EQ(rows("AllThreadsLog"), 1u);
  });
}

TEST_F(VelaInstanceDeathTest, DeletingTheSharedFileGoesOnWithAnEmptyOne) {
  EXPECT_IN_OWN_PROCESS([&] {
    ObjectManager& manager = repository();
    const Set run(true);
    instance().deleteDMR();
    EXPECT_EQ(&repository(), &manager);
    EXPECT_TRUE(manager.isOpen());
    EXPECT_EQ(countObjects(manager, strings::DataSet, {}), 0);
    EXPECT_EQ(test::raisedBy([&] { run.getName(); }), "KODD:kodd:InvalidObject");
    EXPECT_EQ(Set(true).getRunNumber(), 1);
  });
}

TEST_F(VelaInstanceDeathTest, DeletingTheSharedFileLeavesPrivateOnesAlone) {
  EXPECT_IN_OWN_PROCESS([&] {
    setFeature(0);
    const Set run(true);
    test::writeText(shared(), "left by somebody");
    instance().deleteDMR();
    EXPECT_FALSE(fs::exists(shared()));
    EXPECT_EQ(run.getRunNumber(), 1);
  });
}

TEST_F(VelaInstanceDeathTest, ARapidAcceleratorProcessWritesUnderIdentityOne) {
  EXPECT_IN_OWN_PROCESS([&] {
    EXPECT_GT(instance().getInstanceID(), 1u);
    ObjectManager& early = repository();
    instance().setIsRapidAccelProcess();
    EXPECT_EQ(instance().getInstanceID(), 1u);
    EXPECT_EQ(early.getInstanceID(), 1);
    EXPECT_EQ(
        instance()
            .getObjectManager(ObjectManager::getSchemaPath("vela_view_schema.xml"), "vela_view")
            .getInstanceID(),
        1);
    const Set run(true);
    EXPECT_EQ(run.getObjectReference().getPropertyInt64(strings::InstanceID), 1);
    EXPECT_EQ(run.getOrderIndex(), 1);
  });
}

TEST_F(VelaInstanceDeathTest, ClosingMarksTheRowAndNeverCreatesARepository) {
  EXPECT_IN_OWN_PROCESS([&] {
    instance().setInstanceClosed();
    instance().getObjectManager(ObjectManager::getSchemaPath("vela_view_schema.xml"),
                                "vela_view");
    instance().setInstanceClosed();
    EXPECT_FALSE(fs::exists(shared()));

    ObjectManager& manager = repository();
    const auto closedRows = [&] {
      return countObjects(
          manager, strings::InstanceID,
          {equals(strings::IDLower, manager.getInstanceID()), equals(strings::IsClosed, 1)});
    };
    EXPECT_EQ(closedRows(), 0);
    instance().setInstanceClosed();
    EXPECT_EQ(closedRows(), 1);
  });
}

TEST_F(VelaInstanceDeathTest, DisconnectingRemovesPrivateFilesAndTheNextUseOpensAnew) {
  EXPECT_IN_OWN_PROCESS([&] {
    setFeature(0);
    const int before = filesOfOurs();
    EXPECT_EQ(Set(true).getRunNumber(), 1);
    EXPECT_GT(filesOfOurs(), before);
    instance().disconnectAll();
    EXPECT_EQ(filesOfOurs(), before);
    EXPECT_EQ(Set(true).getRunNumber(), 1);
  });
}

TEST_F(VelaInstanceDeathTest, AForkedChildHasAnIdentityAndAConnectionOfItsOwn) {
  EXPECT_IN_OWN_PROCESS([&] {
    const Set before(true);
    const unsigned long long parentID = instance().getInstanceID();
    inKilledProcess([&] {
      const bool isNew = instance().getInstanceID() != parentID;
      if (isNew && Set(true).getRunNumber() == 1) test::writeText(folder_ / "passed", "");
      instance().disconnectAll();
    });
    EXPECT_TRUE(fs::exists(folder_ / "passed"));
    EXPECT_EQ(instance().getInstanceID(), parentID);
    EXPECT_EQ(Set(true).getRunNumber(), 2);
    EXPECT_EQ(countObjects(repository(), strings::DataSet, {}), 3);
  });
}

TEST_F(VelaInstanceDeathTest, ProcessesNumberAndOrderTheirRunsIndependently) {
  EXPECT_IN_OWN_PROCESS([&] {
    constexpr int kRuns = 30;
    const auto createRuns = [] {
      inKilledProcess([] {
        for (int i = 0; i < kRuns; ++i) Set run(true);
      });
    };
    std::thread other(createRuns);
    createRuns();
    other.join();

    std::map<long long, std::vector<int>> numbers;
    std::map<long long, std::vector<int>> places;
    for (const auto& run : Set::getAllVisibleRuns(
             repository(), Set::Application::AllApplications, Set::Sessions::all)) {
      const long long owner = run->getObjectReference().getPropertyInt64(strings::InstanceID);
      numbers[owner].push_back(run->getRunNumber());
      places[owner].push_back(run->getOrderIndex());
    }
    std::vector<int> expected(kRuns);
    for (int i = 0; i < kRuns; ++i) expected[i] = i + 1;
    EXPECT_EQ(numbers.size(), 2u);
    for (const auto& [owner, of] : numbers) {
      EXPECT_EQ(of, expected);
      EXPECT_EQ(places[owner], expected);
    }
    EXPECT_EQ(Set::getRunCount(repository(), Set::Application::AllApplications), 0);
  });
}

}  // namespace
}  // namespace vela
