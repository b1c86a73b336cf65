#include <cfloat>
#include <cmath>
#include <cstdint>
#include <limits>

#include "objects/samplereader.h"
#include "objects/sampletypes.h"
#include "objects/signal.h"
#include "objects/smallchunkreader.h"
#include "objects/strings.h"

namespace vela {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

void appendChunks(ObjectManager& manager, const std::vector<ChunkRow>& rows,
                  boost::ptr_vector<ObjectRef>& out) {
  for (const ChunkRow& row : rows) {
    bool found = false;
    std::unique_ptr<ObjectRef> chunk = manager.findObject(row.id, strings::Chunk, found);
    if (found) out.push_back(chunk.release());
  }
}

SignalDataRange rangeOf(SampleReader& reader, double t0, double t1) {
  const std::vector<ChunkSlice> slices = reader.slices(t0, t1);
  SignalDataRange range;
  if (slices.empty()) return range;
  const SampleExtent extent = reader.extentOf(slices);
  range.firstTime = extent.firstTime;
  range.lastTime = extent.lastTime;
  NumberBounds bounds(reader.numberKind());
  for (const ChunkSlice& slice : slices) reader.addTo(bounds, slice);
  range.isValid = bounds.any();
  if (!range.isValid) return range;
  range.minValue = bounds.min();
  range.maxValue = bounds.max();
  return range;
}

/// The stored minimum and maximum, where they may be answered.
bool answerFromStore(ObjectManager& manager, const kodd::ObjectRef& signal,
                     const SignalState& state, SignalDataRange& range) {
  if (state.minMaxState != kMinMaxCurrent || state.sourceType != Signal::Visualized) {
    return false;
  }
  const int owner = state.isCompositeLeaf() ? state.dataOwner : signal.id();
  const std::optional<ChunkRow> first = manager.prepared<ChunkRows>().first(owner);
  const std::optional<ChunkRow> last = manager.prepared<ChunkRows>().last(owner);
  if (!first || !last) return false;
  range = {first->startTime, last->endTime, state.minValue, state.maxValue, true};
  return true;
}

bool childrenChanged(SignalStates& states, const SignalState& state) {
  return state.parent != 0 && states.read(state.parent).minMaxState == kMinMaxChildrenChanged;
}

/// Keeps a minimum and maximum just worked out.
void store(SignalStates& states, const kodd::ObjectRef& signal, const SignalDataRange& range) {
  const SignalState state = states.read(signal);
  // NaN differs from itself and is written again.
  const bool same = state.minMaxState == kMinMaxCurrent && state.minValue == range.minValue &&
                    state.maxValue == range.maxValue;
  if (!same) states.writeMinMax(signal.id(), range.minValue, range.maxValue);
  // The owner of shared samples has to know that somebody relies on them.
  if (state.isCompositeLeaf() && states.read(state.dataOwner).minMaxState == kMinMaxStale) {
    states.writeMinMaxState(state.dataOwner, kMinMaxSharersCurrent);
  }
}

void refreshBelow(SignalStates& states, int signal) {
  const SignalState state = states.read(signal);
  states.markRelativesStale(signal);
  if (state.isCompositeLeaf()) states.markRelativesStale(state.dataOwner);
  if (state.minMaxState == kMinMaxChildrenChanged) {
    states.writeMinMaxState(signal, kMinMaxStale);
  }
}

/// Value at t on the straight line through two samples; equal values give that value exactly.
double interpolate(double t0, double y0, double t1, double y1, double t) {
  if (y0 == y1) return y0;
  // Halved first where the difference itself would overflow.
  const bool wide = std::isinf(t1 - t0);
  const double f = wide ? (t1 / 2 - t / 2) / (t1 / 2 - t0 / 2) : (t1 - t) / (t1 - t0);
  return (1 - f) * y1 + f * y0;
}

}  // namespace

void Signal::getAllChunks(boost::ptr_vector<ObjectRef>& out) const {
  manager().inReadUnit([&] {
    // Through the handle, which knows when the repository is no longer the one it came from.
    manager().prepared<SignalStates>().read(getObjectReference().getObjRef());
    appendChunks(manager(), manager().prepared<ChunkRows>().all(getID()), out);
  });
}

void Signal::getChunksInRange(double minTime, double maxTime,
                              boost::ptr_vector<ObjectRef>& out) const {
  manager().inReadUnit([&] {
    const SampleReader reader(manager(), getObjectReference().getObjRef(), false);
    appendChunks(manager(),
                 manager().prepared<ChunkRows>().overlapping(reader.owner(), minTime, maxTime),
                 out);
  });
}

void Signal::getDataTimeForChunk(ObjectRef& chunk, std::vector<char>& values,
                                 std::vector<double>& times, std::vector<unsigned>* epochs,
                                 bool extractLeaf, std::string& classification) const {
  manager().inReadUnit([&] {
    SampleReader reader(manager(), getObjectReference().getObjRef(), extractLeaf);
    if (classification.empty()) {
      classification = reader.typeLabel();
    } else {
      reader.setTypeLabel(classification);
    }
    // Through the handle, which knows when the repository is no longer the one it came from.
    chunk.getPropertyInt32(strings::NumPoints);
    const std::optional<ChunkRow> row =
        manager().prepared<ChunkRows>().withID(chunk.getObjectID());
    const ChunkSlice slice = reader.whole(row.value_or(ChunkRow()), SIZE_MAX);
    reader.readWhole(slice, values, times, epochs);
  });
}

