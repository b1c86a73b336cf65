// Removal of runs with everything that belongs to them, by a few statements for each run and a
// fixed number besides, whatever the number of signals and chunks.
#include <set>

#include "objectmanager/objectmanager.h"
#include "objects/find.h"
#include "objects/raising.h"
#include "objects/runremoval.h"
#include "objects/selections.h"
#include "objects/set.h"
#include "objects/signalremoval.h"
#include "objects/strings.h"

namespace vela {
namespace {

/// Bounds the time a removal spends on making the file smaller: 32 MiB of it at most.
constexpr int kPagesGivenBack = 2000;

class RunRemoval {
 public:
  RunRemoval(ObjectManager& manager, const std::vector<int>& runIDs)
      : manager_(manager), runIDs_(runIDs), runs_(withIDs(manager, strings::DataSet, runIDs)) {}

  /// \returns how many runs there were
  int perform() {
    const std::vector<int> harnesses = testHarnesses();
    for (const std::string* name :
         {&strings::OverwriteSet, &strings::PausedModel, &strings::ActiveSimulation}) {
      removeReferring(*name, strings::SetID);
    }
    removeReferring(strings::RunNumberByRunID, strings::FK_SetID);
    if (!harnesses.empty()) {
      removeSelected(manager_, withIDs(manager_, strings::TestHarnessData, harnesses));
    }
    removeReferring(strings::MetaData, strings::FK_ParentID);
    removeReferring(strings::OutputMetaData, strings::DataSet);
    removeReferring(strings::InputMetaData, strings::DataSet);
    removeSignalsOfRuns();
    return static_cast<int>(removeSelected(manager_, runs_));
  }

 private:
  void removeReferring(const std::string& className, const std::string& property) {
    removeSelected(manager_, referring(manager_, className, property, runs_));
  }

  std::vector<int> testHarnesses() const {
    std::set<int> ids = namedByObjectsOfRuns(strings::OutputMetaData, strings::DataSet,
                                             strings::TestHarnessDataID);
    ids.merge(namedByObjectsOfRuns(strings::OutputMetaData, strings::DataSet,
                                   strings::TestUnitDataID));
    return {ids.begin(), ids.end()};
  }

  /// Sources are shared: only those of the runs that no other signal names go with them.
  void removeSignalsOfRuns() {
    const std::set<int> sources =
        namedByObjectsOfRuns(strings::Signal, strings::FK_SetID, strings::SignalSourceID);
    std::optional<kodd::Selection> candidates;
    if (!sources.empty()) {
      candidates = withIDs(manager_, strings::SignalSource, {sources.begin(), sources.end()});
    }
    removeSignals(manager_, referring(manager_, strings::Signal, strings::FK_SetID, runs_),
                  candidates);
  }

  /// The objects that `property` names in objects of the class whose `owner` is one of the
  /// runs.
  std::set<int> namedByObjectsOfRuns(const std::string& className, const std::string& owner,
                                     const std::string& property) const {
    const kodd::ClassRef cls = manager_.getClass(className);
    int run = 0;
    kodd::ObjectRef named;
    const auto query = manager_.createObjectQuery();
    query->addConstraint(cls.findProperty(owner), kodd::PropertyValueMatchRelation::Equal,
                         &run);
    query->addResultProperty(cls.findProperty(property), &named);
    std::set<int> ids;
    for (const int id : runIDs_) {
      run = id;
      raising([&](kodiag::util::diagnostics& diag) {
        kodd::ResultIterator rows = query->execute(diag);
        while (diag.empty() && rows.getNextResult(diag)) ids.insert(named.id());
      });
    }
    ids.erase(0);
    return ids;
  }

  ObjectManager& manager_;
  const std::vector<int>& runIDs_;
  const kodd::Selection runs_;
};

}  // namespace

void refuseStreamingRuns(ObjectManager& manager, const std::vector<int>& runIDs) {
  if (runIDs.empty()) return;
  const kodd::Selection runs = withIDs(manager, strings::DataSet, runIDs);
  if (countSelected(manager, where(runs, strings::IsActivelyStreaming, 0,
                                   kodd::PropertyValueMatchRelation::NotEqual)) == 0) {
    return;
  }
  for (const int id : runIDs) {
    bool found = false;
    const auto run = manager.findObject(id, strings::DataSet, found);
    if (!found || run->getPropertyInt32(strings::IsActivelyStreaming) == 0) continue;
    kodiag::raise({"nexstore:nex", "DeleteStreamingSignal"},
                  {{"Operand", "Run " + std::to_string(id)}});
  }
}

int removeRunsWithAll(ObjectManager& manager, const std::vector<int>& runIDs) {
  return runIDs.empty() ? 0 : RunRemoval(manager, runIDs).perform();
}

std::vector<int> purgeableRuns(ObjectManager& manager) {
  const auto own = equals(strings::InstanceID, manager.getInstanceID());
  std::set<int> ids;
  for (const std::string* flag : {&strings::MarkedForDelete, &strings::PriorOverwrittenRun}) {
    const std::vector<int> flagged =
        findIDs(manager, strings::DataSet, {own, equals(*flag, 1)});
    ids.insert(flagged.begin(), flagged.end());
  }
  return {ids.begin(), ids.end()};
}

void giveSomeSpaceBack(ObjectManager& manager) {
  // What was removed is gone whether or not the file shrinks now.
  kodiag::util::diagnostics discarded;
  manager.repository().releaseFreePages(kPagesGivenBack, discarded);
}

void Set::remove() {
  // A stale handle's ID may be that of another run by now; one whose run is gone is told below.
  raising([&](auto& diag) { getObjectReference().getObjRef().objectClass(diag); });
  if (removeRuns(manager(), {getID()}) > 0) return;
  kodiag::raise({"KODD:kodd", "NoSuchObject"},
                {{"ObjectID", std::to_string(getID())}, {"ClassName", strings::DataSet}});
}

int Set::removeRuns(ObjectManager& manager, const std::vector<int>& runIDs) {
  int removed = 0;
  manager.inTransaction([&] {
    refuseStreamingRuns(manager, runIDs);
    removed = removeRunsWithAll(manager, runIDs);
  });
  if (removed > 0) giveSomeSpaceBack(manager);
  return removed;
}

void Set::lightweightRemove() {
  manager().inTransaction([&] {
    refuseStreamingRuns(manager(), {liveID()});
    const int marked = 1;
    const int notPrior = 0;
    const int visible = 1;
    ObjectRef& run = getObjectReference();
    run.setPropertyInt32(strings::MarkedForDelete, marked);
    run.setPropertyInt32(strings::PriorOverwrittenRun, notPrior);
    run.setPropertyInt32(strings::Visible, visible);
    const kodd::Selection self = withIDs(manager(), strings::DataSet, {getID()});
    removeSelected(manager(),
                   referring(manager(), strings::ActiveSimulation, strings::SetID, self));
    if (!getOverWrite()) return;
    removeSelected(manager(),
                   ofInstance(manager(), strings::OverwriteSet, manager().getInstanceID()));
  });
}

int Set::removeRunsMarkedForDelete(ObjectManager& manager) {
  int removed = 0;
  manager.inTransaction([&] {
    const std::vector<int> runs = purgeableRuns(manager);
    refuseStreamingRuns(manager, runs);
    removed = removeRunsWithAll(manager, runs);
  });
  if (removed > 0) giveSomeSpaceBack(manager);
  return removed;
}

}  // namespace vela
