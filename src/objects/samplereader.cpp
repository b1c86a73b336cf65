#include "objects/samplereader.h"

#include <algorithm>
#include <cstdint>

#include "objects/datatypes.h"
#include "objects/sampletypes.h"
#include "objects/strings.h"

namespace vela {
namespace {

// Values are looked at, or taken apart, in pieces of about this size.
constexpr std::size_t kPieceBytes = std::size_t{1} << 20;

SampleLayout layoutOf(ObjectManager& manager, const kodd::ObjectRef& signal, bool extractLeaf) {
  SampleLayout layout;
  layout.state = manager.prepared<SignalStates>().read(signal);
  const SignalState& state = layout.state;
  layout.owner = state.isCompositeLeaf() ? state.dataOwner : signal.id();
  // Without a record there is nothing to take an element out of; without an element the records
  // themselves are what is asked for.
  if (extractLeaf && state.recordBytes != 0 && state.elementBytes != 0) {
    layout.extraction.emplace(manager, state);
  }
  return layout;
}

}  // namespace

SampleReader::SampleReader(ObjectManager& manager, const kodd::ObjectRef& signal,
                           bool extractLeaf)
    : SampleReader(manager, layoutOf(manager, signal, extractLeaf)) {}

SampleReader::SampleReader(ObjectManager& manager, const SampleLayout& layout)
    : manager_(manager),
      rows_(manager.prepared<ChunkRows>()),
      bytes_(manager.prepared<ChunkBytes>()),
      reading_(bytes_),
      layout_(layout) {}

const std::string& SampleReader::typeLabel() {
  if (!layout_.typeLabel) layout_.typeLabel = typeLabelOf(manager_, layout_.state.dataType);
  return *layout_.typeLabel;
}

NumberKind SampleReader::numberKind() {
  const NumberKind kind = numberKindOf(typeLabel());
  // The records of a composite signal are no numbers.
  if (!layout_.extraction) return layout_.state.recordBytes != 0 ? NumberKind::none : kind;
  const std::size_t delivered = layout_.extraction->elementBytes();
  const bool fits = kind == NumberKind::none || delivered % bytesOf(kind) == 0;
  return fits ? kind : NumberKind::none;
}

std::vector<ChunkSlice> SampleReader::slices(double t0, double t1) {
  std::vector<ChunkSlice> slices;
  for (const ChunkRow& row : rows_.overlapping(layout_.owner, t0, t1)) {
    ChunkSlice slice = whole(row, SIZE_MAX);
    if (cut(slice, t0, t1)) slices.push_back(slice);
  }
  return slices;
}

SampleSpan SampleReader::span(double t0, double t1) {
  SampleSpan span;
  for (const ChunkRow& row : rows_.overlapping(layout_.owner, t0, t1)) {
    if (row.points <= 0) continue;
    ChunkSlice slice{row, {}, 0, static_cast<std::size_t>(row.points)};
    const bool isCut = row.startTime < t0 || row.endTime > t1;
    if (isCut) slice = whole(row, SIZE_MAX);
    if (isCut && !cut(slice, t0, t1)) continue;
    if (span.samples == 0) span.firstTime = timeAt(slice, slice.first);
    span.lastTime = timeAt(slice, slice.first + slice.count - 1);
    span.samples += slice.count;
  }
  return span;
}

/// Leaves of a whole chunk what lies in the range. \returns whether anything does
bool SampleReader::cut(ChunkSlice& slice, double t0, double t1) {
  const std::size_t points = slice.count;
  if (slice.chunk.startTime < t0) slice.first = bytes_.lowerBound(slice.blobs, points, t0);
  const std::size_t end =
      slice.chunk.endTime > t1 ? bytes_.upperBound(slice.blobs, points, t1) : points;
  slice.count = end > slice.first ? end - slice.first : 0;
  return slice.count > 0;
}

ChunkSlice SampleReader::whole(const ChunkRow& chunk, std::size_t mostPoints) {
  ChunkSlice slice;
  slice.chunk = chunk;
  slice.blobs = bytes_.of(chunk.id);
  slice.count = std::min({static_cast<std::size_t>(std::max(chunk.points, 0)),
                          slice.blobs.capacity(), mostPoints});
  return slice;
}

std::size_t SampleReader::storedOffset(const ChunkBlobs& blobs, std::size_t point) {
  const std::size_t stored = blobs.valueBytes;
  const std::size_t capacity = blobs.capacity();
  const auto recordBytes = static_cast<std::size_t>(std::max(layout_.state.recordBytes, 0));
  if (layout_.extraction) return std::min(layout_.extraction->recordBytes() * point, stored);
  if (stored % capacity == 0) return stored / capacity * point;
  // The blob is no whole number of records: what is known about the type decides.
  if (recordBytes > 0) return std::min(recordBytes * point, stored);
  const std::size_t elementBytes = DataTypeUtil::getDataSize(typeLabel());
  if (elementBytes > 0) return std::min(elementBytes * point, stored);
  return stored * point / capacity;
}

std::size_t SampleReader::bytesWithoutTimes(const ChunkSlice& slice) {
  const std::size_t stored = slice.blobs.valueBytes;
  const auto points = static_cast<std::size_t>(std::max(slice.chunk.points, 0));
  if (layout_.state.recordBytes > 0) {
    return std::min(static_cast<std::size_t>(layout_.state.recordBytes) * points, stored);
  }
  const std::size_t elementBytes = DataTypeUtil::getDataSize(typeLabel());
  return elementBytes > 0 ? std::min(elementBytes * points, stored) : stored;
}

std::size_t SampleReader::valueBytes(const ChunkSlice& slice) {
  if (slice.blobs.capacity() == 0) return layout_.extraction ? 0 : bytesWithoutTimes(slice);
  const std::size_t stored = storedOffset(slice.blobs, slice.first + slice.count) -
                             storedOffset(slice.blobs, slice.first);
  if (!layout_.extraction) return stored;
  return stored / layout_.extraction->recordBytes() * layout_.extraction->elementBytes();
}

bool SampleReader::hasEpochs(const ChunkSlice& slice) {
  return slice.blobs.hasEpochs() &&
         slice.blobs.epochBytes / sizeof(unsigned) >= slice.first + slice.count;
}

SampleExtent SampleReader::extentOf(const std::vector<ChunkSlice>& slices) {
  SampleExtent extent;
  if (slices.empty()) return extent;
  extent.hasEpochs = true;
  for (const ChunkSlice& slice : slices) {
    extent.samples += slice.count;
    extent.valueBytes += valueBytes(slice);
    extent.hasEpochs = extent.hasEpochs && hasEpochs(slice);
  }
  extent.firstTime = timeAt(slices.front(), slices.front().first);
  extent.lastTime = timeAt(slices.back(), slices.back().first + slices.back().count - 1);
  return extent;
}

double SampleReader::timeAt(const ChunkSlice& slice, std::size_t point) {
  if (point == 0) return slice.chunk.startTime;
  if (point + 1 == static_cast<std::size_t>(slice.chunk.points)) return slice.chunk.endTime;
  double time = 0;
  bytes_.readTimes(slice.blobs, point, 1, &time);
  return time;
}

void SampleReader::readAll(const std::vector<ChunkSlice>& slices, const SampleExtent& extent,
                           SampleTarget target) {
  for (const ChunkSlice& slice : slices) {
    if (target.times) {
      readTimes(slice, target.times);
      target.times += slice.count;
    }
    if (target.values) {
      readValues(slice, target.values);
      target.values += valueBytes(slice);
    }
    if (target.epochs && extent.hasEpochs) {
      readEpochs(slice, target.epochs);
      target.epochs += slice.count;
    }
  }
}

void SampleReader::readTimes(const ChunkSlice& slice, double* into) {
  bytes_.readTimes(slice.blobs, slice.first, slice.count, into);
}

void SampleReader::readEpochs(const ChunkSlice& slice, unsigned* into) {
  if (!hasEpochs(slice)) return;
  bytes_.readEpochs(slice.blobs, slice.first, slice.count, into);
}

template <class Consume>
void SampleReader::forEachPiece(const ChunkSlice& slice, Consume consume) {
  if (slice.blobs.capacity() == 0) return;
  const std::size_t begin = storedOffset(slice.blobs, slice.first);
  const std::size_t end = storedOffset(slice.blobs, slice.first + slice.count);
  const std::size_t recordBytes =
      layout_.extraction ? layout_.extraction->recordBytes() : sizeof(double);
  const std::size_t pieceBytes =
      std::max<std::size_t>(1, kPieceBytes / recordBytes) * recordBytes;
  for (std::size_t offset = begin; offset < end; offset += pieceBytes) {
    piece_.resize(std::min(pieceBytes, end - offset));
    bytes_.readValues(slice.blobs, offset, piece_.size(), piece_.data());
    consume(piece_);
  }
}

void SampleReader::readValues(const ChunkSlice& slice, char* into) {
  if (!layout_.extraction) {
    const bool timed = slice.blobs.capacity() > 0;
    bytes_.readValues(slice.blobs, timed ? storedOffset(slice.blobs, slice.first) : 0,
                      valueBytes(slice), into);
    return;
  }
  forEachPiece(slice, [&](const std::vector<char>& records) {
    const std::size_t count = records.size() / layout_.extraction->recordBytes();
    layout_.extraction->extract(records.data(), count, into);
    into += count * layout_.extraction->elementBytes();
  });
}

void SampleReader::readWhole(const ChunkSlice& slice, std::vector<char>& values,
                             std::vector<double>& times, std::vector<unsigned>* epochs) {
  times.resize(slice.count);
  readTimes(slice, times.data());
  values.resize(valueBytes(slice));
  readValues(slice, values.data());
  if (!epochs) return;
  epochs->resize(hasEpochs(slice) ? slice.count : 0);
  readEpochs(slice, epochs->data());
}

std::optional<double> SampleReader::firstTimeFrom(double time) {
  const std::optional<ChunkRow> chunk = rows_.firstReaching(layout_.owner, time);
  if (!chunk) return std::nullopt;
  const ChunkSlice slice = whole(*chunk, SIZE_MAX);
  const std::size_t point = bytes_.lowerBound(slice.blobs, slice.count, time);
  if (point == slice.count) return std::nullopt;
  return timeAt(slice, point);
}

std::optional<double> SampleReader::lastTimeBefore(double time) {
  const std::optional<ChunkRow> reaching = rows_.firstReaching(layout_.owner, time);
  if (reaching && reaching->startTime < time) {
    const ChunkSlice slice = whole(*reaching, SIZE_MAX);
    const std::size_t point = bytes_.lowerBound(slice.blobs, slice.count, time);
    if (point > 0) return timeAt(slice, point - 1);
  }
  const std::optional<ChunkRow> before = rows_.lastBefore(layout_.owner, time);
  return before ? std::optional(before->endTime) : std::nullopt;
}

void SampleReader::addTo(NumberBounds& bounds, const ChunkSlice& slice) {
  forEachPiece(slice, [&](const std::vector<char>& piece) {
    if (!layout_.extraction) {
      bounds.add(piece.data(), piece.size());
      return;
    }
    const std::size_t count = piece.size() / layout_.extraction->recordBytes();
    extracted_.resize(count * layout_.extraction->elementBytes());
    layout_.extraction->extract(piece.data(), count, extracted_.data());
    bounds.add(extracted_.data(), extracted_.size());
  });
}

}  // namespace vela
