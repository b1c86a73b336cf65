// Paused models and the runs they write into.
#include <cmath>

#include "objects/find.h"
#include "objects/strings.h"
#include "scripting/errors.h"
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

using Records = boost::ptr_vector<ObjectRef>;

void findRecords(ObjectManager& manager, double handle, Records& records) {
  manager.findObjects(strings::PausedModel, {equals(strings::Handle, handle)}, records);
}

void pointAt(ObjectRef& record, const Set& run) {
  record.setPropertyObject(strings::SetID, run.getObjectReference());
}

void addPausedModel(Repository repository, Real<"handle"> handle, Run run) {
  // It would never be found again.
  if (std::isnan(handle.value)) {
    throwScriptingError({"nexstore:nex", "InvalidData"},
                        {{"Operation", "addPausedModel"}, {"Reason", "the handle is NaN"}});
  }
  ObjectManager& manager = repository.manager;
  manager.inTransaction([&] {
    Records records;
    findRecords(manager, handle, records);
    if (records.empty()) {
      records.push_back(manager.createObject(strings::PausedModel, true).release());
      records.front().setPropertyReal64(strings::Handle, handle);
    }
    pointAt(records.front(), *run);
  });
}

void removePausedModel(Repository repository, Real<"handle"> handle) {
  repository.manager.inTransaction([&] {
    Records records;
    findRecords(repository.manager, handle, records);
    for (ObjectRef& record : records) {
      kodiag::util::diagnostics raised;
      record.removeObject(raised);
    }
  });
}

Int32<"runID"> getRunIDFromModel(Reading repository, Real<"handle"> handle) {
  Records records;
  findRecords(repository.manager, handle, records);
  std::unique_ptr<ObjectRef> run;
  if (!records.empty()) {
    records.front().getPropertyObject(strings::SetID, run, strings::DataSet);
  }
  return {run ? run->getObjectID() : 0};
}

void updatePausedModelRunID(Repository repository, RunNamed<"oldRunID"> oldRun,
                            RunNamed<"newRunID"> newRun) {
  repository.manager.inTransaction([&] {
    Records records;
    repository.manager.findObjects(strings::PausedModel, {}, records,
                                   {{strings::SetID, &oldRun->getObjectReference()}});
    for (ObjectRef& record : records) pointAt(record, *newRun);
  });
}

struct VelaRepositoryAddPausedModel
    : Method<"addPausedModel", "Note the run that a paused model writes into.", &addPausedModel,
             "nexstore:nex:InvalidData"> {};
struct VelaRepositoryRemovePausedModel
    : Method<"removePausedModel", "Forget a paused model.", &removePausedModel> {};
struct VelaRepositoryGetRunIDFromModel
    : Method<"getRunIDFromModel",
             "ID of the run that a paused model writes into; 0 when there is none.",
             &getRunIDFromModel> {};
struct VelaRepositoryUpdatePausedModelRunID
    : Method<"updatePausedModelRunID",
             "Let the paused models that write into a run write into another one.",
             &updatePausedModelRunID> {};

}  // namespace

void addPausedModelMethods(Methods& methods) {
  methods.add<VelaRepositoryAddPausedModel, VelaRepositoryRemovePausedModel,
              VelaRepositoryGetRunIDFromModel, VelaRepositoryUpdatePausedModelRunID>();
}

}  // namespace vela::scripting
