#include "datarangeiterator.h"

#include <algorithm>
#include <cfloat>
#include <cstdint>
#include <optional>

#include "objects/samplereader.h"

namespace vela {

struct Signal::DataRangeIterator::Impl {
  Impl(Signal& readSignal, double minTime, double maxTime, bool epochsWanted, bool extractLeaf)
      : signal(readSignal), wantEpochs(epochsWanted) {
    signal.manager().inReadUnit([&] {
      SampleReader reader(signal.manager(), handle(), extractLeaf);
      chunks =
          signal.manager().prepared<ChunkRows>().overlapping(reader.owner(), minTime, maxTime);
      reader.typeLabel();
      layout = reader.layout();
      reserve(reader);
    });
  }

  const kodd::ObjectRef& handle() const { return signal.getObjectReference().getObjRef(); }

  /// Room for the largest chunk, so that no read has to make any.
  void reserve(SampleReader& reader) {
    int mostPoints = 0;
    const ChunkRow* largest = nullptr;
    for (const ChunkRow& chunk : chunks) {
      if (chunk.points <= mostPoints) continue;
      mostPoints = chunk.points;
      largest = &chunk;
    }
    if (!largest) return;
    const ChunkSlice slice = reader.whole(*largest, SIZE_MAX);
    values.reserve(reader.valueBytes(slice));
    times.reserve(slice.count);
    if (wantEpochs && SampleReader::hasEpochs(slice)) epochs.reserve(slice.count);
  }

  /// The next chunk into our buffers.
  void read(const ChunkRow& frozen) {
    signal.manager().inReadUnit([&] {
      // Through the handle, which knows when the repository is no longer the one it came from.
      signal.manager().prepared<SignalStates>().read(handle());
      SampleReader reader(signal.manager(), layout);
      const std::optional<ChunkRow> chunk =
          signal.manager().prepared<ChunkRows>().withID(frozen.id);
      const auto mostPoints = static_cast<std::size_t>(std::max(frozen.points, 0));
      const ChunkSlice slice = reader.whole(chunk.value_or(ChunkRow()), mostPoints);
      reader.readWhole(slice, values, times, wantEpochs ? &epochs : nullptr);
    });
  }

  Signal& signal;
  bool wantEpochs;
  SampleLayout layout;
  std::vector<ChunkRow> chunks;
  std::size_t next = 0;
  std::vector<char> values;
  std::vector<double> times;
  std::vector<unsigned> epochs;
};

Signal::DataRangeIterator::DataRangeIterator(Signal& signal, double minTime, double maxTime,
                                             bool wantEpochs, bool extractLeaf)
    : impl_(std::make_unique<Impl>(signal, minTime, maxTime, wantEpochs, extractLeaf)) {}

Signal::DataRangeIterator::DataRangeIterator(Signal& signal, bool wantEpochs, bool extractLeaf)
    : DataRangeIterator(signal, -DBL_MAX, DBL_MAX, wantEpochs, extractLeaf) {}

Signal::DataRangeIterator::~DataRangeIterator() = default;

unsigned Signal::DataRangeIterator::getNumChunks() const {
  // Chunks are numbered by 32-bit integers.
  return static_cast<unsigned>(impl_->chunks.size());
}

void Signal::DataRangeIterator::getNext(std::vector<char>& values, std::vector<double>& times,
                                        std::vector<unsigned>* epochs, bool& hasMore) {
  hasMore = impl_->next < impl_->chunks.size();
  if (!hasMore) {
    impl_->values.clear();
    impl_->times.clear();
    impl_->epochs.clear();
    return;
  }
  swapIteratorVectors(values, times, epochs);
  impl_->read(impl_->chunks[impl_->next++]);
  impl_->values.swap(values);
  impl_->times.swap(times);
  if (impl_->wantEpochs && epochs) impl_->epochs.swap(*epochs);
}

void Signal::DataRangeIterator::swapIteratorVectors(std::vector<char>& values,
                                                    std::vector<double>& times,
                                                    std::vector<unsigned>* epochs) {
  if (impl_->times.capacity() >= times.capacity()) return;
  impl_->values.swap(values);
  impl_->times.swap(times);
  if (impl_->wantEpochs && epochs) impl_->epochs.swap(*epochs);
}

}  // namespace vela
