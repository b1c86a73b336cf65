// The instances that share a repository, and what becomes of the closed ones.
#include <algorithm>
#include <map>

#include "objectmanager/objectmanager.h"
#include "objects/find.h"
#include "objects/instancetable.h"
#include "objects/raising.h"
#include "objects/runremoval.h"
#include "objects/runrow.h"
#include "objects/selections.h"
#include "objects/set.h"
#include "objects/signalremoval.h"
#include "objects/strings.h"

namespace vela {
namespace {

using Instance = Set::Instance;

bool keepsRow(long long instanceID) {
  return instanceID != 0 && instanceID != ObjectManager::RACCEL_INSTANCE_ID;
}

/// What the instance table says.
std::vector<Instance> recordedInstances(ObjectManager& manager) {
  const kodd::ClassRef cls = manager.getClass(strings::InstanceID);
  Instance row;
  int isClosed = 0;
  int hasCrashed = 0;
  int isFarmWorker = 0;
  const auto query = manager.createObjectQuery();
  query->addResultProperty(cls.findProperty(strings::IDLower), &row.id);
  query->addResultProperty(cls.findProperty(strings::IsClosed), &isClosed);
  query->addResultProperty(cls.findProperty(strings::HasCrashed), &hasCrashed);
  query->addResultProperty(cls.findProperty(strings::IsFarmWorker), &isFarmWorker);
  std::vector<Instance> found;
  raising([&](kodiag::util::diagnostics& diag) {
    kodd::ResultIterator rows = query->execute(diag);
    while (diag.empty() && rows.getNextResult(diag)) {
      row.state =
          manager.isInstanceAlive(row.id) ? Instance::State::alive : Instance::State::crashed;
      if (isClosed != 0) row.state = Instance::State::closed;
      if (hasCrashed != 0) row.state = Instance::State::crashed;
      if (!keepsRow(row.id)) row.state = Instance::State::untracked;
      row.isOwn = row.id == manager.getInstanceID();
      row.isFarmWorker = isFarmWorker != 0;
      found.push_back(row);
    }
  });
  return found;
}

struct RunCounts {
  int runs = 0;
  int visible = 0;
  int streaming = 0;
};

std::map<long long, RunCounts> runCounts(ObjectManager& manager) {
  const kodd::ClassRef cls = manager.getClass(strings::DataSet);
  long long instance = 0;
  int visible = 0;
  int marked = 0;
  int streaming = 0;
  const auto query = manager.createObjectQuery();
  query->addResultProperty(cls.findProperty(strings::InstanceID), &instance);
  query->addResultProperty(cls.findProperty(strings::Visible), &visible);
  query->addResultProperty(cls.findProperty(strings::MarkedForDelete), &marked);
  query->addResultProperty(cls.findProperty(strings::IsActivelyStreaming), &streaming);
  std::map<long long, RunCounts> counts;
  raising([&](kodiag::util::diagnostics& diag) {
    kodd::ResultIterator rows = query->execute(diag);
    while (diag.empty() && rows.getNextResult(diag)) {
      RunCounts& of = counts[instance];
      ++of.runs;
      if (visible == 1 && marked == 0) ++of.visible;
      if (streaming != 0) ++of.streaming;
    }
  });
  return counts;
}

Instance instanceWithoutRow(ObjectManager& manager, long long id) {
  Instance instance;
  instance.id = id;
  instance.isOwn = id == manager.getInstanceID();
  // Runs of an instance whose row is gone: only its process could have made it anew.
  instance.state = keepsRow(id) ? Instance::State::crashed : Instance::State::untracked;
  return instance;
}

/// The closed instances that are not ours to begin with.
std::vector<long long> otherClosedInstances(ObjectManager& manager) {
  std::vector<long long> ids;
  Set::getClosedInstances(manager, ids);
  std::erase(ids, manager.getInstanceID());
  return ids;
}

/// A dead process writes nothing, but children that share an ID end one by one.
kodd::Selection discardableRuns(ObjectManager& manager, long long instanceID) {
  kodd::Selection runs = runsMovingWith(manager, instanceID);
  if (instanceID != ObjectManager::RACCEL_INSTANCE_ID) return runs;
  return where(std::move(runs), strings::IsActivelyStreaming, 0);
}

void removeSignalsOfRemovedRuns(ObjectManager& manager, long long instanceID) {
  const kodd::ClassRef signal = manager.getClass(strings::Signal);
  removeSignals(manager,
                where(ofInstance(manager, strings::Signal, instanceID), strings::FK_SetID, 0,
                      kodd::PropertyValueMatchRelation::NotEqual)
                    .notReferring(signal.findProperty(strings::FK_SetID),
                                  kodd::Selection(manager.getClass(strings::DataSet))),
                std::nullopt);
}

int removeInstance(ObjectManager& manager, long long instanceID) {
  const std::vector<int> runs = selectedIDs(manager, discardableRuns(manager, instanceID));
  const int removed = removeRunsWithAll(manager, runs);
  removeSignalsOfRemovedRuns(manager, instanceID);
  removeInstanceRecords(manager, instanceID);
  return removed;
}

std::uint64_t blobBytes(ObjectManager& manager, const kodd::Selection& selection) {
  return raising(
      [&](auto& diag) { return manager.repository().countBlobBytes(selection, diag); });
}

std::uint64_t blobBytesOfRuns(ObjectManager& manager, const std::vector<int>& ids) {
  if (ids.empty()) return 0;
  const kodd::Selection runs = withIDs(manager, strings::DataSet, ids);
  const kodd::Selection signals = referring(manager, strings::Signal, strings::FK_SetID, runs);
  const kodd::Selection chunks = referring(manager, strings::Chunk, strings::Signal, signals);
  return blobBytes(manager, referring(manager, strings::TimeChunk, strings::Chunk, chunks)) +
         blobBytes(manager, referring(manager, strings::DataChunk, strings::Chunk, chunks)) +
         blobBytes(manager, referring(manager, strings::MetaData, strings::FK_ParentID, runs)) +
         blobBytes(manager,
                   referring(manager, strings::MetaData, strings::FK_ParentID, signals));
}

}  // namespace

std::vector<Set::Instance> Set::getInstances(ObjectManager& manager) {
  std::vector<Instance> instances;
  manager.inReadUnit([&] {
    instances = recordedInstances(manager);
    for (const auto& [id, counts] : runCounts(manager)) {
      auto place = std::ranges::find(instances, id, &Instance::id);
      if (place == instances.end()) {
        place = instances.insert(place, instanceWithoutRow(manager, id));
      }
      place->runs = counts.runs;
      place->visibleRuns = counts.visible;
      place->streamingRuns = counts.streaming;
    }
  });
  return instances;
}

void Set::getClosedInstances(ObjectManager& manager, std::vector<long long>& instanceIDs) {
  manager.closeDeadInstances();
  instanceIDs = instancesWith(manager, strings::IsClosed);
}

void Set::appendFarmWorkerInstances(ObjectManager& manager,
                                    std::vector<long long>& instanceIDs) {
  for (const long long id : instancesWith(manager, strings::IsFarmWorker)) {
    instanceIDs.push_back(id);
  }
}

bool Set::isDataFromClosedInstances(ObjectManager& manager, Application application) {
  return getRunCountFromClosedInstances(manager, application) > 0;
}

int Set::getRunCountFromClosedInstances(ObjectManager& manager, Application application) {
  int runs = 0;
  for (const long long id : otherClosedInstances(manager)) {
    runs += VisibleRuns(manager, application, id).count();
  }
  return runs;
}

int Set::removeClosedInstances(ObjectManager& manager, bool giveSpaceBack) {
  int removed = 0;
  manager.inTransaction([&] {
    for (const long long id : otherClosedInstances(manager)) {
      removed += removeInstance(manager, id);
    }
  });
  if (removed > 0 && giveSpaceBack) giveSomeSpaceBack(manager);
  return removed;
}

bool Set::repositoryIsEmpty(ObjectManager& manager) {
  manager.closeDeadInstances();
  const bool hasRuns = countObjects(manager, strings::DataSet,
                                    {equals(strings::MarkedForDelete, 0),
                                     equals(strings::InstanceID, manager.getInstanceID())}) > 0;
  if (hasRuns || countObjects(manager, strings::QRVTestSuite, {}) > 0 ||
      countObjects(manager, strings::YarrowSignals, {}) > 0) {
    return false;
  }
  return countObjects(manager, strings::InstanceID, {equals(strings::IsClosed, 0)}) < 2;
}

Set::Space Set::getSpace(ObjectManager& manager) {
  Space space;
  manager.inReadUnit([&] {
    const sqldb::FileSpace file =
        raising([&](auto& diag) { return manager.repository().space(diag); });
    space.fileBytes = file.file;
    space.freeBytes = file.free;
    space.logBytes = file.log;
    const std::vector<int> runs = purgeableRuns(manager);
    space.purgeableRuns = static_cast<int>(runs.size());
    space.purgeableBytes = blobBytesOfRuns(manager, runs);
  });
  return space;
}

}  // namespace vela
