// Creates, changes and removes chunks.
#pragma once

#include "objects/chunkbytes.h"
#include "objects/chunkrows.h"

namespace vela {

/// Statements that write "Chunk", "TimeChunk" and "DataChunk" objects. Calls come one at a
/// time, from within a unit of work; every failure is raised.
class ChunkWriter : public PreparedSet {
 public:
  explicit ChunkWriter(ObjectManager& manager);

  /// A new chunk with exactly the block's bytes. One without points gets no number and no
  /// times.
  void insert(int signal, int number, const SampleBlock& block);
  /// Writes number of points and time span of the row.
  void modify(const ChunkRow& row);
  /// Puts the block in place of all bytes of the chunk.
  void replaceBytes(const ChunkBlobs& blobs, const SampleBlock& block);

  void remove(int chunk);
  /// Chunks with that number and greater ones.
  void removeFrom(int signal, int number);
  void removeAll(int signal);

 private:
  void bindBytes(const SampleBlock& block);
  void removeSelected(const kodd::Selection& chunks);
  kodd::Selection ofSignal(int signal) const;

  ObjectManager& manager_;
  kodd::ClassRef chunkClass_;
  kodd::ClassRef timesClass_;
  kodd::ClassRef valuesClass_;

  // What the writers are bound to.
  int signal_ = 0;
  ChunkRow row_;
  kodd::const_BlobDescriptor times_;
  kodd::const_BlobDescriptor epochs_;
  kodd::const_BlobDescriptor values_;

  kodd::ObjectConstructor newChunk_;
  kodd::ObjectConstructor newTimelessChunk_;
  kodd::ObjectConstructor newTimes_;
  kodd::ObjectConstructor newTimesWithEpochs_;
  kodd::ObjectConstructor newValues_;
  kodd::ObjectModifier chunkModifier_;
  kodd::ObjectModifier timesModifier_;
  kodd::ObjectModifier valuesModifier_;
  kodd::ObjectDeleter chunkDeleter_;
  kodd::ObjectDeleter timesDeleter_;
  kodd::ObjectDeleter valuesDeleter_;
};

}  // namespace vela
