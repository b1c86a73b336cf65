// One signal's samples merged into another's.
#include <algorithm>
#include <cfloat>
#include <map>
#include <tuple>
#include <utility>
#include <vector>

#include "kodiag/message.h"
#include "objects/find.h"
#include "objects/samplewriter.h"
#include "objects/signal.h"
#include "objects/signalremoval.h"
#include "objects/strings.h"

namespace vela {
namespace {

using SignalPtr = boost::shared_ptr<Signal>;

struct Samples {
  std::vector<double> times;
  std::vector<char> values;
  std::vector<unsigned> epochs;

  Samples() = default;
  Samples(const Signal& signal, double from) {
    signal.readRange(from, DBL_MAX, times, values, &epochs);
  }
  std::size_t recordBytes() const { return times.empty() ? 0 : values.size() / times.size(); }

  void append(const Samples& from, std::size_t index, std::size_t bytes) {
    times.push_back(from.times[index]);
    const char* first = from.values.data() + index * bytes;
    values.insert(values.end(), first, first + bytes);
    if (!from.epochs.empty()) epochs.push_back(from.epochs[index]);
  }
};

/// Both in time order, at equal times those of `first` first.
Samples merged(const Samples& first, const Samples& second, std::size_t bytes) {
  Samples result;
  std::size_t i = 0, j = 0;
  while (i < first.times.size() || j < second.times.size()) {
    const bool takeFirst = j == second.times.size() ||
                           (i < first.times.size() && first.times[i] <= second.times[j]);
    if (takeFirst)
      result.append(first, i++, bytes);
    else
      result.append(second, j++, bytes);
  }
  if (result.epochs.size() != result.times.size()) result.epochs.clear();
  return result;
}

/// What tells a signal from its siblings. The names of elements and parts derive from that of
/// the signal they belong to and say nothing.
struct Place {
  std::wstring name;
  std::wstring leafBus;
  std::vector<unsigned> channel;
  bool isImaginary = false;

  auto operator<=>(const Place&) const = default;
};

struct Child {
  Place place;
  SignalPtr signal;
};

/// In the order of their places.
std::vector<Child> childrenOf(const Signal& parent) {
  const bool isComplex = parent.getComplexity() == complexity::complex;
  boost::ptr_vector<ObjectRef> objects;
  parent.getChildren(objects);
  std::vector<Child> children;
  while (!objects.empty()) {
    const SignalPtr signal(
        new Signal(std::unique_ptr<ObjectRef>(objects.release(objects.begin()).release())));
    Place place{
        {}, signal->getLeafBusSignal(), signal->getChannel(), signal->getIsImagPartOfComplex()};
    if (place.channel.empty() && !isComplex) place.name = signal->getName();
    children.push_back({std::move(place), signal});
  }
  std::ranges::stable_sort(children, {}, &Child::place);
  return children;
}

/// One merge: pairs the signals of two trees, refuses what does not fit, then acts.
class Merge {
 public:
  Merge(ObjectManager& manager, const Signal& target, const Signal& source)
      : manager_(manager), target_(target), source_(source) {}

  void check(const SignalPtr& target, const SignalPtr& source) {
    refuseRelatives();
    refuseStreamingSignals(manager_, signalsBelow(manager_, source_.liveID()));
    pairUp(target, source);
    for (const Pair& pair : pairs_) checkOwners(pair);
  }

  void perform() {
    for (const Pair& pair : pairs_) {
      if (!pair.state.isCompositeLeaf()) moveSamples(*pair.target, *pair.source);
    }
  }

 private:
  struct Pair {
    SignalPtr target;
    SignalPtr source;
    SignalState state;  ///< of the source
  };

  [[noreturn]] void refuse(const std::string& reason) const {
    kodiag::raise({"nexstore:nex", "InvalidData"},
                  {{"Operation", "Merging signal " + std::to_string(source_.getID()) +
                                     " into signal " + std::to_string(target_.getID())},
                   {"Reason", reason}});
  }

  void refuseRelatives() const {
    const auto isBelow = [&](const Signal& signal, const Signal& top) {
      const std::vector<int> below = signalsBelow(manager_, top.liveID());
      return std::ranges::find(below, signal.getID()) != below.end();
    };
    if (target_.getID() == source_.getID()) refuse("they are one signal");
    if (isBelow(target_, source_) || isBelow(source_, target_))
      refuse("one of them is below the other");
  }

