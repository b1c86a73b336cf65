// The run that the next simulation replaces.
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

int priorOverwriteRunID(ObjectManager& manager) {
  const boost::shared_ptr<Set> run = Set::getPriorOverwriteRun(manager);
  return run ? run->getID() : 0;
}

int uncheckOverwrittenSignals(ObjectManager& manager) {
  const boost::shared_ptr<Set> run = Set::getPriorOverwriteRun(manager);
  if (!run) return 0;
  run->uncheckAllSignals();
  return run->getID();
}

struct VelaRepositoryGetOverwrite : RunGetter<"getOverwrite", &Set::getOverWrite, Any<"flag">,
                                              "Whether the next simulation replaces a run."> {};
struct VelaRepositorySetOverwrite
    : RunSetter<"setOverwrite", &Set::setOverWrite, Flag<"flag">,
                "Set whether the next simulation replaces a run."> {};
struct VelaRepositoryGetOverWriteSetID
    : RepositoryGetter<"getOverWriteSetID", &Set::getOverWriteSetID, Int32<"runID">,
                       "ID of the run the next simulation replaces; 0 when there is none."> {};
struct VelaRepositoryGetPriorOverwriteRunID
    : RepositoryGetter<
          "getPriorOverwriteRunID", &priorOverwriteRunID, Int32<"runID">,
          "ID of the run kept aside since it was replaced; 0 when there is none."> {};
struct VelaRepositoryUncheckOverwrittenSignals
    : RepositoryGetter<"uncheckOverwrittenSignals", &uncheckOverwrittenSignals, Int32<"runID">,
                       "Take the signals of the replaced run off all plots; returns its ID or "
                       "0."> {};
struct VelaRepositoryUncheckAllSignalsInRun
    : RunAction<"uncheckAllSignalsInRun", &Set::uncheckAllSignals,
                "Take the signals of a run off all plots."> {};

}  // namespace

void addOverwriteMethods(Methods& methods) {
  methods.add<VelaRepositoryGetOverwrite, VelaRepositorySetOverwrite,
              VelaRepositoryGetOverWriteSetID, VelaRepositoryGetPriorOverwriteRunID,
              VelaRepositoryUncheckOverwrittenSignals, VelaRepositoryUncheckAllSignalsInRun>();
}

}  // namespace vela::scripting
