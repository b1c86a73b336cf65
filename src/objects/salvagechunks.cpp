#include "objects/salvagechunks.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <tuple>
#include <unordered_set>

#include "objects/chunkwriter.h"
#include "objects/signalstate.h"
#include "objects/strings.h"

namespace vela {
namespace {

using kodd::SalvagedObject;
using kodd::SalvageReader;

kodd::ClassRef classNamed(SalvageReader& reader, const std::string& name) {
  return reader.metamodel().findPackage("vela").findClass(name);
}

std::vector<double> timesIn(const std::string& bytes, std::size_t points) {
  std::vector<double> times(points);
  std::memcpy(times.data(), bytes.data(), points * sizeof(double));
  return times;
}

bool couldBeTimes(const std::vector<double>& times, double start, double end) {
  return times.front() == start && times.back() == end && std::ranges::is_sorted(times) &&
         std::ranges::all_of(times, [](double time) { return std::isfinite(time); });
}

}  // namespace

/// The blobs of one chunk, and where in them its samples are.
struct SalvageChunks::Bytes {
  std::unique_ptr<SalvagedObject> timesObject;
  std::unique_ptr<SalvagedObject> valuesObject;

  const std::string& times() const { return timesObject->bytes(strings::BlobData); }
  const std::string& epochs() const { return timesObject->bytes(strings::EpochBlobData); }
  const std::string& values() const { return valuesObject->bytes(strings::BlobData); }

  /// Nothing for points that are not all there.
  std::optional<SampleBlock> block(std::size_t points) const;
};

std::optional<SampleBlock> SalvageChunks::Bytes::block(std::size_t points) const {
  const std::size_t capacity = times().size() / sizeof(double);
  if (capacity < points) return std::nullopt;
  if (!epochs().empty() && epochs().size() < points * sizeof(unsigned)) return std::nullopt;
  SampleBlock block{times().data(), values().data(),
                    epochs().empty() ? nullptr : epochs().data(), points, values().size()};
  if (capacity == points) return block;
  // Which bytes are spare can only be told where every point takes the same.
  if (values().size() % capacity != 0) return std::nullopt;
  block.valueBytes = values().size() / capacity * points;
  return block;
}

SalvageChunks::SalvageChunks(SalvageReader& reader)
    : reader_(reader),
      timesClass_(classNamed(reader, strings::TimeChunk)),
      valuesClass_(classNamed(reader, strings::DataChunk)) {
  const SalvageReader::Objects chunks =
      reader.readAll(classNamed(reader, strings::Chunk), SalvageReader::Blobs::read);
  incomplete_ = !chunks.complete;
  for (const SalvagedObject& chunk : chunks.objects) {
    bySignal_[static_cast<int>(chunk.integer(strings::Signal))].push_back(
        {chunk.id(), static_cast<int>(chunk.integer(strings::ChunkNum)),
         static_cast<int>(chunk.integer(strings::NumPoints)), chunk.real(strings::StartTime),
         chunk.real(strings::EndTime)});
  }
  for (auto& [signal, list] : bySignal_) {
    std::ranges::sort(list, {}, [](const Chunk& c) { return std::tuple(c.number, c.id); });
  }
  for (const auto& [cls, blobOf] :
       {std::pair(timesClass_, &timesOf_), std::pair(valuesClass_, &valuesOf_)}) {
    const SalvageReader::Objects blobs = reader.readAll(cls, SalvageReader::Blobs::leaveOut);
    for (const SalvagedObject& blob : blobs.objects) {
      blobOf->emplace(static_cast<int>(blob.integer(strings::Chunk)), blob.id());
    }
  }
}

std::size_t SalvageChunks::countOfOthers(const std::vector<SalvagedObject>& signals) const {
  std::unordered_set<int> known;
  for (const SalvagedObject& signal : signals) known.insert(signal.id());
  std::size_t count = 0;
  for (const auto& [signal, chunks] : bySignal_) {
    if (!known.contains(signal)) count += chunks.size();
  }
  return count;
}

bool SalvageChunks::load(const Chunk& chunk, Bytes& bytes) {
  const auto values = valuesOf_.find(chunk.id);
  if (values == valuesOf_.end()) return false;
  bytes.valuesObject = reader_.readOne(valuesClass_, values->second);
  if (!bytes.valuesObject || chunk.points == 0) return bytes.valuesObject != nullptr;
  const auto times = timesOf_.find(chunk.id);
  if (times == timesOf_.end()) return false;
  bytes.timesObject = reader_.readOne(timesClass_, times->second);
  return bytes.timesObject != nullptr;
}

SalvageChunks::Outcome SalvageChunks::copy(
    const SalvagedObject& signal, ObjectManager& manager, ObjectRef& copy,
    const std::function<void(std::uint64_t bytes)>& progress) {
  ChunkWriter& writer = manager.prepared<ChunkWriter>();
  Outcome outcome;
  int lastNumber = 0;
  std::size_t lastBytes = 0;
  double newest = -std::numeric_limits<double>::infinity();
  const std::vector<Chunk>& chunks = bySignal_[signal.id()];
  for (const Chunk& chunk : chunks) {
    const auto keep = [&] {
      Bytes bytes;
      if (chunk.points < 0 || !load(chunk, bytes)) return false;
      if (chunk.points == 0) {
        const std::string& values = bytes.values();
        writer.insert(copy.getObjectID(), 0,
                      {nullptr, values.data(), nullptr, 0, values.size()});
        return true;
      }
      const auto points = static_cast<std::size_t>(chunk.points);
      const std::optional<SampleBlock> block = bytes.block(points);
      // Two chunks of one number cannot both be right.
      if (!block || chunk.number <= lastNumber) return false;
      const std::vector<double> times = timesIn(bytes.times(), points);
      if (!couldBeTimes(times, chunk.startTime, chunk.endTime) || times.front() < newest) {
        return false;
      }
      writer.insert(copy.getObjectID(), chunk.number, *block);
      lastNumber = chunk.number;
      newest = times.back();
      lastBytes = block->valueBytes;
      outcome.samples += points;
      progress(bytes.times().size() + bytes.values().size());
      return true;
    };
    if (!keep()) ++outcome.lost;
  }
  const long long stated = signal.integer(strings::LastChunkIndex);
  // Chunks whose rows are gone show as gaps in the numbers, which removals leave as well.
  if (incomplete_) outcome.lost += std::max<long long>(0, stated - std::ssize(chunks));
  if (outcome.lost > 0 || stated < lastNumber) {
    copy.setPropertyInt32(strings::LastChunkIndex, lastNumber);
    copy.setPropertyInt32(strings::NumBytesInLastChunk, static_cast<int>(lastBytes));
    copy.setPropertyReal64(strings::SimTimeOfNewestPoint, lastNumber > 0 ? newest : 0);
    copy.setPropertyInt32(strings::MinMaxDirectReadOkay, kMinMaxStale);
  }
  return outcome;
}

}  // namespace vela
