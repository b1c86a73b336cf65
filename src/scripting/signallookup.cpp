// Finding signals, and the state they are in.
#include <algorithm>

#include "objects/find.h"
#include "objects/strings.h"
#include "scripting/applications.h"
#include "scripting/errors.h"
#include "scripting/families.h"
#include "scripting/method.h"
#include "scripting/streams.h"

namespace vela::scripting {
namespace {

using host::HostArray;

ObjectManager::Constraint ofThisInstance(ObjectManager& manager) {
  return equals(strings::InstanceID, manager.getInstanceID());
}

HostArray idsOf(const boost::ptr_vector<ObjectRef>& signals) {
  std::vector<int> ids;
  for (const ObjectRef& signal : signals) ids.push_back(signal.getObjectID());
  return toHostArray(std::move(ids));
}

Int32<"signalID"> getSignalIDByDataSource(Reading repository, Wide<"dataSource"> dataSource) {
  return {findFirstID(
      repository.manager, strings::Signal,
      {ofThisInstance(repository.manager), equals(strings::DataSource, dataSource.value)})};
}

Int32<"signalID"> getSignalIDByIndex(Reading, Run run, Int32<"index"> index) {
  return {index < 1 ? 0 : run->getSignalByIndex(index - 1)};
}

Any<"signalIDs"> getAllCheckedSignals(Reading repository, ApplicationText application) {
  boost::ptr_vector<ObjectRef> checked;
  Signal::getAllCheckedSignals(repository.manager, checked);
  if (!application) return {idsOf(checked)};
  const std::vector<int> runs = runsOfInstance(
      repository.manager, applicationOf(application, Set::Application::AllApplications));
  checked.erase_if([&](const ObjectRef& signal) {
    return !std::ranges::binary_search(runs, signal.getPropertyInt32(strings::FK_SetID));
  });
  return {idsOf(checked)};
}

Any<"signalIDs"> getLeavesForInstrumentedSignal(Reading repository, Run run,
                                                Int64<"uuid"> uuid) {
  boost::ptr_vector<ObjectRef> leaves;
  Signal::getLeavesForInstrumentedSignal(repository.manager, run->getID(), uuid.value, leaves);
  return {idsOf(leaves)};
}

int runIDOf(const Signal& signal) {
  return signal.getParentSetID();
}

Any<"valid"> isValidSignal(Reading repository, IDNamed<"signalID"> id) {
  boost::shared_ptr<Signal> signal;
  return {HostArray::scalar(Signal::lookupSignal(id.id, signal, repository.manager))};
}

Flag<"empty"> signalIsEmpty(Reading, SignalByID signal) {
  return {std::ranges::all_of(streamsOf(signal.signal).leaves,
                              [](const auto& leaf) { return leaf->getExtent().samples == 0; })};
}

Any<"flag"> isSignalCountZero(Reading repository) {
  return {HostArray::scalar(findFirstID(repository.manager, strings::Signal,
                                        {ofThisInstance(repository.manager)}) == 0)};
}

/// A text, or a cell of texts.
std::vector<std::wstring> blockPathIn(const HostArray& path) {
  const auto isText = [](const HostArray& element) { return element.isText(); };
  if (path.isText()) return {path.toWide()};
  if (!path.isCell() || !std::ranges::all_of(path.cells(), isText)) {
    throwScriptingError(
        {"nexstore:nex", "InvalidData"},
        {{"Operation", "isSignalStreamed"},
         {"Reason", "a block path is a text or a list of texts, not " + path.describe()}});
  }
  std::vector<std::wstring> elements;
  for (const HostArray& element : path.cells()) elements.push_back(element.toWide());
  return elements;
}

Flag<"flag"> isSignalStreamed(Reading repository, RunByNumber run, Any<"path"> path,
                              Int32<"portIndex"> portIndex) {
  const auto signal =
      Signal::getSignalFromPath(repository.manager, run->getID(), blockPathIn(path), portIndex);
  return {signal && signal->getSourceType() == Signal::Visualized};
}

void clearMinMaxFlag(Signal& signal) {
  ObjectRef& object = signal.getObjectReference();
  object.getObjectManager().inTransaction([&] {
    object.setPropertyInt32(strings::MinMaxDirectReadOkay, 0);
    signal.dirtyMinMaxDirectReadOkayFlagForAllChildrenInHierarchy();
  });
}

struct VelaRepositoryGetSignalIDByDataSource
    : Method<"getSignalIDByDataSource",
             "ID of this instance's first signal whose values come from there; 0 when there is "
             "none.",
             &getSignalIDByDataSource> {};
struct VelaRepositoryGetSignalIDByIndex
    : Method<"getSignalIDByIndex",
             "ID of one of a run's signals that have none below them, by its place from 1; 0 "
             "beyond the last.",
             &getSignalIDByIndex> {};
struct VelaRepositoryGetAllCheckedSignals
    : Method<
          "getAllCheckedSignals",
          "IDs of this instance's signals that are on some plot, of one application if named.",
          &getAllCheckedSignals> {};
struct VelaRepositoryGetLeavesForInstrumentedSignal
    : Method<"getLeavesForInstrumentedSignal",
             "IDs of a run's signals that were made for an instrumented signal.",
             &getLeavesForInstrumentedSignal> {};
struct VelaRepositoryGetSignalRunID
    : SignalGetter<"getSignalRunID", &runIDOf, Int32<"runID">,
                   "ID of the run a signal belongs to; 0 when there is none."> {};
struct VelaRepositoryIsValidSignal
    : Method<"isValidSignal", "Whether an ID names a signal.", &isValidSignal> {};
struct VelaRepositorySignalIsEmpty
    : Method<"signalIsEmpty", "Whether a signal has no samples.", &signalIsEmpty> {};
struct VelaRepositoryIsEnum
    : SignalGetter<"isEnum", &Signal::isEnum, Any<"flag">,
                   "Whether a signal's samples are members of an enumeration."> {};
struct VelaRepositoryIsSignalCountZero
    : Method<"isSignalCountZero", "Whether this instance has no signals.", &isSignalCountZero> {
};
struct VelaRepositoryIsSignalStreamed
    : Method<"isSignalStreamed",
             "Whether a run has a signal of that block path and port that was streamed.",
             &isSignalStreamed, "nexstore:nex:InvalidData"> {};
struct VelaRepositoryGetSignalIsActivelyStreaming
    : SignalGetter<"getSignalIsActivelyStreaming", &Signal::getIsActivelyStreaming,
                   Flag<"flag">, "Whether a signal is being written by a simulation."> {};
struct VelaRepositoryClearMinMaxDirectReadOkayFlag
    : SignalAction<"clearMinMaxDirectReadOkayFlag", &clearMinMaxFlag,
                   "Have a signal's minimum and maximum, and those of the signals below it, "
                   "worked out anew."> {};

}  // namespace

void addSignalLookupMethods(Methods& methods) {
  methods
      .add<VelaRepositoryGetSignalIDByDataSource, VelaRepositoryGetSignalIDByIndex,
           VelaRepositoryGetAllCheckedSignals, VelaRepositoryGetLeavesForInstrumentedSignal,
           VelaRepositoryGetSignalRunID, VelaRepositoryIsValidSignal,
           VelaRepositorySignalIsEmpty, VelaRepositoryIsEnum, VelaRepositoryIsSignalCountZero,
           VelaRepositoryIsSignalStreamed, VelaRepositoryGetSignalIsActivelyStreaming,
           VelaRepositoryClearMinMaxDirectReadOkayFlag>();
}

}  // namespace vela::scripting
