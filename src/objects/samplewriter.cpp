#include "objects/samplewriter.h"

#include <algorithm>
#include <atomic>
#include <cfloat>
#include <climits>
#include <cstring>
#include <limits>
#include <string>

#include "kodiag/message.h"

namespace vela {
namespace {

constexpr std::size_t kMaximumBytes = std::size_t{1} << 29;

std::atomic<int> minimumChunkBytes = 0;
std::atomic<std::size_t> maximumChunkBytes = kMaximumBytes;

// The most points of that size that one chunk may hold.
std::size_t pointsPerChunk(std::size_t recordBytes) {
  const std::size_t pointBytes = std::max(recordBytes, sizeof(double));
  return std::max<std::size_t>(1, ChunkLimits::maximumBytes() / pointBytes);
}

SampleBlock partOf(const SampleBlock& block, std::size_t first, std::size_t points) {
  const std::size_t recordBytes = block.recordBytes();
  return {block.times + first * sizeof(double), block.values + first * recordBytes,
          block.epochs ? block.epochs + first * sizeof(unsigned) : nullptr, points,
          points * recordBytes};
}

// Keeps the records of `recordBytes` each that are marked, in place.
void compact(std::vector<char>& records, std::size_t recordBytes,
             const std::vector<bool>& keep) {
  std::size_t end = 0;
  for (std::size_t i = 0; i < keep.size(); ++i) {
    if (!keep[i]) continue;
    std::memmove(records.data() + end, records.data() + i * recordBytes, recordBytes);
    end += recordBytes;
  }
  records.resize(end);
}

}  // namespace

int ChunkLimits::minimumBytes() {
  return minimumChunkBytes;
}

void ChunkLimits::setMinimumBytes(int bytes) {
  minimumChunkBytes = std::max(bytes, 0);
}

std::size_t ChunkLimits::maximumBytes() {
  return maximumChunkBytes;
}

void ChunkLimits::setMaximumBytes(std::size_t bytes) {
  maximumChunkBytes = std::clamp<std::size_t>(bytes, 1, kMaximumBytes);
}

SampleWriter::SampleWriter(ObjectManager& manager, const kodd::ObjectRef& signal)
    : states_(manager.prepared<SignalStates>()),
      rows_(manager.prepared<ChunkRows>()),
      bytes_(manager.prepared<ChunkBytes>()),
      chunks_(manager.prepared<ChunkWriter>()),
      signal_(signal.id()),
      state_(states_.read(signal)) {}

SampleWriter::SampleWriter(ObjectManager& manager, int signal)
    : states_(manager.prepared<SignalStates>()),
      rows_(manager.prepared<ChunkRows>()),
      bytes_(manager.prepared<ChunkBytes>()),
      chunks_(manager.prepared<ChunkWriter>()),
      signal_(signal),
      state_(states_.read(signal)) {}

void SampleWriter::append(const SampleBlock& block) {
  if (block.points == 0) {
    addChunk(block);
    return;
  }
  // The newest time of a signal without chunks says nothing.
  const double first = block.firstTime();
  if (state_.lastChunk > 0 && first < state_.newestTime) rollBackTo(first);
  if (state_.lastChunk > 0 && first == state_.newestTime) noteDuplicateTimes();

  const std::size_t recordBytes = block.recordBytes();
  const std::size_t perPiece = recordBytes == 0 ? block.points : pointsPerChunk(recordBytes);
  if (block.points <= perPiece) {
    appendPiece(block);
    return;
  }
  for (std::size_t i = 0; i < block.points; i += perPiece) {
    appendPiece(partOf(block, i, std::min(perPiece, block.points - i)));
  }
}

void SampleWriter::appendPiece(const SampleBlock& piece) {
  if (!extendLastChunk(piece)) addChunk(piece);
  state_.newestTime = piece.lastTime();
}

bool SampleWriter::extendLastChunk(const SampleBlock& piece) {
  const int minimumBytes = ChunkLimits::minimumBytes();
  const std::size_t recordBytes = piece.recordBytes();
  if (state_.lastChunk == 0 || state_.lastChunkBytes >= minimumBytes || recordBytes == 0) {
    return false;
  }
  std::optional<ChunkRow> last = rows_.numbered(signal_, state_.lastChunk);
  if (!last || last->points <= 0) return false;
  const ChunkBlobs blobs = bytes_.of(last->id);
  const std::size_t capacity = blobs.capacity();
  const auto points = static_cast<std::size_t>(last->points);
  const bool sameShape = points <= capacity && blobs.valueBytes == capacity * recordBytes &&
                         blobs.hasEpochs() == (piece.epochs != nullptr) &&
                         (!piece.epochs || blobs.epochBytes == capacity * sizeof(unsigned));
  const std::size_t needed = points + piece.points;
  const std::size_t most = pointsPerChunk(recordBytes);
  if (!sameShape || needed > most) return false;

  if (needed > capacity) {
    // Doubled, so that a signal fed one sample at a time copies each only a few times; never
    // beyond what the chunk will be filled to.
    const std::size_t filled =
        std::min(most, static_cast<std::size_t>(minimumBytes) / recordBytes + 1);
    bytes_.grow(blobs, std::max(needed, std::min(2 * capacity, filled)), recordBytes);
  }
  bytes_.writeBehind(blobs, points, piece);
  last->points = static_cast<int>(needed);
  last->endTime = piece.lastTime();
  chunks_.modify(*last);
  state_.lastChunkBytes = static_cast<int>(needed * recordBytes);
  state_.largestChunkBytes = std::max(state_.largestChunkBytes, state_.lastChunkBytes);
  return true;
}

void SampleWriter::addChunk(const SampleBlock& piece) {
  if (state_.lastChunk == INT_MAX || piece.valueBytes > INT_MAX || piece.points > INT_MAX) {
    kodiag::raise(
        {"nexstore:nex", "InvalidData"},
        {{"Operation", "Adding samples to signal " + std::to_string(signal_)},
         {"Reason", "a chunk of " + std::to_string(piece.valueBytes) + " bytes behind chunk " +
                        std::to_string(state_.lastChunk) + " cannot be counted"}});
  }
  chunks_.insert(signal_, state_.lastChunk + 1, piece);
  ++state_.lastChunk;
  state_.lastChunkBytes = static_cast<int>(piece.valueBytes);
  state_.largestChunkBytes = std::max(state_.largestChunkBytes, state_.lastChunkBytes);
}

void SampleWriter::dropFrom(double time) {
  if (time < -DBL_MAX) {
    chunks_.removeAll(signal_);
    takeOverLastChunk();
    return;
  }
  const std::optional<ChunkRow> reached = rows_.firstReaching(signal_, time);
  if (!reached) return;
  std::size_t kept = 0;
  {
    const ChunkBytes::Reading reading(bytes_);
    const ChunkBlobs blobs = bytes_.of(reached->id);
    kept = bytes_.lowerBound(
        blobs, std::min(static_cast<std::size_t>(reached->points), blobs.capacity()), time);
  }
  drop(*reached, kept);
}

void SampleWriter::rollBackTo(double time) {
  const RunTiming run = states_.timingOf(state_.run);
  const bool toStart = run.startTime == time && run.stepperInterval > 1;
  const std::optional<ChunkRow> reached =
      toStart ? rows_.firstReaching(signal_, time) : std::nullopt;
  if (reached)
    drop(*reached, 0);
  else
    dropFrom(time);
}

/// Leaves `kept` samples of that chunk and nothing behind it.
void SampleWriter::drop(const ChunkRow& reached, std::size_t kept) {
  const int firstRemoved = kept > 0 ? reached.number + 1 : reached.number;
  if (firstRemoved <= state_.lastChunk) chunks_.removeFrom(signal_, firstRemoved);
  if (kept > 0) trim(reached, kept);
  takeOverLastChunk();
}

void SampleWriter::trim(ChunkRow chunk, std::size_t points) {
  {
    const ChunkBytes::Reading reading(bytes_);
    bytes_.readTimes(bytes_.of(chunk.id), points - 1, 1, &chunk.endTime);
  }
  // The bytes stay: nobody reads behind the number of points, and the next append may write
  // over them.
  chunk.points = static_cast<int>(points);
  chunks_.modify(chunk);
}

void SampleWriter::dropAt(const std::vector<double>& times) {
  if (times.empty()) return;
  for (const ChunkRow& chunk : rows_.overlapping(signal_, times.front(), times.back())) {
    const auto candidate = std::lower_bound(times.begin(), times.end(), chunk.startTime);
    const bool touched = candidate != times.end() && *candidate <= chunk.endTime;
    if (touched && chunk.points > 0) dropFromChunk(chunk, times);
  }
  takeOverLastChunk();
}

void SampleWriter::dropFromChunk(const ChunkRow& chunk, const std::vector<double>& times) {
  const ChunkBlobs blobs = bytes_.of(chunk.id);
  const std::size_t points = std::min(static_cast<std::size_t>(chunk.points), blobs.capacity());
  std::vector<double> stored(points);
  {
    const ChunkBytes::Reading reading(bytes_);
    bytes_.readTimes(blobs, 0, points, stored.data());
  }
  std::vector<bool> keep(points);
  for (std::size_t i = 0; i < points; ++i) {
    keep[i] = !std::binary_search(times.begin(), times.end(), stored[i]);
  }
  const auto kept = std::count(keep.begin(), keep.end(), true);
  if (static_cast<std::size_t>(kept) == points) return;
  if (kept == 0) {
    chunks_.remove(chunk.id);
  } else {
    rewrite(chunk, blobs, stored, keep);
  }
}

void SampleWriter::rewrite(ChunkRow chunk, const ChunkBlobs& blobs,
                           const std::vector<double>& times, const std::vector<bool>& keep) {
  const std::size_t capacity = blobs.capacity();
  const bool evenRecords = blobs.valueBytes % capacity == 0;
  if (!evenRecords ||
      (blobs.hasEpochs() && blobs.epochBytes < keep.size() * sizeof(unsigned))) {
    kodiag::raise({"nexstore:nex", "InvalidData"},
                  {{"Operation", "Deleting samples of signal " + std::to_string(signal_)},
                   {"Reason", "chunk " + std::to_string(chunk.number) +
                                  " does not hold one record per time"}});
  }
  const std::size_t recordBytes = blobs.valueBytes / capacity;
  std::vector<double> keptTimes;
  for (std::size_t i = 0; i < keep.size(); ++i) {
    if (keep[i]) keptTimes.push_back(times[i]);
  }
  std::vector<char> values(keep.size() * recordBytes);
  std::vector<char> epochs(blobs.hasEpochs() ? keep.size() * sizeof(unsigned) : 0);
  {
    const ChunkBytes::Reading reading(bytes_);
    bytes_.readValues(blobs, 0, values.size(), values.data());
    if (blobs.hasEpochs()) bytes_.readEpochs(blobs, 0, keep.size(), epochs.data());
  }
  compact(values, recordBytes, keep);
  if (blobs.hasEpochs()) compact(epochs, sizeof(unsigned), keep);

  chunks_.replaceBytes(
      blobs, {reinterpret_cast<const char*>(keptTimes.data()), values.data(),
              epochs.empty() ? nullptr : epochs.data(), keptTimes.size(), values.size()});
  chunk.points = static_cast<int>(keptTimes.size());
  chunk.startTime = keptTimes.front();
  chunk.endTime = keptTimes.back();
  chunks_.modify(chunk);
}

void SampleWriter::takeOverLastChunk() {
  const std::optional<ChunkRow> last = rows_.last(signal_);
  if (!last) {
    state_.lastChunk = 0;
    state_.lastChunkBytes = 0;
    state_.newestTime = states_.timingOf(state_.run).startTime;
    return;
  }
  const ChunkBlobs blobs = bytes_.of(last->id);
  const std::size_t capacity = std::max<std::size_t>(blobs.capacity(), 1);
  state_.lastChunk = last->number;
  state_.lastChunkBytes = static_cast<int>(std::min(
      blobs.valueBytes, blobs.valueBytes * static_cast<std::size_t>(last->points) / capacity));
  state_.newestTime = last->endTime;
}

void SampleWriter::dropAll() {
  dropFrom(-std::numeric_limits<double>::infinity());
  state_.largestChunkBytes = 0;
  state_.hasDuplicateTimes = 0;
}

void SampleWriter::addChunkNumbered(int number, const SampleBlock& block) {
  chunks_.insert(signal_, number, block);
  state_.lastChunkBytes = static_cast<int>(block.valueBytes);
  state_.largestChunkBytes = std::max(state_.largestChunkBytes, state_.lastChunkBytes);
}

void SampleWriter::takeOver(const SignalState& source, bool whole) {
  state_.newestTime = source.newestTime;
  state_.lastChunk = source.lastChunk;
  state_.hasDuplicateTimes = source.hasDuplicateTimes;
  if (!whole) return;
  state_.lastChunkBytes = source.lastChunkBytes;
  state_.largestChunkBytes = source.largestChunkBytes;
}

void SampleWriter::finish() {
  states_.noteChangedSamples(signal_, state_);
  states_.write(signal_, state_);
}

}  // namespace vela
