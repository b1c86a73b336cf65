#include "objects/signalcopy.h"

#include <algorithm>
#include <utility>

#include "objects/raising.h"
#include "objects/selections.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "objects/signalkey.h"
#include "objects/signalremoval.h"
#include "objects/strings.h"

namespace vela {
namespace {

void add(kodd::ObjectCopier& copier, const kodd::Selection& selection) {
  raising([&](auto& diag) { copier.add(selection, diag); });
}

void give(ObjectManager& manager, kodd::ObjectCopier& copier, const std::string& property,
          const kodd::EntryValue& value) {
  raising([&](auto& diag) {
    copier.give(manager.getPropertyRef(strings::Signal, property), value, diag);
  });
}

int placeOf(kodd::ObjectCopier& copier, int original) {
  return raising([&](auto& diag) { return copier.placeOf(original, diag); });
}

/// A leaf whose composite root stays behind would read, and die with, another run's samples.
void giveOwnSamples(ObjectManager& manager, kodd::ObjectCopier& copier,
                    const std::vector<int>& originals) {
  for (const int id : originals) {
    const auto original = Signal::getSignalFromID(manager, id);
    const int root = original->getHierarchicalSignalRootID();
    if (root == 0 || std::ranges::find(originals, root) != originals.end()) continue;
    boost::shared_ptr<Signal> copy(
        Signal::getSignalFromID(manager, placeOf(copier, id)).release());
    original->copyChunksTo(copy);
  }
}

}  // namespace

void addSignalsToCopy(ObjectManager& manager, kodd::ObjectCopier& copier,
                      const kodd::Selection& signals) {
  const kodd::Selection chunks = referring(manager, strings::Chunk, strings::Signal, signals);
  add(copier, signals);
  add(copier, chunks);
  add(copier, referring(manager, strings::TimeChunk, strings::Chunk, chunks));
  add(copier, referring(manager, strings::DataChunk, strings::Chunk, chunks));
  add(copier, referring(manager, strings::MetaData, strings::FK_ParentID, signals));
  add(copier, referencedBy(manager, strings::SignalSource, strings::SignalSourceID, signals));
  give(manager, copier, strings::InstanceID, manager.getInstanceID());
  for (const std::string* property : {&strings::IsActivelyStreaming, &strings::SIDHash,
                                      &strings::NameHash, &strings::BlockPathHash}) {
    give(manager, copier, *property, 0);
  }
}

std::unique_ptr<Signal> Signal::clone(const Set& run) const {
  requireSameRepository(run, "Copying signal " + std::to_string(getID()) + " into a run");
  std::unique_ptr<Signal> copy;
  manager().inTransaction([&] {
    // Through the handle, which knows when the signal is gone.
    const int parent = getObjectReference().getPropertyInt32(strings::FK_Parent);
    const std::vector<int> originals = signalsBelow(manager(), getID());
    kodd::ObjectCopier copier(manager().repository());
    if (parent != 0) raising([&](auto& diag) { copier.substitute(parent, 0, diag); });
    addSignalsToCopy(manager(), copier, withIDs(manager(), strings::Signal, originals));
    give(manager(), copier, strings::FK_SetID, run.liveID());
    raising([&](auto& diag) { copier.copy(diag); });
    forgetHashes(manager(), run.getID());
    giveOwnSamples(manager(), copier, originals);
    copy = getSignalFromID(manager(), placeOf(copier, getID()));
  });
  return copy;
}

}  // namespace vela
