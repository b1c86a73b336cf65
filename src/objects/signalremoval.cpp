#include "objects/signalremoval.h"

#include <set>
#include <utility>

#include "objects/find.h"
#include "objects/raising.h"
#include "objects/selections.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "objects/strings.h"

namespace vela {
namespace {

void removeReferring(ObjectManager& manager, const std::string& className,
                     const std::string& property, const kodd::Selection& others) {
  removeSelected(manager, referring(manager, className, property, others));
}

/// What hangs on signals besides their chunks and sources.
void removeAttachments(ObjectManager& manager, const kodd::Selection& signals) {
  removeReferring(manager, strings::MetaData, strings::FK_ParentID, signals);
  removeReferring(manager, strings::SignalObservers, strings::SignalID, signals);
  removeReferring(manager, strings::PlottedComparisonSignal, strings::FK_SignalID, signals);
}

void removeOrphans(ObjectManager& manager, kodd::Selection sources) {
  const kodd::ClassRef signal = manager.getClass(strings::Signal);
  removeSelected(manager,
                 std::move(sources).unreferencedBy(signal.findProperty(strings::SignalSourceID),
                                                   kodd::Selection(signal)));
}

/// Units are shared by all signals of the repository.
void removeUnusedUnits(ObjectManager& manager) {
  const kodd::ClassRef unit = manager.getClass(strings::Unit);
  const kodd::ClassRef signal = manager.getClass(strings::Signal);
  removeSelected(manager,
                 kodd::Selection(unit).unmatchedBy(unit.findProperty(strings::Checksum),
                                                   signal.findProperty(strings::UnitsChecksum),
                                                   kodd::Selection(signal)));
}

std::optional<kodd::Selection> sourcesWithIDs(ObjectManager& manager,
                                              const std::vector<int>& ids) {
  if (ids.empty()) return std::nullopt;
  return withIDs(manager, strings::SignalSource, ids);
}

/// The sources those signals name, each once.
std::vector<int> sourcesOf(ObjectManager& manager, const std::vector<int>& signals) {
  std::set<int> sources;
  for (const int id : signals) {
    bool found = false;
    const auto signal = manager.findObject(id, strings::Signal, found);
    const int source = found ? signal->getPropertyInt32(strings::SignalSourceID) : 0;
    if (source != 0) sources.insert(source);
  }
  return {sources.begin(), sources.end()};
}

const std::string* const kBulkClasses[] = {&strings::Chunk, &strings::TimeChunk,
                                           &strings::DataChunk, &strings::Signal,
                                           &strings::SignalSource};

/// What the open brackets of bulk removal have collected besides the objects to delete.
struct BulkRemoval : PreparedSet {
  explicit BulkRemoval(ObjectManager&) {}

  /// Of signals to be removed; may have other users, and may be left from an undone unit.
  std::vector<int> sources;
};

void addMatching(ObjectManager& manager, const std::string& className,
                 const std::string& property, int value) {
  const kodd::ClassRef cls = manager.getClass(className);
  kodd::MatchConstraints constraints;
  constraints.addConstraintLegacy(cls.findProperty(property),
                                  kodd::PropertyValueMatchRelation::Equal, value);
  std::vector<kodd::ObjectRef> found;
  raising([&](auto& diag) { manager.repository().findObjects(cls, constraints, found, diag); });
  for (kodd::ObjectRef& object : found) {
    if (className == strings::Chunk) {
      addMatching(manager, strings::TimeChunk, strings::Chunk, object.id());
      addMatching(manager, strings::DataChunk, strings::Chunk, object.id());
    }
    manager.addObjectForBulkDeletion(object);
  }
}

}  // namespace

long long removeSignals(ObjectManager& manager, const kodd::Selection& signals,
                        const std::optional<kodd::Selection>& sources) {
  const kodd::Selection chunks = referring(manager, strings::Chunk, strings::Signal, signals);
  removeReferring(manager, strings::TimeChunk, strings::Chunk, chunks);
  removeReferring(manager, strings::DataChunk, strings::Chunk, chunks);
  removeSelected(manager, chunks);
  removeAttachments(manager, signals);
  const long long removed = removeSelected(manager, signals);
  if (removed == 0) return 0;
  if (sources) removeOrphans(manager, *sources);
  removeUnusedUnits(manager);
  return removed;
}

void refuseStreamingSignals(ObjectManager& manager, const std::vector<int>& signals) {
  const std::vector<int> streaming = selectedIDs(
      manager, where(withIDs(manager, strings::Signal, signals), strings::IsActivelyStreaming,
                     0, kodd::PropertyValueMatchRelation::NotEqual));
  if (streaming.empty()) return;
  kodiag::raise({"nexstore:nex", "DeleteStreamingSignal"},
                {{"Operand", "Signal " + std::to_string(streaming.front())}});
}

std::vector<int> signalsBelow(ObjectManager& manager, int signal) {
  std::vector<int> signals = {signal};
  std::set<int> met = {signal};
  // Grows while it is walked.
  for (std::size_t i = 0; i < signals.size(); ++i) {
    for (const int child :
         findIDs(manager, strings::Signal, {equals(strings::FK_Parent, signals[i])})) {
      if (met.insert(child).second) signals.push_back(child);
    }
  }
  return signals;
}

void Signal::remove() {
  manager().inTransaction([&] {
    // Through the handle, which knows when the signal is gone.
    getObjectReference().getPropertyInt32(strings::FK_Parent);
    removeFromMyParent();
    const std::vector<int> signals = signalsBelow(manager(), getID());
    const std::vector<int> sources = sourcesOf(manager(), signals);
    removeSignals(manager(), withIDs(manager(), strings::Signal, signals),
                  sourcesWithIDs(manager(), sources));
  });
}

void Signal::bulkRemove() {
  if (manager().openBulkDeletionBrackets() == 0) {
    remove();
    return;
  }
  BulkRemoval& bracket = manager().prepared<BulkRemoval>();
  manager().inTransaction([&] {
    // Through the handle, which knows when the signal is gone.
    getObjectReference().getPropertyInt32(strings::FK_Parent);
    removeFromMyParent();
    const std::vector<int> signals = signalsBelow(manager(), getID());
    removeAttachments(manager(), withIDs(manager(), strings::Signal, signals));
    const std::vector<int> sources = sourcesOf(manager(), signals);
    bracket.sources.insert(bracket.sources.end(), sources.begin(), sources.end());
    for (const int id : signals) {
      addMatching(manager(), strings::Chunk, strings::Signal, id);
      bool found = false;
      const auto signal = manager().findObject(id, strings::Signal, found);
      kodd::ObjectRef object = signal->getObjRef();
      manager().addObjectForBulkDeletion(object);
    }
  });
}

void Signal::beginBulkRemove(ObjectManager& manager) {
  if (manager.openBulkDeletionBracket() > 0) return;
  for (const std::string* name : kBulkClasses) {
    manager.beginBulkObjectDeletion(manager.getClass(*name));
  }
}

void Signal::commitBulkRemove(ObjectManager& manager) {
  if (manager.openBulkDeletionBrackets() == 0 || manager.closeBulkDeletionBracket() > 0) return;
  const std::vector<int> sources = std::exchange(manager.prepared<BulkRemoval>().sources, {});
  manager.inTransaction([&] {
    for (const std::string* name : kBulkClasses) {
      manager.commitBulkObjectDeletion(manager.getClass(*name));
    }
    // Only now is it known which sources nobody names any more.
    const auto candidates = sourcesWithIDs(manager, sources);
    if (candidates) removeOrphans(manager, *candidates);
    removeUnusedUnits(manager);
  });
}

}  // namespace vela
