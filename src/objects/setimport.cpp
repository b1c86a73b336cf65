// Runs that change hands: from closed instances and farm workers, and from rapid-accelerator
// children, to this instance.
#include <algorithm>
#include <optional>
#include <unordered_map>
#include <utility>

#include "objectmanager/objectmanager.h"
#include "objects/find.h"
#include "objects/instancetable.h"
#include "objects/raising.h"
#include "objects/runnumbering.h"
#include "objects/selections.h"
#include "objects/set.h"
#include "objects/strings.h"

namespace vela {
namespace {

/// Runs of the same kind of source change hands in one unit of work.
class Import {
 public:
  enum class From { otherSessions, rapidAccelerator };

  Import(ObjectManager& manager, From from)
      : manager_(manager),
        from_(from),
        own_(manager.getInstanceID()),
        dataSet_(manager.getClass(strings::DataSet)),
        runWriter_(dataSet_, manager.repository()),
        number_(manager.getClass(strings::RunNumberByRunID)),
        numberWriter_(number_, manager.repository()) {
    bindRun();
    numberWriter_.setPropertyValueSource(number_.findProperty(strings::RunNumber), &next_);
    numberWriter_.setPropertyValueSource(number_.findProperty(strings::InstanceID), &own_);
  }
  Import(const Import&) = delete;
  Import& operator=(const Import&) = delete;

  std::vector<int> perform() {
    for (const long long source : sources()) takeOver(source);
    if (numbering_) numbering_->store();
    return std::move(imported_);
  }

 private:
  void bindRun() {
    runWriter_.setPropertyValueSource(dataSet_.findProperty(strings::InstanceID), &own_);
    runWriter_.setPropertyValueSource(dataSet_.findProperty(strings::OrderIndex), &place_);
    if (from_ == From::rapidAccelerator) return;
    // What the process that is gone was doing with the run.
    for (const std::string* flag :
         {&strings::IsActivelyStreaming, &strings::PriorOverwrittenRun}) {
      runWriter_.setPropertyValueSource(dataSet_.findProperty(*flag), &no_);
    }
  }

  /// Each once, without ourselves.
  std::vector<long long> sources() {
    std::vector<long long> candidates;
    if (from_ == From::rapidAccelerator) {
      candidates.push_back(ObjectManager::RACCEL_INSTANCE_ID);
    } else {
      Set::getClosedInstances(manager_, candidates);
      Set::appendFarmWorkerInstances(manager_, candidates);
    }
    std::vector<long long> found;
    for (const long long id : candidates) {
      if (id != own_ && std::ranges::find(found, id) == found.end()) found.push_back(id);
    }
    return found;
  }

  void takeOver(long long source) {
    writeToSelected(manager_, ofInstance(manager_, strings::Signal, source),
                    strings::InstanceID, own_);
    // Children have no row of their own, and end one by one.
    const bool mayBeWriting =
        source == ObjectManager::RACCEL_INSTANCE_ID || isInstanceOpen(manager_, source);
    const std::vector<int> runs = runsToTake(source, mayBeWriting);
    if (!runs.empty()) {
      const Records records = numberRecords(source);
      for (const int run : runs) renumber(run, records);
      if (!mayBeWriting) endWork(withIDs(manager_, strings::DataSet, runs));
    }
    removeInstanceRecords(manager_, source);
  }

  std::vector<int> runsToTake(long long source, bool onlyFinished) {
    kodd::Selection runs = runsMovingWith(manager_, source);
    if (onlyFinished) runs = where(std::move(runs), strings::IsActivelyStreaming, 0);
    return selectedIDs(manager_, runs, strings::OrderIndex);
  }

  /// Record of the number by run.
  using Records = std::unordered_map<int, int>;

  Records numberRecords(long long source) {
    int record = 0;
    int run = 0;
    const auto query = manager_.createObjectQuery();
    query->addConstraint(number_.findProperty(strings::InstanceID),
                         kodd::PropertyValueMatchRelation::Equal, &source);
    query->addResultID(number_, &record);
    query->addResultProperty(number_.findProperty(strings::FK_SetID), &run);
    Records records;
    raising([&](kodiag::util::diagnostics& diag) {
      kodd::ResultIterator rows = query->execute(diag);
      while (diag.empty() && rows.getNextResult(diag)) records.emplace(run, record);
    });
    return records;
  }

  void renumber(int run, const Records& records) {
    if (!numbering_) {
      manager_.ensureInstanceRecords();
      numbering_.emplace(manager_);
    }
    next_ = numbering_->nextNumber();
    place_ = numbering_->nextPlace();
    const auto known = records.find(run);
    const int record = known != records.end() ? known->second
                                              : findFirstID(manager_, strings::RunNumberByRunID,
                                                            {equals(strings::FK_SetID, run)});
    if (record == 0) {
      createRunNumber(manager_, run, next_);
    } else {
      raising([&](auto& diag) { numberWriter_.modifyObjectID(record, diag); });
    }
    raising([&](auto& diag) { runWriter_.modifyObjectID(run, diag); });
    imported_.push_back(run);
  }

  /// Nobody simulates, pauses or streams these runs any more.
  void endWork(const kodd::Selection& runs) {
    for (const std::string* work : {&strings::ActiveSimulation, &strings::PausedModel}) {
      removeSelected(manager_, referring(manager_, *work, strings::SetID, runs));
    }
    writeToSelected(
        manager_,
        where(referring(manager_, strings::Signal, strings::FK_SetID, runs),
              strings::IsActivelyStreaming, 0, kodd::PropertyValueMatchRelation::NotEqual),
        strings::IsActivelyStreaming, no_);
  }

  ObjectManager& manager_;
  const From from_;
  const long long own_;
  const kodd::ClassRef dataSet_;
  const int no_ = 0;
  int place_ = 0;
  kodd::ObjectModifier runWriter_;
  const kodd::ClassRef number_;
  int next_ = 0;
  kodd::ObjectModifier numberWriter_;
  std::optional<RunNumbering> numbering_;  ///< made with the first run, since it makes records
  std::vector<int> imported_;
};

std::vector<int> import(ObjectManager& manager, Import::From from) {
  std::vector<int> runs;
  manager.inTransaction([&] { runs = Import(manager, from).perform(); });
  return runs;
}

}  // namespace

std::vector<int> Set::importClosedInstances(ObjectManager& manager) {
  return import(manager, Import::From::otherSessions);
}

void Set::importCompletedRapidAccelRuns(ObjectManager& manager, std::vector<int>& runIDs) {
  runIDs = import(manager, Import::From::rapidAccelerator);
}

}  // namespace vela
