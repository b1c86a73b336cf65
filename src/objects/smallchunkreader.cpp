#include "objects/smallchunkreader.h"

#include <algorithm>
#include <cstring>
#include <ranges>
#include <utility>

namespace vela {
namespace {

// With larger values than these, reading parts of a chunk pays.
constexpr std::size_t kSmallBytes = std::size_t{1} << 16;

}  // namespace

SmallChunkReader::SmallChunkReader(ObjectManager& manager, const SampleLayout& layout)
    : manager_(manager), layout_(layout), bytes_(manager.prepared<ChunkBytes>()) {}

bool SmallChunkReader::read(double t0, double t1, const Allocate& allocate,
                            SampleExtent& extent) {
  if (!chunksAreSmall()) return false;
  for (const ChunkRow& chunk :
       manager_.prepared<ChunkRows>().overlapping(layout_.owner, t0, t1)) {
    if (chunk.points > 0 && !plan(chunk, t0, t1)) return false;
  }
  extent_.hasEpochs = hasEpochs_ && extent_.samples > 0;
  SampleTarget target = allocate(extent_);
  for (const Slice& slice : slices_) {
    const bool isCopied = layout_.extraction ? extract(slice, target) : copy(slice, target);
    if (!isCopied) return false;
    advance(target, slice.count);
  }
  extent = extent_;
  return true;
}

bool SmallChunkReader::chunksAreSmall() {
  const SignalState owner = layout_.state.isCompositeLeaf()
                                ? manager_.prepared<SignalStates>().read(layout_.owner)
                                : layout_.state;
  return std::cmp_less_equal(owner.largestChunkBytes, kSmallBytes);
}

void SmallChunkReader::load(const ChunkRow& chunk) {
  if (chunk.id == loadedID_) return;
  loaded_ = &bytes_.load(chunk.id);
  loadedID_ = chunk.id;
}

/// Takes the make of the loaded chunk for that of all. \returns whether it can be read
bool SmallChunkReader::learnMake() {
  if (loaded_->capacity() == 0) return false;
  recordBytes_ = loaded_->values.size() / loaded_->capacity();
  hasEpochs_ = !loaded_->epochs.empty();
  const bool fits = !layout_.extraction || layout_.extraction->recordBytes() == recordBytes_;
  return recordBytes_ > 0 && fits;
}

bool SmallChunkReader::isMadeLikeFirst(const ChunkRow& chunk, const ChunkBlobs& blobs) const {
  const std::size_t capacity = blobs.capacity();
  return capacity >= static_cast<std::size_t>(chunk.points) &&
         blobs.valueBytes == capacity * recordBytes_ &&
         blobs.epochBytes == (hasEpochs_ ? capacity * sizeof(unsigned) : 0);
}

/// Plans what the range takes of a chunk; loads only the first one and those at its ends.
bool SmallChunkReader::plan(const ChunkRow& chunk, double t0, double t1) {
  Slice slice{chunk, 0, static_cast<std::size_t>(chunk.points)};
  const bool isCut = chunk.startTime < t0 || chunk.endTime > t1;
  const bool isFirst = recordBytes_ == 0;
  if (isCut || isFirst) {
    load(chunk);
    if (isFirst && !learnMake()) return false;
    if (!isMadeLikeFirst(chunk, loaded_->blobs())) return false;
  }
  // More than any chunk holds: a count that must not make anybody reserve memory for it.
  if (slice.count * recordBytes_ > kSmallBytes) return false;
  if (isCut) cut(slice, t0, t1);
  if (slice.count > 0) add(slice);
  return true;
}

void SmallChunkReader::cut(Slice& slice, double t0, double t1) const {
  const auto points = std::views::iota(std::size_t{0}, slice.count);
  const auto time = [this](std::size_t point) { return loadedTime(point); };
  const auto begin = std::ranges::lower_bound(points, t0, {}, time);
  const auto end = std::ranges::upper_bound(begin, points.end(), t1, {}, time);
  slice.first = static_cast<std::size_t>(begin - points.begin());
  slice.count = static_cast<std::size_t>(end - begin);
}

void SmallChunkReader::add(const Slice& slice) {
  // Whatever does not begin or end with its chunk has been loaded to be cut.
  const auto timeAt = [&](std::size_t point) {
    if (point == 0) return slice.chunk.startTime;
    const bool endsChunk = point + 1 == static_cast<std::size_t>(slice.chunk.points);
    return endsChunk ? slice.chunk.endTime : loadedTime(point);
  };
  if (extent_.samples == 0) extent_.firstTime = timeAt(slice.first);
  extent_.lastTime = timeAt(slice.first + slice.count - 1);
  extent_.samples += slice.count;
  extent_.valueBytes +=
      slice.count * (layout_.extraction ? layout_.extraction->elementBytes() : recordBytes_);
  slices_.push_back(slice);
}

/// Copies what a slice holds. \returns false for a chunk unlike the first
bool SmallChunkReader::copy(const Slice& slice, const SampleTarget& target) const {
  const auto part = [&slice](void* into, std::size_t pointBytes) {
    return kodd::BlobPart{slice.first * pointBytes, into ? slice.count * pointBytes : 0, into};
  };
  const ChunkBlobs blobs =
      bytes_.copy(slice.chunk.id, {part(target.times, sizeof(double)),
                                   part(hasEpochs_ ? target.epochs : nullptr, sizeof(unsigned)),
                                   part(target.values, recordBytes_)});
  return isMadeLikeFirst(slice.chunk, blobs);
}

/// The same for an element of the records, taken out of the loaded chunk.
bool SmallChunkReader::extract(const Slice& slice, const SampleTarget& target) {
  load(slice.chunk);
  if (!isMadeLikeFirst(slice.chunk, loaded_->blobs())) return false;
  const auto copyPoints = [&slice](void* into, const std::vector<char>& from,
                                   std::size_t pointBytes) {
    if (into)
      std::memcpy(into, from.data() + slice.first * pointBytes, slice.count * pointBytes);
  };
  copyPoints(target.times, loaded_->times, sizeof(double));
  copyPoints(hasEpochs_ ? target.epochs : nullptr, loaded_->epochs, sizeof(unsigned));
  if (target.values) {
    layout_.extraction->extract(loaded_->values.data() + slice.first * recordBytes_,
                                slice.count, target.values);
  }
  return true;
}

void SmallChunkReader::advance(SampleTarget& target, std::size_t points) const {
  const std::size_t delivered =
      layout_.extraction ? layout_.extraction->elementBytes() : recordBytes_;
  if (target.times) target.times += points;
  if (target.values) target.values += points * delivered;
  if (target.epochs && hasEpochs_) target.epochs += points;
}

double SmallChunkReader::loadedTime(std::size_t point) const {
  double time;
  std::memcpy(&time, loaded_->times.data() + point * sizeof time, sizeof time);
  return time;
}

}  // namespace vela
