// The signals of a run, and the lists of runs.
#include <boost/make_shared.hpp>

#include "objectmanager/objectmanager.h"
#include "objects/find.h"
#include "objects/raising.h"
#include "objects/runrow.h"
#include "objects/selections.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "objects/signalkey.h"
#include "objects/signalremoval.h"
#include "objects/strings.h"

namespace vela {
namespace {

using Constraints = std::vector<ObjectManager::Constraint>;
using Query = Set::SignalQueryType;

ObjectManager::Constraint isLeaf() {
  return equals(strings::HasChildren, 0);
}
ObjectManager::Constraint comesFrom(Signal::SourceType source) {
  return equals(strings::SourceType, static_cast<int>(source));
}

Constraints signalsOf(int runID, Query type) {
  const auto ofRun = equals(strings::FK_SetID, runID);
  switch (type) {
    case Query::top:
      return {ofRun, equals(strings::FK_Parent, 0)};
    case Query::leaf:
      return {ofRun, isLeaf()};
    case Query::all:
      break;
    case Query::checked:
      // A mask with plot 32 is negative.
      return {ofRun, differs(strings::Checked, 0)};
    case Query::logged:
      return {ofRun, comesFrom(Signal::SourceType::Logged)};
    case Query::streamed:
      return {ofRun, comesFrom(Signal::SourceType::Visualized)};
    case Query::leafStreamed:
      return {ofRun, comesFrom(Signal::SourceType::Visualized), isLeaf()};
    case Query::leafLogged:
      return {ofRun, comesFrom(Signal::SourceType::Logged), isLeaf()};
    case Query::leafImported:
      return {ofRun, comesFrom(Signal::SourceType::Imported), isLeaf()};
  }
  return {ofRun};
}

kodd::Selection selectSignals(ObjectManager& manager, int runID) {
  return where(kodd::Selection(manager.getClass(strings::Signal)), strings::FK_SetID, runID);
}

/// Gives a signal and everything below it to a run.
void moveSubtree(ObjectManager& manager, int rootID, int runID) {
  const kodd::Selection signals =
      withIDs(manager, strings::Signal, signalsBelow(manager, rootID));
  writeToSelected(manager, signals, strings::FK_SetID, runID);
}

}  // namespace

void Set::getAllSignals(SignalQueryType type, boost::ptr_vector<ObjectRef>& signals) const {
  manager().findObjects(strings::Signal, signalsOf(liveID(), type), signals);
}

void Set::getLeafSignalsWithParent(boost::ptr_vector<ObjectRef>& signals) const {
  Constraints constraints = signalsOf(liveID(), SignalQueryType::leaf);
  constraints.push_back(differs(strings::FK_Parent, 0));
  manager().findObjects(strings::Signal, constraints, signals);
}

void Set::getLeafSignalsWithoutParent(boost::ptr_vector<ObjectRef>& signals) const {
  Constraints constraints = signalsOf(liveID(), SignalQueryType::leaf);
  constraints.push_back(equals(strings::FK_Parent, 0));
  manager().findObjects(strings::Signal, constraints, signals);
}

std::vector<int> Set::getSignalIDs(SignalQueryType type) const {
  return findIDs(manager(), strings::Signal, signalsOf(liveID(), type));
}

int Set::getNumberOfLeafSignals() const {
  return countObjects(manager(), strings::Signal, signalsOf(liveID(), SignalQueryType::leaf));
}

int Set::getSignalByIndex(int index) const {
  const std::vector<int> leaves = getSignalIDs(SignalQueryType::leaf);
  return std::cmp_less(index, leaves.size()) && index >= 0
             ? leaves[static_cast<std::size_t>(index)]
             : 0;
}

void Set::getAllElements(const std::string& className,
                         boost::ptr_vector<ObjectRef>& elements) const {
  manager().findObjects(className, {equals(strings::FK_SetID, liveID())}, elements);
}

int Set::getNumberOfElements(const std::string& className) const {
  return countObjects(manager(), className, {equals(strings::FK_SetID, liveID())});
}

std::unique_ptr<Element> Set::getElement(int index, const std::string& className) const {
  if (className != strings::Signal) {
    kodiag::raise({"nexstore:nex", "InvalidData"},
                  {{"Operation", "get element of run " + std::to_string(getID())},
                   {"Reason", "\"" + className + "\" is no class of elements"}});
  }
  const std::vector<int> ids =
      findIDs(manager(), className, {equals(strings::FK_SetID, liveID())});
  if (index < 0 || !std::cmp_less(index, ids.size())) return nullptr;
  return Signal::getSignalFromID(manager(), ids[static_cast<std::size_t>(index)]);
}

void Set::addElement(const Element& element) {
  requireSameRepository(element, "Adding an element to run " + std::to_string(getID()));
  manager().inTransaction([&] {
    moveSubtree(manager(), element.liveID(), liveID());
    forgetHashes(manager(), getID());
  });
}

void Set::removeElement(const Element& element) {
  requireSameRepository(element, "Taking an element out of run " + std::to_string(getID()));
  manager().inTransaction([&] {
    if (element.getParentSetID() != liveID()) return;
    moveSubtree(manager(), element.getObjectReference().getObjectID(), 0);
  });
}

void Set::uncheckAllSignals() {
  const kodd::PropertyRef checked = manager().getPropertyRef(strings::Signal, strings::Checked);
  writeToSelected(manager(),
                  selectSignals(manager(), liveID())
                      .matching(checked, kodd::PropertyValueMatchRelation::NotEqual, 0),
                  strings::Checked, 0);
}

void Set::setRunSignalsToInactive() {
  writeToSelected(manager(), selectSignals(manager(), liveID()), strings::IsActivelyStreaming,
                  0);
}

int Set::getRunCount(ObjectManager& manager, Application application, Sessions sessions) {
  return VisibleRuns(manager, application, sessions).count();
}

std::vector<int> Set::getAllVisibleRunIDs(ObjectManager& manager, Application application,
                                          Sessions sessions) {
  std::vector<int> ids;
  VisibleRuns(manager, application, sessions).forEach([&](const RunRow& run) {
    ids.push_back(run.object.id());
  });
  return ids;
}

std::vector<boost::shared_ptr<Set>> Set::getAllVisibleRuns(ObjectManager& manager,
                                                           Application application,
                                                           Sessions sessions) {
  std::vector<boost::shared_ptr<Set>> runs;
  VisibleRuns(manager, application, sessions).forEach([&](const RunRow& run) {
    runs.push_back(boost::make_shared<Set>(
        std::make_unique<ObjectRef>(run.object, run.object.cls(), strings::DataSet, manager)));
  });
  return runs;
}

bool Set::lookupSet(int runID, boost::shared_ptr<Set>& run, ObjectManager& manager) {
  if (runID <= 0) return false;
  bool found = false;
  auto object = manager.findObject(runID, strings::DataSet, found);
  if (found) run = boost::make_shared<Set>(std::move(object));
  return found;
}

bool Set::lookupVisibleSet(int runID, boost::shared_ptr<Set>& run, ObjectManager& manager) {
  boost::shared_ptr<Set> candidate;
  if (!lookupSet(runID, candidate, manager)) return false;
  const ObjectRef& object = candidate->getObjectReference();
  const bool isVisible = object.getPropertyInt32(strings::Visible) == 1 &&
                         object.getPropertyInt32(strings::MarkedForDelete) == 0;
  if (isVisible) run = candidate;
  return isVisible;
}

boost::shared_ptr<Set> Set::getActiveSimulationSet(ObjectManager& manager,
                                                   const std::wstring& model, int* runID) {
  boost::shared_ptr<Set> run;
  const auto active =
      findFirst(manager, strings::ActiveSimulation, {equals(strings::Model, model)});
  if (active) {
    std::unique_ptr<ObjectRef> object;
    active->getPropertyObject(strings::SetID, object, strings::DataSet);
    if (object) run = boost::make_shared<Set>(std::move(object));
  }
  if (runID) *runID = run ? run->getID() : 0;
  return run;
}

}  // namespace vela
