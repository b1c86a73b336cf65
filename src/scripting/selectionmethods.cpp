// Lists of mixed run and signal IDs.
#include <set>

#include "objects/strings.h"
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

using host::HostArray;

std::set<int> distinct(const HostArray& ids) {
  const std::span<const int> values = ids.values<int>();
  return {values.begin(), values.end()};
}

HostArray listOf(const std::set<int>& ids) {
  return HostArray::list(std::vector<int>(ids.begin(), ids.end()));
}

using UniqueIDs = std::tuple<Int32s<"runIDs">, Int32s<"signalIDs">, Any<"signals">>;

UniqueIDs getUniqueRunAndSignalIDs(Reading repository, Int32s<"runIDs"> runIDs,
                                   Int32s<"signalIDs"> signalIDs) {
  std::set<int> runs;
  for (const int id : distinct(runIDs)) {
    boost::shared_ptr<Set> run;
    if (Set::lookupSet(id, run, repository.manager)) runs.insert(id);
  }
  std::set<int> signals;
  std::vector<HostArray> records;
  for (const int id : distinct(signalIDs)) {
    boost::shared_ptr<Signal> signal;
    if (!Signal::lookupSignal(id, signal, repository.manager)) continue;
    signals.insert(id);
    records.push_back(HostArray::scalar(id));
    records.push_back(HostArray::scalar(signal->getParentSetID()));
  }
  HostArray array = HostArray::structureArray({signals.size(), 1}, {"signalID", "parentRunID"},
                                              std::move(records));
  return {{listOf(runs)}, {listOf(signals)}, {std::move(array).withRank(1)}};
}

Int32s<"signalIDs"> getCheckedSignalsFromDbIDs(Reading repository, Int32s<"ids"> ids) {
  std::set<int> checked;
  for (const int id : distinct(ids)) {
    boost::shared_ptr<Set> run;
    boost::shared_ptr<Signal> signal;
    if (Set::lookupSet(id, run, repository.manager)) {
      const std::vector<int> ofRun = run->getSignalIDs(Set::SignalQueryType::checked);
      checked.insert(ofRun.begin(), ofRun.end());
    } else if (Signal::lookupSignal(id, signal, repository.manager) &&
               signal->getObjectReference().getPropertyInt32(strings::Checked) != 0) {
      checked.insert(id);
    }
  }
  return {listOf(checked)};
}

struct VelaRepositoryGetUniqueRunAndSignalIDs
    : Method<"getUniqueRunAndSignalIDs",
             "The IDs that name runs and those that name signals, each once and ascending, and "
             "a record with the run of each signal.",
             &getUniqueRunAndSignalIDs> {};
struct VelaRepositoryGetCheckedSignalsFromDbIDs
    : Method<"getCheckedSignalsFromDbIDs",
             "IDs of the signals that are in some plot, of those named and those of the runs "
             "named, each once and ascending.",
             &getCheckedSignalsFromDbIDs> {};

}  // namespace

void addSelectionMethods(Methods& methods) {
  methods
      .add<VelaRepositoryGetUniqueRunAndSignalIDs, VelaRepositoryGetCheckedSignalsFromDbIDs>();
}

}  // namespace vela::scripting
