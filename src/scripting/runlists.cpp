// Lists of runs and their signals.
#include <algorithm>

#include "scripting/applications.h"
#include "scripting/errors.h"
#include "scripting/families.h"
#include "scripting/method.h"
#include "text/utf8.h"

namespace vela::scripting {
namespace {

using Application = Set::Application;

std::vector<int> allRuns(ObjectManager& manager) {
  return Set::getAllVisibleRunIDs(manager);
}

int runCount(ObjectManager& manager) {
  return Set::getRunCount(manager, Application::AllVELA);
}

Any<"runIDs"> getRunID(Reading repository, Int32<"index">) {
  return {toHostArray(allRuns(repository.manager))};
}

Int32<"runID"> getRunIDByIndex(Reading repository, Int32<"index"> index) {
  const std::vector<int> runs = allRuns(repository.manager);
  if (index < 1 || std::cmp_greater(index.value, runs.size())) {
    throwScriptingError(
        {"VELA:vela", "InvalidRunID"},
        {{"Index", std::to_string(index)}, {"Count", std::to_string(runs.size())}});
  }
  return {runs[static_cast<std::size_t>(index - 1)]};
}

Any<"runIDs"> getAllRunIDs(Reading repository, ApplicationText application) {
  return {toHostArray(Set::getAllVisibleRunIDs(
      repository.manager, applicationOf(application, Application::AllApplications)))};
}

Any<"signalIDs"> getAllSignalIDs(Reading, Run run, std::optional<Ascii<"queryType">> type) {
  const auto query = type ? Set::getQueryTypeFromString(*type) : Set::SignalQueryType::all;
  return {toHostArray(run->getSignalIDs(query))};
}

Any<"valid"> isValidRunID(Reading repository, IDNamed<"runID"> id) {
  boost::shared_ptr<Set> run;
  return {host::HostArray::scalar(Set::lookupSet(id.id, run, repository.manager))};
}

void addSignal(Repository, Run run, SignalByID signal) {
  run->addElement(*signal);
}

/// The newest of an application's visible runs that is streaming; 0 when none is.
int newestStreamingRun(ObjectManager& manager, Application application) {
  int newest = 0;
  for (const auto& run : Set::getAllVisibleRuns(manager, application)) {
    if (run->isActivelyStreaming()) newest = std::max(newest, run->getID());
  }
  return newest;
}

Int32<"runID"> getCurrentStreamingRunID(Reading repository, Ascii<"application"> application) {
  int id = 0;
  Set::getActiveSimulationSet(repository.manager, text::toWide(application.value), &id);
  if (id == 0 && namesApplication(application)) {
    id = newestStreamingRun(repository.manager, Set::getAppFromString(application));
  }
  return {id};
}

struct VelaRepositoryAddSignal
    : Method<"addSignal", "Move a signal, with everything below it, into a run.", &addSignal> {
};
struct VelaRepositoryGetSignalCount
    : RunGetter<"getSignalCount", &Set::getNumberOfLeafSignals, Int32<"count">,
                "Number of a run's signals that have none below them."> {};
struct VelaRepositoryGetRunCount
    : RepositoryGetter<"getRunCount", &runCount, Int32<"count">,
                       "Number of visible runs of this instance."> {};
struct VelaRepositoryGetRunID
    : Method<"getRunID", "IDs of all visible runs, whatever the index.", &getRunID> {};
struct VelaRepositoryGetRunIDByIndex
    : Method<"getRunIDByIndex", "ID of a run by its place in getAllRunIDs, from 1.",
             &getRunIDByIndex, "VELA:vela:InvalidRunID"> {};
struct VelaRepositoryGetAllRunIDs
    : Method<"getAllRunIDs",
             "IDs of the visible runs of this instance, of one application if named.",
             &getAllRunIDs> {};
struct VelaRepositoryGetAllSignalIDs
    : Method<"getAllSignalIDs",
             "IDs of a run's signals: \"top\", \"leaf\", \"checked\", \"logged\", "
             "\"streamed\", \"leaf streamed\", \"leaf logged\", \"leaf imported\", else all.",
             &getAllSignalIDs> {};
struct VelaRepositoryIsValidRunID
    : Method<"isValidRunID", "Whether an ID names a run, visible or not.", &isValidRunID> {};
struct VelaRepositoryGetCurrentStreamingRunID
    : Method<"getCurrentStreamingRunID",
             "ID of the run that a model, or else an application, is writing; 0 when there is "
             "none.",
             &getCurrentStreamingRunID> {};

}  // namespace

void addRunListMethods(Methods& methods) {
  methods.add<VelaRepositoryAddSignal, VelaRepositoryGetSignalCount, VelaRepositoryGetRunCount,
              VelaRepositoryGetRunID, VelaRepositoryGetRunIDByIndex, VelaRepositoryGetAllRunIDs,
              VelaRepositoryGetAllSignalIDs, VelaRepositoryIsValidRunID,
              VelaRepositoryGetCurrentStreamingRunID>();
}

}  // namespace vela::scripting