SampleExtent Signal::readRange(
    double t0, double t1,
    const std::function<SampleTarget(const SampleExtent&)>& allocate) const {
  SampleExtent extent;
  manager().inReadUnit([&] {
    SampleReader reader(manager(), getObjectReference().getObjRef(), true);
    SmallChunkReader small(manager(), reader.layout());
    if (small.read(t0, t1, allocate, extent)) return;
    const std::vector<ChunkSlice> slices = reader.slices(t0, t1);
    extent = reader.extentOf(slices);
    reader.readAll(slices, extent, allocate(extent));
  });
  return extent;
}

void Signal::readRange(double t0, double t1, std::vector<double>& times,
                       std::vector<char>& values, std::vector<unsigned>* epochs) const {
  readRange(t0, t1, [&](const SampleExtent& extent) {
    times.resize(extent.samples);
    values.resize(extent.valueBytes);
    if (epochs) epochs->resize(extent.hasEpochs ? extent.samples : 0);
    return SampleTarget{times.data(), values.data(), epochs ? epochs->data() : nullptr};
  });
}

SampleSpan Signal::getExtent(double t0, double t1) const {
  SampleSpan span;
  manager().inReadUnit([&] {
    span = SampleReader(manager(), getObjectReference().getObjRef(), true).span(t0, t1);
  });
  return span;
}

SampleSpan Signal::getExtent() const {
  return getExtent(-DBL_MAX, DBL_MAX);
}

void Signal::deinterleaveStructuredData(const char* records, unsigned byteCount,
                                        std::vector<char>& out) const {
  manager().inReadUnit([&] {
    const SignalState state =
        manager().prepared<SignalStates>().read(getObjectReference().getObjRef());
    const LeafExtraction leaf(manager(), state);
    const std::size_t count = byteCount / leaf.recordBytes();
    out.resize(count * leaf.elementBytes());
    leaf.extract(records, count, out.data());
  });
}

SignalDataRange Signal::getDataRange(double t0, double t1) const {
  SignalDataRange range;
  manager().inReadUnit([&] {
    SampleReader reader(manager(), getObjectReference().getObjRef(), true);
    range = rangeOf(reader, t0, t1);
  });
  return range;
}

SignalDataRange Signal::getDataRange() {
  SignalStates& states = manager().prepared<SignalStates>();
  const kodd::ObjectRef& signal = getObjectReference().getObjRef();
  SignalDataRange range;
  manager().inReadUnit([&] {
    const SignalState state = states.read(signal);
    const bool isRefreshNeeded = childrenChanged(states, state);
    if (!isRefreshNeeded && answerFromStore(manager(), signal, state, range)) return;
    SampleReader reader(manager(), signal, true);
    range = rangeOf(reader, -DBL_MAX, DBL_MAX);
    DictionaryFunction remember = [&](kodiag::util::diagnostics&) {
      if (isRefreshNeeded) refreshBelow(states, state.parent);
      if (range.isValid) store(states, signal, range);
    };
    // Best effort: what is not stored, since somebody else writes, is found by the next scan.
    kodiag::util::diagnostics notStored;
    manager().trySafeTransaction(remember, notStored);
  });
  return range;
}

double Signal::getLinearInterpYValue(double t) const {
  double value = kNaN;
  manager().inReadUnit([&] {
    SampleReader reader(manager(), getObjectReference().getObjRef(), true);
    const std::optional<double> after = reader.firstTimeFrom(t);
    if (!after) return;
    const std::optional<double> before = *after == t ? after : reader.lastTimeBefore(t);
    if (!before) return;
    const SignalDataRange left = rangeOf(reader, *before, *before);
    const SignalDataRange right = rangeOf(reader, *after, *after);
    if (!left.isValid || !right.isValid) return;
    value = *after == t ? right.minValue
                        : interpolate(*before, left.minValue, *after, right.minValue, t);
  });
  return value;
}

double Signal::getLatestTimeValue() const {
  double newest = 0;
  manager().inReadUnit([&] {
    SignalStates& states = manager().prepared<SignalStates>();
    SignalState state = states.read(getObjectReference().getObjRef());
    if (state.isCompositeLeaf()) state = states.read(state.dataOwner);
    newest = state.lastChunk > 0 ? state.newestTime : states.timingOf(state.run).startTime;
  });
  return newest;
}

void Signal::cacheMinMaxValuesAtTimeOfNormalization() {
  const SignalDataRange range = getDataRange();
  set(strings::MinValueAtTimeOfNormalization, range.minValue);
  set(strings::MaxValueAtTimeOfNormalization, range.maxValue);
}

std::pair<double, double> Signal::getMinMaxValuesAtTimeOfNormalization() const {
  const ObjectRef& object = getObjectReference();
  return {object.getPropertyReal64(strings::MinValueAtTimeOfNormalization),
          object.getPropertyReal64(strings::MaxValueAtTimeOfNormalization)};
}

void Signal::dirtyMinMaxDirectReadOkayFlagForAllChildrenInHierarchy() {
  manager().inTransaction([&] {
    SignalStates& states = manager().prepared<SignalStates>();
    // Through the handle, which knows when the repository is no longer the one it came from.
    states.read(getObjectReference().getObjRef());
    refreshBelow(states, getID());
  });
}

}  // namespace vela
