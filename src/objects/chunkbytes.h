// The bytes of one chunk after another: times, epoch indices and values, in place.
#pragma once

#include <cstddef>
#include <cstring>
#include <vector>

#include "objectmanager/objectmanager.h"

namespace vela {

/// The objects that hold a chunk's bytes; ID 0 and no bytes for one that is missing.
struct ChunkBlobs {
  int timesID = 0;
  std::size_t timeBytes = 0;
  std::size_t epochBytes = 0;
  int valuesID = 0;
  std::size_t valueBytes = 0;

  /// The number of points there is room for.
  std::size_t capacity() const { return timeBytes / sizeof(double); }
  bool hasEpochs() const { return epochBytes > 0; }
};

/// All bytes of a chunk. Empty where the chunk has none.
struct LoadedChunk {
  std::vector<char> times;
  std::vector<char> epochs;
  std::vector<char> values;

  /// The number of points there is room for.
  std::size_t capacity() const { return times.size() / sizeof(double); }
  ChunkBlobs blobs() const { return {0, times.size(), epochs.size(), 0, values.size()}; }
};

/// What to copy of a chunk's blobs, and where to.
struct ChunkParts {
  kodd::BlobPart times;
  kodd::BlobPart epochs;
  kodd::BlobPart values;
};

/// Packed bytes of the caller, not copied. `epochs` is null without epochs; values without
/// times count 0 points.
struct SampleBlock {
  const char* times = nullptr;
  const char* values = nullptr;
  const char* epochs = nullptr;
  std::size_t points = 0;
  std::size_t valueBytes = 0;

  /// Bytes of the values of one point; 0 when the points do not share them evenly.
  std::size_t recordBytes() const {
    return points > 0 && valueBytes % points == 0 ? valueBytes / points : 0;
  }
  double time(std::size_t point) const {
    double value;
    std::memcpy(&value, times + point * sizeof value, sizeof value);
    return value;
  }
  double firstTime() const { return time(0); }
  double lastTime() const { return time(points - 1); }
};

/// Reads and writes the blobs of "TimeChunk" and "DataChunk". Calls come one at a time, from
/// within a unit of work or read unit; a range beyond the end of a blob raises.
///
/// The blobs of a chunk have room for the same number of points; what lies behind the chunk's
/// "NumPoints" is meaningless.
class ChunkBytes : public PreparedSet {
 public:
  explicit ChunkBytes(ObjectManager& manager);

  /// Reading moves open blobs from chunk to chunk, which pins the state of the file: they are
  /// closed with this guard, which spans one operation.
  class Reading {
   public:
    explicit Reading(ChunkBytes& bytes) : bytes_(bytes) {}
    ~Reading() { bytes_.closeReaders(); }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

   private:
    ChunkBytes& bytes_;
  };

  ChunkBlobs of(int chunk);
  /// Everything at once, which is cheaper as long as it is little. Valid until the next call.
  const LoadedChunk& load(int chunk);
  /// The same for parts, straight to where they are wanted.
  ///
  /// \returns the sizes of the blobs, from which the caller tells whether the parts were there
  ChunkBlobs copy(int chunk, const ChunkParts& parts);

  // Points and bytes count from the start of the chunk.
  void readTimes(const ChunkBlobs& blobs, std::size_t first, std::size_t count, double* into);
  void readEpochs(const ChunkBlobs& blobs, std::size_t first, std::size_t count, void* into);
  void readValues(const ChunkBlobs& blobs, std::size_t offset, std::size_t byteCount,
                  char* into);
  /// Index of the first of `points` times that is not less than `time`; `points` if none.
  std::size_t lowerBound(const ChunkBlobs& blobs, std::size_t points, double time);
  /// Index of the first of `points` times that is greater than `time`; `points` if none.
  std::size_t upperBound(const ChunkBlobs& blobs, std::size_t points, double time);

  /// Makes room for `points` points; what is there stays.
  void grow(const ChunkBlobs& blobs, std::size_t points, std::size_t recordBytes);
  /// Writes the block behind the first `points` points; the room must be there.
  void writeBehind(const ChunkBlobs& blobs, std::size_t points, const SampleBlock& block);

 private:
  /// A blob property with the one blob of it that is open.
  struct OpenBlob {
    OpenBlob(const kodd::PropertyRef& property, ObjectManager& manager,
             kodd::BlobStream::Access access)
        : stream(property, manager.repository(), access) {}

    kodd::BlobStream& of(int objectID);
    void close();

    kodd::BlobStream stream;
    int openID = 0;
  };

  void closeReaders();
  template <class Before>
  std::size_t partitionPoint(const ChunkBlobs& blobs, std::size_t points, Before before);

  int chunk_ = 0;
  ChunkBlobs found_;
  kodd::BlobSizeInfo timeSize_;
  kodd::BlobSizeInfo epochSize_;
  kodd::BlobSizeInfo valueSize_;
  kodd::ObjectQuery timesOfChunk_;
  kodd::ObjectQuery valuesOfChunk_;
  LoadedChunk loaded_;
  kodd::ObjectQuery loadTimes_;
  kodd::ObjectQuery loadValues_;
  ChunkParts parts_;
  kodd::ObjectQuery copyTimes_;
  kodd::ObjectQuery copyValues_;

  OpenBlob timeReader_;
  OpenBlob epochReader_;
  OpenBlob valueReader_;
  OpenBlob timeWriter_;
  OpenBlob epochWriter_;
  OpenBlob valueWriter_;
};

}  // namespace vela
