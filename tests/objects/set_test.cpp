#include "objects/set.h"

#include <algorithm>
#include <limits>

#include "host/arrays.h"
#include "host/functions.h"
#include "objects/find.h"
#include "objects/strings.h"
#include "tests/objectmanager/managertest.h"

namespace vela {
namespace {

using Application = Set::Application;
using test::raisedBy;
using testing::ElementsAre;

class SetTest : public test::ManagerTest {
 protected:
  Set run() { return Set(*manager_, true); }
  Set runOf(Application application) {
    Set set = run();
    set.setApplication(application);
    return set;
  }
  std::vector<int> visible(Application application) {
    const std::vector<int> ids = Set::getAllVisibleRunIDs(*manager_, application);
    EXPECT_EQ(Set::getRunCount(*manager_, application), static_cast<int>(ids.size()));
    return ids;
  }
};

TEST_F(SetTest, RunsAreNumberedFromOneAndNumbersAreNotReissued) {
  EXPECT_EQ(Set::getHighestRunNumber(*manager_), 0);
  EXPECT_EQ(run().getRunNumber(), 1);
  Set second = run();
  EXPECT_EQ(second.getRunNumber(), 2);
  second.remove();
  EXPECT_EQ(run().getRunNumber(), 3);

  Set unnumbered(*manager_, false);
  EXPECT_EQ(unnumbered.getRunNumber(), 0);
  unnumbered.setRunNumber(90);
  EXPECT_EQ(unnumbered.getRunNumber(), 90);
  EXPECT_EQ(Set::getHighestRunNumber(*manager_), 3);
  Set::setHighestRunNumber(*manager_, 50);
  EXPECT_EQ(run().getRunNumber(), 51);
}

TEST_F(SetTest, EveryInstanceHasItsOwnNumbersAndPlaces) {
  run();
  run();
  manager_->setInstanceID(77);
  const Set first = run();
  EXPECT_EQ(first.getRunNumber(), 1);
  EXPECT_EQ(first.getOrderIndex(), 1);
}

TEST_F(SetTest, ThePlaceOfNewRunsCanBeSetBeforeTheFirst) {
  Set::setShowRunAtTop(true, *manager_);
  const int first = run().getOrderIndex();
  EXPECT_EQ(run().getOrderIndex(), first - 1);
  EXPECT_TRUE(Set::getShowRunAtTop(*manager_));
}

TEST_F(SetTest, NewRunsGoToTheBottomOrTheTopOfOneList) {
  EXPECT_EQ(run().getOrderIndex(), 1);
  EXPECT_EQ(run().getOrderIndex(), 2);
  Set::initializeDefaultRunNameTemplateAndShowAtTopFlag(L"", true, *manager_);
  EXPECT_EQ(run().getOrderIndex(), -1);
  EXPECT_EQ(run().getOrderIndex(), -2);
  Set::initializeDefaultRunNameTemplateAndShowAtTopFlag(L"", false, *manager_);
  EXPECT_EQ(run().getOrderIndex(), 3);
  std::vector<int> places;
  for (const auto& set : Set::getAllVisibleRuns(*manager_)) {
    places.push_back(set->getOrderIndex());
  }
  EXPECT_THAT(places, ElementsAre(-2, -1, 1, 2, 3));
}

TEST_F(SetTest, AUsedUpCounterStopsRunsAndLeavesNothing) {
  Set::setHighestRunNumber(*manager_, std::numeric_limits<int>::max());
  EXPECT_EQ(raisedBy([&] { run(); }), "nexstore:nex:InvalidData");
  EXPECT_EQ(count(strings::DataSet), 0u);
  EXPECT_EQ(count(strings::OutputMetaData), 0u);
  EXPECT_EQ(Set(*manager_, false).getOrderIndex(), 1);
}

TEST_F(SetTest, PropertiesComeBackAfterReopening) {
  int id = 0;
  {
    Set set = run();
    id = set.getID();
    set.setName(L"\u00fcber");
    set.setDescription(L"d");
    set.setTag(L"t");
    set.setModel(L"m");
    set.setProject("p");
    set.setRebuildAction("r");
    set.setKOVersion("k");
    set.setSimMode("normal");
    set.setSimTime(1);
    set.setStartTime(-0.5);
    set.setStopTime(3);
    set.setTotalTime(4);
    set.setUpdateTime(5);
    set.setDate(6);
    set.setOrderIndex(-7);
    set.setApplication(Application::CustomApp);
    set.setRunHasEnumSignals(true);
    set.setWasVisualizeOnly(true);
    set.setIsActivelyStreaming(true);
    set.setSignalHashesCached(true);
    set.setStepperInterval(8);
    set.setStepperNumSteps(9);
    set.setInstanceID(10);
  }
  reopen();
  boost::shared_ptr<Set> set;
  ASSERT_TRUE(Set::lookupSet(id, set, *manager_));
  EXPECT_EQ(set->getName(), L"\u00fcber");
  EXPECT_EQ(set->getDescription(), L"d");
  EXPECT_EQ(set->getTag(), L"t");
  EXPECT_EQ(set->getModel(), L"m");
  EXPECT_EQ(set->getProject(), "p");
  EXPECT_EQ(set->getRebuildAction(), "r");
  EXPECT_EQ(set->getKOVersion(), "k");
  EXPECT_EQ(set->getSimMode(), "normal");
  EXPECT_EQ(set->getSimTime(), 1);
  EXPECT_EQ(set->getStartTime(), -0.5);
  EXPECT_EQ(set->getStopTime(), 3);
  EXPECT_EQ(set->getTotalTime(), 4);
  EXPECT_EQ(set->getUpdateTime(), 5);
  EXPECT_EQ(set->getDate(), 6);
  EXPECT_EQ(set->getOrderIndex(), -7);
  EXPECT_EQ(set->getApplication(), Application::CustomApp);
  EXPECT_TRUE(set->getRunHasEnumSignals());
  EXPECT_TRUE(set->getWasVisualizeOnly());
  EXPECT_TRUE(set->isActivelyStreaming());
  EXPECT_TRUE(set->areSignalHashesCached());
  const ObjectRef& object = set->getObjectReference();
  EXPECT_EQ(object.getPropertyInt32(strings::StepperInterval), 8);
  EXPECT_EQ(object.getPropertyInt32(strings::StepperNumSteps), 9);
  EXPECT_EQ(object.getPropertyInt64(strings::InstanceID), 10);
}

// What the setter writes is what the run is told; the getter reads what the simulation
// reported.
TEST_F(SetTest, ChecksumAndTerminationAreSetInOnePlaceAndReadInAnother) {
  Set set = run();
  set.setModelChecksum("told");
  set.setSimTerminationError(3);
  set.setSimTerminationErrorText(L"told");
  set.setSimTerminationType("told");
  EXPECT_EQ(set.getModelChecksum(), "");
  EXPECT_EQ(set.getSimTerminationError(), 0);
  EXPECT_EQ(set.getSimTerminationErrorText(), L"");
  EXPECT_EQ(set.getSimTerminationType(), "");
  EXPECT_EQ(set.getObjectReference().getPropertyStdString(strings::ModelChecksum), "told");

  const auto output = findFirst(*manager_, strings::OutputMetaData, {});
  EXPECT_EQ(output->getPropertyInt32(strings::TerminationError), 3);
  EXPECT_EQ(output->getPropertyUString(strings::TerminationErrorText), L"told");
  EXPECT_EQ(output->getPropertyStdString(strings::TerminationType), "told");
  output->setPropertyStdString(strings::ModelCheckSum, "reported");
  output->setPropertyInt32(strings::SimTerminationError, 4);
  output->setPropertyUString(strings::SimTerminationErrorText, L"reported");
  output->setPropertyStdString(strings::SimTerminationType, "reported");
  EXPECT_EQ(set.getModelChecksum(), "reported");
  EXPECT_EQ(set.getSimTerminationError(), 4);
  EXPECT_EQ(set.getSimTerminationErrorText(), L"reported");
  EXPECT_EQ(set.getSimTerminationType(), "reported");
}

TEST_F(SetTest, ReferencesNameRunsOnlyAndReadZeroWhenTheRunIsGone) {
  Set set = run();
  Set baseline = run();
  EXPECT_EQ(set.getBaselineSetID(), 0);
  set.setBaselineSetID(baseline.getID());
  set.setCompareToSetID(set.getID());
  EXPECT_EQ(set.getBaselineSetID(), baseline.getID());
  const int signal = create(strings::Signal)->getObjectID();
  EXPECT_EQ(raisedBy([&] { set.setBaselineSetID(signal); }), "KODD:kodd:NoSuchObject");
  EXPECT_EQ(set.getBaselineSetID(), baseline.getID());
  baseline.remove();
  EXPECT_EQ(set.getBaselineSetID(), 0);
  set.setCompareToSetID(0);
  EXPECT_EQ(set.getCompareToSetID(), 0);
}

TEST_F(SetTest, ABulkUpdateWritesAtTheCommit) {
  Set set = run();
  set.setName(L"old");
  set.beginBulkPropertyUpdate();
  set.setName(std::wstring(100, L'x'));
  set.setModel(L"m");
  set.setSimTime(2);
  set.setBaselineSetID(set.getID());
  EXPECT_EQ(set.getName(), L"old");
  set.commitBulkPropertyUpdate();
  EXPECT_EQ(set.getName(), std::wstring(100, L'x'));
  EXPECT_EQ(set.getModel(), L"m");
  EXPECT_EQ(set.getSimTime(), 2);
  EXPECT_EQ(set.getBaselineSetID(), set.getID());
  set.setName(L"at once");
  EXPECT_EQ(set.getName(), L"at once");
}

TEST_F(SetTest, OutputMetadataIsMadeByTheFirstWriteAndNeverByReading) {
  Set set(create(strings::DataSet));
  EXPECT_EQ(set.getModel(), L"");
  EXPECT_EQ(set.getSimTime(), 0);
  EXPECT_EQ(count(strings::OutputMetaData), 0u);
  EXPECT_THROW(manager_->inTransaction([&] {
    set.setModel(L"undone");
    EXPECT_EQ(set.getModel(), L"undone");
    throw std::runtime_error("no");
  }),
               std::exception);
  EXPECT_EQ(set.getModel(), L"");
  set.setModel(L"m");
  set.setTag(L"t");
  EXPECT_EQ(set.getModel(), L"m");
  EXPECT_EQ(count(strings::OutputMetaData), 1u);
}

TEST_F(SetTest, ListsShowVisibleRunsOfTheInstanceByApplication) {
  const int vela = run().getID();
  const int comparison = runOf(Application::VELAComparison).getID();
  const int qrv = runOf(Application::QRVRun).getID();
  Set hidden = run();
  hidden.getObjectReference().setPropertyInt32(strings::Visible, 0);
  Set marked = run();
  marked.getObjectReference().setPropertyInt32(strings::MarkedForDelete, 1);
  Set foreign = run();
  foreign.setInstanceID(5);

  EXPECT_THAT(visible(Application::AllVELA), ElementsAre(vela, comparison));
  EXPECT_THAT(visible(Application::AllApplications), ElementsAre(vela, comparison, qrv));
  EXPECT_THAT(visible(Application::VELA), ElementsAre(vela));
  EXPECT_THAT(visible(Application::QRVRun), ElementsAre(qrv));
  EXPECT_THAT(visible(Application::CustomApp), ElementsAre());
  EXPECT_THAT(Set::getAllVisibleRunIDs(*manager_, Application::VELA, Set::Sessions::all),
              ElementsAre(vela, foreign.getID()));

  boost::shared_ptr<Set> found;
  EXPECT_TRUE(Set::lookupSet(marked.getID(), found, *manager_));
  EXPECT_FALSE(Set::lookupVisibleSet(marked.getID(), found, *manager_));
  EXPECT_FALSE(Set::lookupVisibleSet(hidden.getID(), found, *manager_));
  EXPECT_TRUE(Set::lookupVisibleSet(vela, found, *manager_));
  EXPECT_EQ(found->getID(), vela);
}

TEST_F(SetTest, LookingUpWhatIsNoRunFindsNothing) {
  const int signal = create(strings::Signal)->getObjectID();
  for (const int id : {signal, 0, -1, std::numeric_limits<int>::max()}) {
    boost::shared_ptr<Set> found;
    EXPECT_FALSE(Set::lookupSet(id, found, *manager_)) << id;
    EXPECT_FALSE(found);
  }
}

TEST_F(SetTest, TheActiveSimulationIsThatOfTheModel) {
  Set set = run();
  const auto active = create(strings::ActiveSimulation);
  active->setPropertyUString(strings::Model, L"m");
  int id = 4711;
  EXPECT_FALSE(Set::getActiveSimulationSet(*manager_, L"m", &id));
  EXPECT_EQ(id, 0);
  active->setPropertyObject(strings::SetID, set.getObjectReference());
  EXPECT_EQ(Set::getActiveSimulationSet(*manager_, L"m", &id)->getID(), set.getID());
  EXPECT_EQ(id, set.getID());
  EXPECT_FALSE(Set::getActiveSimulationSet(*manager_, L"other"));
}

TEST(SetTexts, ApplicationsAreWrittenAndReadDifferently) {
  const std::pair<Application, const char*> written[] = {
      {Application::VELA, "vela"},
      {Application::VELAComparison, "VELAComparison"},
      {Application::AllVELA, "AllVELA"},
      {Application::QRVRun, "QRVRun"},
      {Application::QRVComparisonRun, "QRVComparisonRun"},
      {Application::CustomApp, "CustomApp"},
      {Application::AllApplications, "AllApplications"}};
  for (const auto& [application, text] : written) {
    EXPECT_EQ(Set::getStringFromApp(application), text);
  }
  const std::pair<const char*, Application> read[] = {
      {"ALLVELA", Application::AllVELA},
      {"QRVRun", Application::VELA},
      {"qrv", Application::QRVRun},
      {"QRVComparison", Application::QRVComparisonRun},
      {"Custom", Application::CustomApp},
      {"VelaComparison", Application::VELAComparison},
      {"AllApplications", Application::AllApplications},
      {"", Application::VELA},
      {"qrv ", Application::VELA}};
  for (const auto& [text, application] : read) {
    EXPECT_EQ(Set::getAppFromString(text), application) << text;
  }
}

TEST(SetTexts, QueryTypesIgnoreCaseAndDefaultToAll) {
  using Type = Set::SignalQueryType;
  const std::pair<const char*, Type> texts[] = {{"Top", Type::top},
                                                {"leaf", Type::leaf},
                                                {"CHECKED", Type::checked},
                                                {"logged", Type::logged},
                                                {"streamed", Type::streamed},
                                                {"leaf streamed", Type::leafStreamed},
                                                {"Leaf Logged", Type::leafLogged},
                                                {"leaf imported", Type::leafImported},
                                                {"leaflogged", Type::all},
                                                {"", Type::all}};
  for (const auto& [text, type] : texts) {
    EXPECT_EQ(Set::getQueryTypeFromString(text), type) << text;
  }
}

TEST_F(SetTest, AnEmptyHandleIsRefused) {
  const Set empty{std::unique_ptr<ObjectRef>()};
  EXPECT_EQ(raisedBy([&] { empty.getName(); }), "KODD:kodd:InvalidObject");
  EXPECT_EQ(raisedBy([&] { empty.getModel(); }), "KODD:kodd:InvalidObject");
}

}  // namespace
}  // namespace vela
