// A run copied with everything that belongs to it.
#include <memory>

#include "kodd/objectcopier.h"
#include "objectmanager/objectmanager.h"
#include "objects/raising.h"
#include "objects/runnumbering.h"
#include "objects/selections.h"
#include "objects/set.h"
#include "objects/signalcopy.h"
#include "objects/strings.h"

namespace vela {
namespace {

class RunCopy {
 public:
  RunCopy(ObjectManager& manager, int runID)
      : manager_(manager),
        runID_(runID),
        run_(withIDs(manager, strings::DataSet, {runID})),
        copier_(manager.repository()) {}

  /// \returns the ID of the copy
  int perform(Set::Application application) {
    manager_.ensureInstanceRecords();
    RunNumbering numbering(manager_);
    addRun();
    addDescription();
    addSignalsToCopy(manager_, copier_,
                     referring(manager_, strings::Signal, strings::FK_SetID, run_));
    giveRunItsOwn(application, numbering.nextPlace());
    raising([&](auto& diag) { copier_.copy(diag); });
    const int copy = raising([&](auto& diag) { return copier_.placeOf(runID_, diag); });
    createRunNumber(manager_, copy, numbering.nextNumber());
    numbering.store();
    return copy;
  }

 private:
  long long add(const kodd::Selection& selection) {
    return raising([&](auto& diag) { return copier_.add(selection, diag); });
  }

  void addRun() {
    if (add(run_) > 0) return;
    kodiag::raise({"KODD:kodd", "NoSuchObject"},
                  {{"ObjectID", std::to_string(runID_)}, {"ClassName", strings::DataSet}});
  }

  void addDescription() {
    const kodd::Selection output =
        referring(manager_, strings::OutputMetaData, strings::DataSet, run_);
    add(output);
    for (const std::string* harness : {&strings::TestHarnessDataID, &strings::TestUnitDataID}) {
      add(referencedBy(manager_, strings::TestHarnessData, *harness, output));
    }
    add(referring(manager_, strings::InputMetaData, strings::DataSet, run_));
    add(referring(manager_, strings::MetaData, strings::FK_ParentID, run_));
  }

  /// What tells the copy from its original, and what belongs to a simulation under way.
  void giveRunItsOwn(Set::Application application, int place) {
    give(strings::InstanceID, manager_.getInstanceID());
    give(strings::OrderIndex, place);
    give(strings::Application, static_cast<int>(application));
    give(strings::Date, secondsSince1970());
    give(strings::Visible, 1);
    for (const std::string* property :
         {&strings::MarkedForDelete, &strings::PriorOverwrittenRun,
          &strings::IsActivelyStreaming, &strings::SignalHashesAreCached,
          &strings::StepperInterval, &strings::StepperNumSteps,
          &strings::NumRemainingStepbacksToModelStartBeforeCompleteFlush}) {
      give(*property, 0);
    }
  }

  void give(const std::string& property, const kodd::EntryValue& value) {
    raising([&](auto& diag) {
      copier_.give(manager_.getPropertyRef(strings::DataSet, property), value, diag);
    });
  }

  ObjectManager& manager_;
  const int runID_;
  const kodd::Selection run_;
  kodd::ObjectCopier copier_;
};

}  // namespace

std::unique_ptr<Set> Set::clone(Application application) const {
  std::unique_ptr<ObjectRef> copy;
  manager().inTransaction([&] {
    const int copyID = RunCopy(manager(), liveID()).perform(application);
    bool found = false;
    copy = manager().findObject(copyID, strings::DataSet, found);
  });
  return std::make_unique<Set>(std::move(copy));
}

}  // namespace vela