  void pairUp(const SignalPtr& target, const SignalPtr& source) {
    if (!targets_.emplace(source->getID(), target->getID()).second) return;
    pairs_.push_back({target, source, checkedAlike(*target, *source)});
    const std::vector<Child> into = childrenOf(*target);
    const std::vector<Child> from = childrenOf(*source);
    if (!std::ranges::equal(into, from, {}, &Child::place, &Child::place)) {
      refuse("what is below signal " + std::to_string(source->getID()) +
             " differs from what is below signal " + std::to_string(target->getID()));
    }
    for (std::size_t i = 0; i < into.size(); ++i) pairUp(into[i].signal, from[i].signal);
  }

  /// \returns the bookkeeping of `source`
  SignalState checkedAlike(const Signal& target, const Signal& source) const {
    SignalStates& states = manager_.prepared<SignalStates>();
    const SignalState into = states.read(target.getObjectReference().getObjRef());
    const SignalState from = states.read(source.getObjectReference().getObjRef());
    const std::string both =
        "signals " + std::to_string(target.getID()) + " and " + std::to_string(source.getID());
    if (into.dataType != from.dataType) refuse("the data types of " + both + " differ");
    if (target.getDimensions() != source.getDimensions() ||
        target.getComplexity() != source.getComplexity())
      refuse("the shapes of " + both + " differ");
    const auto layout = [](const SignalState& state) {
      return std::tuple(state.isCompositeLeaf(), state.elementBytes, state.recordBytes,
                        state.elementOffset);
    };
    if (layout(into) != layout(from)) refuse("the samples of " + both + " differ in layout");
    return from;
  }

  /// A composite leaf's samples move with those of its root; nobody else may be left reading
  /// what moves away.
  void checkOwners(const Pair& pair) const {
    const auto owner = targets_.find(pair.state.dataOwner);
    if (pair.state.isCompositeLeaf() &&
        (owner == targets_.end() ||
         owner->second != pair.target->getHierarchicalSignalRootID())) {
      refuse("signal " + std::to_string(pair.source->getID()) + " has no samples of its own");
    }
    for (const int reader :
         findIDs(manager_, strings::Signal,
                 {equals(strings::IdOfSignalWhoHasMyData, pair.source->getID())})) {
      if (!targets_.contains(reader))
        refuse("signal " + std::to_string(reader) + " reads the samples that would move");
    }
  }

  void moveSamples(const Signal& target, const Signal& source) const {
    const SampleSpan span = source.getExtent();
    if (span.samples == 0) return;
    const Samples kept(target, span.firstTime);
    const Samples added(source, -DBL_MAX);
    const std::size_t bytes = added.recordBytes();
    if (!kept.times.empty() && kept.recordBytes() != bytes)
      refuse("their samples have different sizes");
    const Samples samples = merged(kept, added, bytes);
    SampleWriter writer(manager_, target.getObjectReference().getObjRef());
    writer.dropFrom(span.firstTime);
    SampleBlock block;
    block.times = reinterpret_cast<const char*>(samples.times.data());
    block.values = samples.values.data();
    if (!samples.epochs.empty())
      block.epochs = reinterpret_cast<const char*>(samples.epochs.data());
    block.points = samples.times.size();
    block.valueBytes = samples.values.size();
    writer.append(block);
    if (std::ranges::adjacent_find(samples.times) != samples.times.end())
      writer.noteDuplicateTimes();
    writer.finish();
  }

  ObjectManager& manager_;
  const Signal& target_;
  const Signal& source_;
  std::vector<Pair> pairs_;
  std::map<int, int> targets_;  ///< the signal of the target's tree, by that of the source's
};

}  // namespace

void Signal::mergeSignals(const SignalPtr& target, const SignalPtr& source) {
  if (!target || !source) {
    kodiag::raise({"nexstore:nex", "InvalidData"},
                  {{"Operation", "Merging signals"}, {"Reason", "one of them is not given"}});
  }
  target->requireSameRepository(
      *source, "Merging a signal into signal " + std::to_string(target->getID()));
  ObjectManager& manager = target->manager();
  manager.inTransaction([&] {
    Merge merge(manager, *target, *source);
    merge.check(target, source);
    merge.perform();
    source->remove();
  });
}

}  // namespace vela
