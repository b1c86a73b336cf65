// Comparisons of signals, and what they are compared by.
#include "objects/strings.h"
#include "scripting/families.h"
#include "scripting/method.h"
#include "scripting/signalinputs.h"

namespace vela::scripting {
namespace {

Int32<"signalID"> findCopiedCompareSignal(Reading, SignalByID signal) {
  const auto copy = signal->findCopiedSignal();
  return {copy ? copy->getID() : 0};
}

// Not a reading one: the search keeps what it found out about the run's signals.
Int32<"signalID"> findAlignedSignalFromRun(Repository, SignalByID signal, Run run) {
  const auto match = signal->findMatchingSignal(*run);
  return {match ? match->getID() : 0};
}

using Comparison = std::tuple<Int32<"comparisonID">, Int32s<"signalIDs">>;

Comparison addSignalComparison(Repository, Run run, Flag<"isWithinTol"> isWithinTol,
                               Wide<"alignedBy"> alignedBy, SignalNamed<"baseline"> baseline,
                               SignalNamed<"compareTo"> compareTo,
                               SignalOrNone<"difference"> difference,
                               SignalOrNone<"tolerance"> tolerance) {
  auto [id, signals] = run->addComparisonSignal(isWithinTol, alignedBy, *baseline, *compareTo,
                                                difference.get(), tolerance.get());
  return {{id}, {toHostArray(std::move(signals))}};
}

void updateSignalComparison(Repository, SignalNamed<"comparisonID"> comparison,
                            SignalOrNone<"difference"> difference,
                            SignalOrNone<"tolerance"> tolerance,
                            Flag<"isWithinTol"> isWithinTol) {
  comparison->updateComparisonSignal(isWithinTol, difference.get(), tolerance.get());
}

void setSyncMethod(Signal& signal, const host::HostArray& method) {
  signal.setTimeAlignmentMethod(methodIn(method, strings::Union));
}

void setInterpMethod(Signal& signal, const host::HostArray& method) {
  signal.setInterpMethod(methodIn(method, strings::ZOH));
}

struct VelaRepositoryFindCopiedCompareSignal
    : Method<"findCopiedCompareSignal",
             "ID of the newest visible signal copied from a signal; 0 when there is none.",
             &findCopiedCompareSignal> {};
struct VelaRepositoryFindAlignedSignalFromRun
    : Method<"findAlignedSignalFromRun",
             "ID of a run's signal of the same identifier, name, block path and port as a "
             "signal; 0 when there is none.",
             &findAlignedSignalFromRun> {};
struct VelaRepositoryAddSignalComparison
    : Method<"addSignalComparison",
             "Add a comparison to a run; returns its ID and those of copies of the two signals "
             "and of the difference and the tolerance signal. An empty array as difference or "
             "tolerance stands for 0 throughout.",
             &addSignalComparison> {};
struct VelaRepositoryUpdateSignalComparison
    : Method<
          "updateSignalComparison",
          "Replace the difference and the tolerance signal of a comparison, and its verdict.",
          &updateSignalComparison, "nexstore:nex:InvalidData"> {};
struct VelaRepositoryGetIsWithinTol
    : SignalGetter<"getIsWithinTol", &Signal::getIsWithinTol, Flag<"flag">,
                   "Whether the compared signals were within their tolerance."> {};
struct VelaRepositoryGetSignalAbsTol
    : SignalGetter<"getSignalAbsTol", &Signal::getAbsTol, Real<"tolerance">,
                   "Absolute tolerance of a signal."> {};
struct VelaRepositorySetSignalAbsTol
    : SignalSetter<"setSignalAbsTol", &Signal::setAbsTol, Real<"tolerance">,
                   "Set the absolute tolerance of a signal."> {};
struct VelaRepositoryGetSignalRelTol
    : SignalGetter<"getSignalRelTol", &Signal::getRelTol, Real<"tolerance">,
                   "Relative tolerance of a signal."> {};
struct VelaRepositorySetSignalRelTol
    : SignalSetter<"setSignalRelTol", &Signal::setRelTol, Real<"tolerance">,
                   "Set the relative tolerance of a signal."> {};
struct VelaRepositoryGetSignalAlignedBy
    : SignalGetter<"getSignalAlignedBy", &Signal::getAlignedBy, Wide<"text">,
                   "How the signals of a comparison were paired."> {};
struct VelaRepositoryGetSignalSyncMethod
    : SignalGetter<"getSignalSyncMethod", &Signal::getTimeAlignmentMethod, Any<"method">,
                   "How a signal's times are aligned with another's."> {};
struct VelaRepositorySetSignalSyncMethod
    : SignalSetter<"setSignalSyncMethod", &setSyncMethod, Any<"method">,
                   "Set how a signal's times are aligned; \"union\" unless it is a text."> {};
struct VelaRepositoryGetSignalInterpMethod
    : SignalGetter<"getSignalInterpMethod", &Signal::getInterpMethod, Any<"method">,
                   "How to read a signal between two samples."> {};
struct VelaRepositorySetSignalInterpMethod
    : SignalSetter<"setSignalInterpMethod", &setInterpMethod, Any<"method">,
                   "Set how to read a signal between samples; \"zoh\" unless it is a text."> {};

}  // namespace

void addSignalComparisonMethods(Methods& methods) {
  methods.add<VelaRepositoryFindCopiedCompareSignal, VelaRepositoryFindAlignedSignalFromRun,
              VelaRepositoryAddSignalComparison, VelaRepositoryUpdateSignalComparison,
              VelaRepositoryGetIsWithinTol, VelaRepositoryGetSignalAbsTol,
              VelaRepositorySetSignalAbsTol, VelaRepositoryGetSignalRelTol,
              VelaRepositorySetSignalRelTol, VelaRepositoryGetSignalAlignedBy,
              VelaRepositoryGetSignalSyncMethod, VelaRepositorySetSignalSyncMethod,
              VelaRepositoryGetSignalInterpMethod, VelaRepositorySetSignalInterpMethod>();
}

}  // namespace vela::scripting
