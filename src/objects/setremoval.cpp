// Removal of runs with everything that belongs to them, by a fixed number of statements
// whatever the number of signals and chunks.
#include "objectmanager/objectmanager.h"
#include "objects/raising.h"
#include "objects/set.h"
#include "objects/strings.h"

namespace vela {
namespace {

class RunRemoval {
 public:
  RunRemoval(ObjectManager& manager, const std::vector<int>& runIDs)
      : manager_(manager), runIDs_(runIDs), runs_(manager.getClass(strings::DataSet)) {
    for (const int id : runIDs) runs_ = std::move(runs_).withId(id);
  }

  /// \returns how many runs there were
  int perform() {
    const std::vector<int> harnesses = testHarnesses();
    removeReferring(strings::ActiveSimulation, strings::SetID, runs_);
    removeReferring(strings::RunNumberByRunID, strings::FK_SetID, runs_);
    removeIDs(strings::TestHarnessData, harnesses);
    removeReferring(strings::MetaData, strings::FK_ParentID, runs_);
    removeReferring(strings::OutputMetaData, strings::DataSet, runs_);
    removeReferring(strings::InputMetaData, strings::DataSet, runs_);
    removeSignals();
    return static_cast<int>(remove(runs_));
  }

 private:
  kodd::Selection referring(const std::string& className, const std::string& property,
                            const kodd::Selection& others) const {
    const kodd::ClassRef cls = manager_.getClass(className);
    return kodd::Selection(cls).referring(cls.findProperty(property), others);
  }

  long long remove(const kodd::Selection& selection) {
    const auto deleter = manager_.createObjectDeleter(selection.cls());
    return raising([&](kodiag::util::diagnostics& diag) {
      return deleter->deleteSelected(selection, diag);
    });
  }

  void removeReferring(const std::string& className, const std::string& property,
                       const kodd::Selection& others) {
    remove(referring(className, property, others));
  }

  void removeIDs(const std::string& className, const std::vector<int>& ids) {
    if (ids.empty()) return;
    const auto deleter = manager_.createObjectDeleter(manager_.getClass(className));
    raising([&](kodiag::util::diagnostics& diag) { deleter->deleteObjectIDs(ids, diag); });
  }

  std::vector<int> testHarnesses() const {
    const kodd::ClassRef cls = manager_.getClass(strings::OutputMetaData);
    int run = 0;
    kodd::ObjectRef data;
    kodd::ObjectRef unit;
    const auto query = manager_.createObjectQuery();
    query->addConstraint(cls.findProperty(strings::DataSet),
                         kodd::PropertyValueMatchRelation::Equal, &run);
    query->addResultProperty(cls.findProperty(strings::TestHarnessDataID), &data);
    query->addResultProperty(cls.findProperty(strings::TestUnitDataID), &unit);

    std::vector<int> ids;
    for (const int id : runIDs_) {
      run = id;
      raising([&](kodiag::util::diagnostics& diag) {
        kodd::ResultIterator rows = query->execute(diag);
        while (diag.empty() && rows.getNextResult(diag)) {
          for (const kodd::ObjectRef& harness : {data, unit}) {
            if (harness.id() != 0) ids.push_back(harness.id());
          }
        }
      });
    }
    return ids;
  }

  void removeSignals() {
    const kodd::Selection signals = referring(strings::Signal, strings::FK_SetID, runs_);
    const kodd::Selection chunks = referring(strings::Chunk, strings::Signal, signals);
    removeReferring(strings::TimeChunk, strings::Chunk, chunks);
    removeReferring(strings::DataChunk, strings::Chunk, chunks);
    remove(chunks);
    removeReferring(strings::MetaData, strings::FK_ParentID, signals);
    removeReferring(strings::SignalObservers, strings::SignalID, signals);
    removeReferring(strings::PlottedComparisonSignal, strings::FK_SignalID, signals);
    const bool hadSignals = remove(signals) > 0;
    if (hadSignals) removeOrphanSources();
  }

  /// Sources are shared; those that no signal names any more go.
  void removeOrphanSources() {
    const kodd::ClassRef signal = manager_.getClass(strings::Signal);
    remove(kodd::Selection(manager_.getClass(strings::SignalSource))
               .unreferencedBy(signal.findProperty(strings::SignalSourceID),
                               kodd::Selection(signal)));
  }

  ObjectManager& manager_;
  const std::vector<int>& runIDs_;
  kodd::Selection runs_;
};

}  // namespace

void Set::remove() {
  if (removeRuns(manager(), {getID()}) > 0) return;
  kodiag::raise({"KODD:kodd", "NoSuchObject"},
                {{"ObjectID", std::to_string(getID())}, {"ClassName", strings::DataSet}});
}

int Set::removeRuns(ObjectManager& manager, const std::vector<int>& runIDs) {
  if (runIDs.empty()) return 0;
  int removed = 0;
  manager.inTransaction([&] { removed = RunRemoval(manager, runIDs).perform(); });
  return removed;
}

}  // namespace vela
