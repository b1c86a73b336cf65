// Removal of runs with everything that belongs to them, by a few statements for each run and a
// fixed number besides, whatever the number of signals and chunks.
#include <set>

#include "objectmanager/objectmanager.h"
#include "objects/raising.h"
#include "objects/set.h"
#include "objects/signalremoval.h"
#include "objects/strings.h"

namespace vela {
namespace {

/// Bounds the time a removal spends on making the file smaller: 32 MiB of it at most.
constexpr int kPagesGivenBack = 2000;

class RunRemoval {
 public:
  RunRemoval(ObjectManager& manager, const std::vector<int>& runIDs)
      : manager_(manager), runIDs_(runIDs), runs_(withIDs(strings::DataSet, runIDs)) {}

  /// \returns how many runs there were
  int perform() {
    const std::set<int> harnesses = testHarnesses();
    removeReferring(strings::ActiveSimulation, strings::SetID);
    removeReferring(strings::RunNumberByRunID, strings::FK_SetID);
    if (!harnesses.empty()) remove(withIDs(strings::TestHarnessData, harnesses));
    removeReferring(strings::MetaData, strings::FK_ParentID);
    removeReferring(strings::OutputMetaData, strings::DataSet);
    removeReferring(strings::InputMetaData, strings::DataSet);
    removeSignalsOfRuns();
    return static_cast<int>(remove(runs_));
  }

 private:
  /// Not for an empty list: a selection without IDs is the whole class.
  template <class IDs>
  kodd::Selection withIDs(const std::string& className, const IDs& ids) const {
    kodd::Selection selection(manager_.getClass(className));
    for (const int id : ids) selection = std::move(selection).withId(id);
    return selection;
  }

  kodd::Selection ofRuns(const std::string& className, const std::string& property) const {
    const kodd::ClassRef cls = manager_.getClass(className);
    return kodd::Selection(cls).referring(cls.findProperty(property), runs_);
  }

  long long remove(const kodd::Selection& selection) {
    const auto deleter = manager_.createObjectDeleter(selection.cls());
    return raising([&](auto& diag) { return deleter->deleteSelected(selection, diag); });
  }

  void removeReferring(const std::string& className, const std::string& property) {
    remove(ofRuns(className, property));
  }

  std::set<int> testHarnesses() const {
    std::set<int> ids = namedByObjectsOfRuns(strings::OutputMetaData, strings::DataSet,
                                             strings::TestHarnessDataID);
    ids.merge(namedByObjectsOfRuns(strings::OutputMetaData, strings::DataSet,
                                   strings::TestUnitDataID));
    return ids;
  }

  /// Sources are shared: only those of the runs that no other signal names go with them.
  void removeSignalsOfRuns() {
    const std::set<int> sources =
        namedByObjectsOfRuns(strings::Signal, strings::FK_SetID, strings::SignalSourceID);
    std::optional<kodd::Selection> candidates;
    if (!sources.empty()) candidates = withIDs(strings::SignalSource, sources);
    removeSignals(manager_, ofRuns(strings::Signal, strings::FK_SetID), candidates);
  }

  /// The objects that `property` names in objects of the class whose `owner` is one of the
  /// runs.
  std::set<int> namedByObjectsOfRuns(const std::string& className, const std::string& owner,
                                     const std::string& property) const {
    const kodd::ClassRef cls = manager_.getClass(className);
    int run = 0;
    kodd::ObjectRef named;
    const auto query = manager_.createObjectQuery();
    query->addConstraint(cls.findProperty(owner), kodd::PropertyValueMatchRelation::Equal,
                         &run);
    query->addResultProperty(cls.findProperty(property), &named);
    std::set<int> ids;
    for (const int id : runIDs_) {
      run = id;
      raising([&](kodiag::util::diagnostics& diag) {
        kodd::ResultIterator rows = query->execute(diag);
        while (diag.empty() && rows.getNextResult(diag)) ids.insert(named.id());
      });
    }
    ids.erase(0);
    return ids;
  }

  ObjectManager& manager_;
  const std::vector<int>& runIDs_;
  const kodd::Selection runs_;
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
  // The runs are gone whether or not the file shrinks now.
  kodiag::util::diagnostics discarded;
  manager.repository().releaseFreePages(kPagesGivenBack, discarded);
  return removed;
}

}  // namespace vela
