#include "objects/smallchunkreader.h"

#include <algorithm>
#include <cstring>

namespace vela {
namespace {

// With larger values than these, reading parts of a chunk pays.
constexpr int kSmallBytes = 1 << 16;

}  // namespace

SmallChunkReader::SmallChunkReader(ObjectManager& manager, const SampleLayout& layout)
    : manager_(manager), layout_(layout), bytes_(manager.prepared<ChunkBytes>()) {}

bool SmallChunkReader::read(double t0, double t1, const Allocate& allocate,
                            SampleExtent& extent) {
  if (!chunksAreSmall()) return false;
  for (const ChunkRow& chunk :
       manager_.prepared<ChunkRows>().overlapping(layout_.owner, t0, t1)) {
    if (chunk.points > 0 && !cut(chunk, t0, t1)) return false;
  }
  extent_.hasEpochs = hasEpochs_ && extent_.samples > 0;
  SampleTarget target = allocate(extent_);
  for (const Slice& slice : slices_) {
    load(slice.chunk);
    if (!isMadeLikeFirst(slice.chunk)) return false;
    copy(slice, target);
  }
  extent = extent_;
  return true;
}

bool SmallChunkReader::chunksAreSmall() {
  const SignalState owner = layout_.state.isCompositeLeaf()
                                ? manager_.prepared<SignalStates>().read(layout_.owner)
                                : layout_.state;
  return owner.largestChunkBytes <= kSmallBytes;
}

void SmallChunkReader::load(const ChunkRow& chunk) {
  if (chunk.id == loadedID_) return;
  loaded_ = &bytes_.load(chunk.id);
  loadedID_ = chunk.id;
}

bool SmallChunkReader::isMadeLikeFirst(const ChunkRow& chunk) const {
  const std::size_t capacity = loaded_->capacity();
  return capacity >= static_cast<std::size_t>(chunk.points) &&
         loaded_->values.size() == capacity * recordBytes_ &&
         loaded_->epochs.size() == (hasEpochs_ ? capacity * sizeof(unsigned) : 0);
}

/// Adds what the range takes of a chunk. \returns false for a chunk of another make
bool SmallChunkReader::cut(const ChunkRow& chunk, double t0, double t1) {
  Slice slice{chunk, 0, static_cast<std::size_t>(chunk.points)};
  const bool isCut = chunk.startTime < t0 || chunk.endTime > t1;
  if (isCut || recordBytes_ == 0) {
    load(chunk);
    if (recordBytes_ == 0) {
      if (loaded_->capacity() == 0) return false;
      recordBytes_ = loaded_->values.size() / loaded_->capacity();
      hasEpochs_ = !loaded_->epochs.empty();
      const bool wanted =
          !layout_.extraction || layout_.extraction->recordBytes() == recordBytes_;
      if (recordBytes_ == 0 || !wanted) return false;
    }
    if (!isMadeLikeFirst(chunk)) return false;
  }
  if (isCut) {
    const auto point = [this](std::size_t from, std::size_t to, auto before) {
      while (from < to) {
        const std::size_t middle = from + (to - from) / 2;
        if (before(loadedTime(middle))) {
          from = middle + 1;
        } else {
          to = middle;
        }
      }
      return from;
    };
    const std::size_t points = slice.count;
    slice.first = point(0, points, [t0](double time) { return time < t0; });
    slice.count =
        point(slice.first, points, [t1](double time) { return time <= t1; }) - slice.first;
    if (slice.count == 0) return true;
  }
  if (extent_.samples == 0) {
    extent_.firstTime = slice.first == 0 ? chunk.startTime : loadedTime(slice.first);
  }
  const std::size_t last = slice.first + slice.count - 1;
  const bool endsWithChunk = last + 1 == static_cast<std::size_t>(chunk.points);
  extent_.lastTime = endsWithChunk ? chunk.endTime : loadedTime(last);
  extent_.samples += slice.count;
  extent_.valueBytes +=
      slice.count * (layout_.extraction ? layout_.extraction->elementBytes() : recordBytes_);
  slices_.push_back(slice);
  return true;
}

void SmallChunkReader::copy(const Slice& slice, SampleTarget& target) const {
  if (target.times) {
    std::memcpy(target.times, loaded_->times.data() + slice.first * sizeof(double),
                slice.count * sizeof(double));
    target.times += slice.count;
  }
  if (target.values) {
    const char* records = loaded_->values.data() + slice.first * recordBytes_;
    if (layout_.extraction) {
      layout_.extraction->extract(records, slice.count, target.values);
      target.values += slice.count * layout_.extraction->elementBytes();
    } else {
      std::memcpy(target.values, records, slice.count * recordBytes_);
      target.values += slice.count * recordBytes_;
    }
  }
  if (target.epochs && hasEpochs_) {
    std::memcpy(target.epochs, loaded_->epochs.data() + slice.first * sizeof(unsigned),
                slice.count * sizeof(unsigned));
    target.epochs += slice.count;
  }
}

double SmallChunkReader::loadedTime(std::size_t point) const {
  double time;
  std::memcpy(&time, loaded_->times.data() + point * sizeof time, sizeof time);
  return time;
}

}  // namespace vela
