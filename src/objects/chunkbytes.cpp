#include "objects/chunkbytes.h"

#include <algorithm>
#include <array>

#include "objects/raising.h"
#include "objects/strings.h"

namespace vela {
namespace {

using Access = kodd::BlobStream::Access;

/// Closes a blob at the end of its scope: an open one would be in the way of other writes.
template <class Blob>
class Closing {
 public:
  explicit Closing(Blob& blob) : blob_(blob) {}
  ~Closing() { blob_.close(); }
  Closing(const Closing&) = delete;
  Closing& operator=(const Closing&) = delete;

 private:
  Blob& blob_;
};

}  // namespace

kodd::BlobStream& ChunkBytes::OpenBlob::of(int objectID) {
  if (openID != objectID) {
    openID = 0;
    raising([&](auto& diag) { stream.open(objectID, diag); });
    openID = objectID;
  }
  return stream;
}

void ChunkBytes::OpenBlob::close() {
  stream.close();
  openID = 0;
}

ChunkBytes::ChunkBytes(ObjectManager& manager)
    : timesOfChunk_(manager.repository()),
      valuesOfChunk_(manager.repository()),
      loadTimes_(manager.repository()),
      loadValues_(manager.repository()),
      copyTimes_(manager.repository()),
      copyValues_(manager.repository()),
      timeReader_(manager.getPropertyRef(strings::TimeChunk, strings::BlobData), manager,
                  Access::read),
      epochReader_(manager.getPropertyRef(strings::TimeChunk, strings::EpochBlobData), manager,
                   Access::read),
      valueReader_(manager.getPropertyRef(strings::DataChunk, strings::BlobData), manager,
                   Access::read),
      timeWriter_(manager.getPropertyRef(strings::TimeChunk, strings::BlobData), manager,
                  Access::write),
      epochWriter_(manager.getPropertyRef(strings::TimeChunk, strings::EpochBlobData), manager,
                   Access::write),
      valueWriter_(manager.getPropertyRef(strings::DataChunk, strings::BlobData), manager,
                   Access::write) {
  const kodd::ClassRef timesClass = manager.getClass(strings::TimeChunk);
  const kodd::ClassRef valuesClass = manager.getClass(strings::DataChunk);
  const kodd::PropertyRef times = timesClass.findProperty(strings::BlobData);
  const kodd::PropertyRef epochs = timesClass.findProperty(strings::EpochBlobData);
  const kodd::PropertyRef values = valuesClass.findProperty(strings::BlobData);
  const auto ofChunk = [&](kodd::ObjectQuery& query, const kodd::ClassRef& cls) {
    query.addConstraint(cls.findProperty(strings::Chunk),
                        kodd::PropertyValueMatchRelation::Equal, &chunk_);
    query.setLimit(1);
  };
  ofChunk(timesOfChunk_, timesClass);
  timesOfChunk_.addResultID(timesClass, &found_.timesID);
  timesOfChunk_.addResultProperty(times, &timeSize_);
  timesOfChunk_.addResultProperty(epochs, &epochSize_);
  ofChunk(valuesOfChunk_, valuesClass);
  valuesOfChunk_.addResultID(valuesClass, &found_.valuesID);
  valuesOfChunk_.addResultProperty(values, &valueSize_);
  ofChunk(loadTimes_, timesClass);
  loadTimes_.addResultProperty(times, &loaded_.times);
  loadTimes_.addResultProperty(epochs, &loaded_.epochs);
  ofChunk(loadValues_, valuesClass);
  loadValues_.addResultProperty(values, &loaded_.values);
  ofChunk(copyTimes_, timesClass);
  copyTimes_.addResultProperty(times, &parts_.times);
  copyTimes_.addResultProperty(epochs, &parts_.epochs);
  ofChunk(copyValues_, valuesClass);
  copyValues_.addResultProperty(values, &parts_.values);
}

ChunkBlobs ChunkBytes::of(int chunk) {
  chunk_ = chunk;
  found_ = {};
  if (raising([&](auto& diag) { return timesOfChunk_.executeForOne(diag); })) {
    found_.timeBytes = timeSize_.length;
    found_.epochBytes = epochSize_.length;
  }
  if (raising([&](auto& diag) { return valuesOfChunk_.executeForOne(diag); })) {
    found_.valueBytes = valueSize_.length;
  }
  return found_;
}

const LoadedChunk& ChunkBytes::load(int chunk) {
  chunk_ = chunk;
  if (!raising([&](auto& diag) { return loadTimes_.executeForOne(diag); })) {
    loaded_.times.clear();
    loaded_.epochs.clear();
  }
  if (!raising([&](auto& diag) { return loadValues_.executeForOne(diag); })) {
    loaded_.values.clear();
  }
  return loaded_;
}

ChunkBlobs ChunkBytes::copy(int chunk, const ChunkParts& parts) {
  chunk_ = chunk;
  parts_ = parts;
  ChunkBlobs blobs;
  if (raising([&](auto& diag) { return copyTimes_.executeForOne(diag); })) {
    blobs.timeBytes = parts_.times.blobLength;
    blobs.epochBytes = parts_.epochs.blobLength;
  }
  if (raising([&](auto& diag) { return copyValues_.executeForOne(diag); })) {
    blobs.valueBytes = parts_.values.blobLength;
  }
  return blobs;
}

void ChunkBytes::readTimes(const ChunkBlobs& blobs, std::size_t first, std::size_t count,
                           double* into) {
  if (count == 0) return;
  raising([&](auto& diag) {
    timeReader_.of(blobs.timesID)
        .read(first * sizeof(double), count * sizeof(double), into, diag);
  });
}

void ChunkBytes::readEpochs(const ChunkBlobs& blobs, std::size_t first, std::size_t count,
                            void* into) {
  if (count == 0) return;
  raising([&](auto& diag) {
    epochReader_.of(blobs.timesID)
        .read(first * sizeof(unsigned), count * sizeof(unsigned), into, diag);
  });
}

void ChunkBytes::readValues(const ChunkBlobs& blobs, std::size_t offset, std::size_t byteCount,
                            char* into) {
  if (byteCount == 0) return;
  raising(
      [&](auto& diag) { valueReader_.of(blobs.valuesID).read(offset, byteCount, into, diag); });
}

template <class Before>
std::size_t ChunkBytes::partitionPoint(const ChunkBlobs& blobs, std::size_t points,
                                       Before before) {
  // Single times are read until what is left comes in one piece.
  std::array<double, 128> piece;
  std::size_t first = 0;
  std::size_t last = points;
  while (last - first > piece.size()) {
    const std::size_t middle = first + (last - first) / 2;
    double time = 0;
    readTimes(blobs, middle, 1, &time);
    if (before(time)) {
      first = middle + 1;
    } else {
      last = middle;
    }
  }
  readTimes(blobs, first, last - first, piece.data());
  const auto end = piece.begin() + static_cast<std::ptrdiff_t>(last - first);
  return first + static_cast<std::size_t>(std::partition_point(piece.begin(), end, before) -
                                          piece.begin());
}

std::size_t ChunkBytes::lowerBound(const ChunkBlobs& blobs, std::size_t points, double time) {
  return partitionPoint(blobs, points, [time](double stored) { return stored < time; });
}

std::size_t ChunkBytes::upperBound(const ChunkBlobs& blobs, std::size_t points, double time) {
  return partitionPoint(blobs, points, [time](double stored) { return stored <= time; });
}

void ChunkBytes::grow(const ChunkBlobs& blobs, std::size_t points, std::size_t recordBytes) {
  const auto growOne = [](OpenBlob& writer, int objectID, std::size_t byteCount) {
    const Closing closing(writer);
    raising([&](auto& diag) { writer.of(objectID).growTo(byteCount, diag); });
  };
  growOne(timeWriter_, blobs.timesID, points * sizeof(double));
  if (blobs.hasEpochs()) growOne(epochWriter_, blobs.timesID, points * sizeof(unsigned));
  growOne(valueWriter_, blobs.valuesID, points * recordBytes);
}

void ChunkBytes::writeBehind(const ChunkBlobs& blobs, std::size_t points,
                             const SampleBlock& block) {
  const auto writeOne = [&](OpenBlob& writer, int objectID, const char* bytes,
                            std::size_t pointBytes) {
    const Closing closing(writer);
    raising([&](auto& diag) {
      writer.of(objectID).write(points * pointBytes, block.points * pointBytes, bytes, diag);
    });
  };
  writeOne(timeWriter_, blobs.timesID, block.times, sizeof(double));
  if (block.epochs) writeOne(epochWriter_, blobs.timesID, block.epochs, sizeof(unsigned));
  writeOne(valueWriter_, blobs.valuesID, block.values, block.recordBytes());
}

void ChunkBytes::closeReaders() {
  timeReader_.close();
  epochReader_.close();
  valueReader_.close();
}

}  // namespace vela
