// Runs that other instances left behind.
#include "scripting/applications.h"
#include "scripting/emptyrepository.h"
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

Flag<"found"> hasDataFromPriorSession(Repository repository, ApplicationText application) {
  return {Set::isDataFromClosedInstances(
      repository.manager, applicationOf(application, Set::Application::AllVELA))};
}

void discardDataFromPriorSession(Repository repository) {
  Set::removeClosedInstances(repository.manager, false);
  deleteFileIfEmpty(repository.manager);
}

void importDataFromPriorSession(ObjectManager& manager) {
  Set::importClosedInstances(manager);
}

Int32s<"runIDs"> importCompletedRapidAccelRuns(Repository repository) {
  std::vector<int> runs;
  Set::importCompletedRapidAccelRuns(repository.manager, runs);
  return {toHostArray(std::move(runs))};
}

struct VelaRepositoryHasDataFromPriorSession
    : Method<"hasDataFromPriorSession",
             "Whether closed instances left visible runs, of one application if named.",
             &hasDataFromPriorSession> {};
struct VelaRepositoryDiscardDataFromPriorSession
    : Method<"discardDataFromPriorSession", "Remove the runs that closed instances left.",
             &discardDataFromPriorSession> {};
struct VelaRepositoryImportDataFromPriorSession
    : RepositoryAction<"importDataFromPriorSession", &importDataFromPriorSession,
                       "Take over the runs that closed instances left."> {};
struct VelaRepositoryImportCompletedRapidAccelRuns
    : Method<"importCompletedRapidAccelRuns",
             "Take over the finished runs of rapid-accelerator children; returns their IDs.",
             &importCompletedRapidAccelRuns> {};

}  // namespace

void addSessionMethods(Methods& methods) {
  methods.add<VelaRepositoryHasDataFromPriorSession, VelaRepositoryDiscardDataFromPriorSession,
              VelaRepositoryImportDataFromPriorSession,
              VelaRepositoryImportCompletedRapidAccelRuns>();
}

}  // namespace vela::scripting
