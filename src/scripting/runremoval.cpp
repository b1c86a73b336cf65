// Removal of runs and signals.
#include <set>

#include "host/features.h"
#include "objects/find.h"
#include "objects/raising.h"
#include "objects/strings.h"
#include "scripting/applications.h"
#include "scripting/emptyrepository.h"
#include "scripting/families.h"
#include "scripting/method.h"
#include "scripting/streaming.h"
#include "velainstance.h"

namespace vela::scripting {
namespace {

void removeRun(Repository, Run run) {
  if (run->isActivelyStreaming()) raiseStreaming("Run", run->getID());
  run->remove();
}

/// Deletes what a view repository that is open keeps of the runs.
void dropFromView(const std::vector<int>& runIDs) {
  ObjectManager* const view = VelaInstance::getInstance().findObjectManager(
      ObjectManager::getSchemaPath("vela_view_schema.xml"));
  if (!view) return;
  view->inTransaction([&] {
    for (const std::string& name :
         {strings::CachedComparison, strings::CachedPlottedComparisonSignal,
          strings::ToolstripRunList}) {
      const kodd::ClassRef cls = view->getClass(name);
      const kodd::PropertyRef run = cls.findProperty(strings::RunID);
      const auto deleter = view->createObjectDeleter(cls);
      for (const int id : runIDs) {
        const auto ofRun =
            kodd::Selection(cls).matching(run, kodd::PropertyValueMatchRelation::Equal, id);
        raising([&](auto& diag) { return deleter->deleteSelected(ofRun, diag); });
      }
    }
  });
}

void deleteAllRuns(Repository repository, ApplicationText application) {
  ObjectManager& manager = repository.manager;
  const std::vector<int> runs =
      runsOfInstance(manager, applicationOf(application, Set::Application::AllApplications));
  Set::removeRuns(manager, runs);
  dropFromView(runs);
  if (isDeletedWhenEmpty()) Set::removeClosedInstances(manager, false);
}

/// What a list of IDs names; what names nothing is left out.
struct Members {
  std::vector<boost::shared_ptr<Set>> runs;
  std::vector<boost::shared_ptr<Signal>> signals;
};

Members membersNamed(ObjectManager& manager, const host::HostArray& ids) {
  Members members;
  const std::span<const int> values = ids.values<int>();
  for (const int id : std::set<int>(values.begin(), values.end())) {
    boost::shared_ptr<Set> run;
    boost::shared_ptr<Signal> signal;
    if (Set::lookupSet(id, run, manager)) {
      if (run->isActivelyStreaming()) raiseStreaming("Run", id);
      members.runs.push_back(run);
    } else if (Signal::lookupSignal(id, signal, manager)) {
      requireNoneStreams(manager, id);
      members.signals.push_back(signal);
    }
  }
  return members;
}

/// A signal may have gone with one above it.
void removeIfThere(ObjectManager& manager, int signalID) {
  boost::shared_ptr<Signal> signal;
  if (Signal::lookupSignal(signalID, signal, manager)) signal->remove();
}

void deleteRunsAndSignals(Repository repository, Int32s<"ids"> ids, Flag<"removeNow"> now) {
  ObjectManager& manager = repository.manager;
  manager.inTransaction([&] {
    const Members members = membersNamed(manager, ids);
    for (const auto& signal : members.signals) removeIfThere(manager, signal->getID());
    std::vector<int> runIDs;
    for (const auto& run : members.runs) runIDs.push_back(run->getID());
    if (now) {
      Set::removeRuns(manager, runIDs);
    } else {
      for (const auto& run : members.runs) run->lightweightRemove();
    }
  });
}

void purgeDeletedRuns(Repository repository) {
  Set::removeRunsMarkedForDelete(repository.manager);
  deleteFileIfEmpty(repository.manager);
}

struct VelaRepositoryRemoveRun
    : Method<"removeRun", "Remove a run with its signals, unless it is being written.",
             &removeRun, "nexstore:nex:DeleteStreamingSignal"> {};
struct VelaRepositoryDeleteAllRuns
    : Method<"deleteAllRuns",
             "Remove the runs of this instance, of one application if named; none when one of "
             "them is being written.",
             &deleteAllRuns, "nexstore:nex:DeleteStreamingSignal"> {};
struct VelaRepositoryDeleteRunsAndSignals
    : Method<"deleteRunsAndSignals",
             "Remove runs and signals; with false, runs are only hidden until the next purge. "
             "Unknown IDs are skipped; nothing is removed when one of them is being written.",
             &deleteRunsAndSignals, "nexstore:nex:DeleteStreamingSignal"> {};
struct VelaRepositoryPurgeDeletedRuns
    : Method<"purgeDeletedRuns",
             "Remove this instance's hidden runs and its prior overwritten run; delete the "
             "shared file when it is empty then and that is switched on.",
             &purgeDeletedRuns, "nexstore:nex:DeleteStreamingSignal"> {};

}  // namespace

void addRunRemovalMethods(Methods& methods) {
  methods.add<VelaRepositoryRemoveRun, VelaRepositoryDeleteAllRuns,
              VelaRepositoryDeleteRunsAndSignals, VelaRepositoryPurgeDeletedRuns>();
}

}  // namespace vela::scripting
