// The run that the next simulation of this instance replaces, and the one replaced last.
#include <boost/make_shared.hpp>

#include "objectmanager/objectmanager.h"
#include "objects/find.h"
#include "objects/selections.h"
#include "objects/set.h"
#include "objects/strings.h"

namespace vela {
namespace {

std::unique_ptr<ObjectRef> overwriteRecord(ObjectManager& manager) {
  return findFirst(manager, strings::OverwriteSet,
                   {equals(strings::InstanceID, manager.getInstanceID())});
}

/// Empty when the run is gone.
std::unique_ptr<ObjectRef> runOf(const ObjectRef& record) {
  std::unique_ptr<ObjectRef> run;
  record.getPropertyObject(strings::SetID, run, strings::DataSet);
  return run;
}

void removeOverwriteRecords(ObjectManager& manager) {
  removeSelected(manager, ofInstance(manager, strings::OverwriteSet, manager.getInstanceID()));
}

void storeOverwriteRun(ObjectManager& manager, ObjectRef& run) {
  auto record = overwriteRecord(manager);
  if (!record) {
    const long long instance = manager.getInstanceID();
    std::vector<ObjectManager::InitialProperty> values = {
        {strings::InstanceID, &instance, ObjectConstructorPropType::int64}};
    record = manager.createObject(strings::OverwriteSet, values, true);
  }
  record->setPropertyObject(strings::SetID, run);
}

kodd::Selection priorRuns(ObjectManager& manager) {
  return where(ofInstance(manager, strings::DataSet, manager.getInstanceID()),
               strings::PriorOverwrittenRun, 1);
}

void markPriorRunsForDelete(ObjectManager& manager) {
  const kodd::Selection prior = priorRuns(manager);
  writeToSelected(manager, prior, strings::MarkedForDelete, 1);
  writeToSelected(manager, prior, strings::PriorOverwrittenRun, 0);
}

void refuseForeignRun(ObjectManager& manager, const ObjectRef& run) {
  if (run.getPropertyInt64(strings::InstanceID) == manager.getInstanceID()) return;
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", "overwrite run " + std::to_string(run.getObjectID())},
                 {"Reason", "it belongs to another instance"}});
}

}  // namespace

void Set::setOverWrite(bool overWrite) {
  manager().inTransaction([&] {
    if (overWrite) {
      refuseForeignRun(manager(), getObjectReference());
      storeOverwriteRun(manager(), getObjectReference());
    } else if (getOverWrite()) {
      removeOverwriteRecords(manager());
    }
  });
}

bool Set::getOverWrite() const {
  return getOverWriteSetID(manager()) == liveID();
}

int Set::getOverWriteSetID(ObjectManager& manager) {
  const auto record = overwriteRecord(manager);
  const auto run = record ? runOf(*record) : nullptr;
  return run ? run->getObjectID() : 0;
}

int Set::cacheOverwriteRun(ObjectManager& manager) {
  int cached = 0;
  manager.inTransaction([&] {
    const auto record = overwriteRecord(manager);
    if (!record) return;
    const auto run = runOf(*record);
    if (!run) return removeOverwriteRecords(manager);
    cached = run->getObjectID();
    if (run->getPropertyInt32(strings::PriorOverwrittenRun) == 1) return;
    markPriorRunsForDelete(manager);
    const int visible = 1;
    const int prior = 1;
    run->setPropertyInt32(strings::Visible, visible);
    run->setPropertyInt32(strings::PriorOverwrittenRun, prior);
  });
  return cached;
}

boost::shared_ptr<Set> Set::getPriorOverwriteRun(ObjectManager& manager) {
  auto run = findFirst(manager, strings::DataSet,
                       {equals(strings::InstanceID, manager.getInstanceID()),
                        equals(strings::PriorOverwrittenRun, 1)});
  return run ? boost::make_shared<Set>(std::move(run)) : nullptr;
}

int Set::undoOverwrite(ObjectManager& manager) {
  int restored = 0;
  manager.inTransaction([&] {
    const boost::shared_ptr<Set> prior = getPriorOverwriteRun(manager);
    if (!prior) return;
    ObjectRef& run = prior->getObjectReference();
    run.setPropertyInt32(strings::MarkedForDelete, 0);
    run.setPropertyInt32(strings::PriorOverwrittenRun, 0);
    run.setPropertyInt32(strings::Visible, 1);
    storeOverwriteRun(manager, run);
    restored = prior->getID();
  });
  return restored;
}

}  // namespace vela
