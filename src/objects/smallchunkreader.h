// Reads ranges of signals whose chunks are small.
#pragma once

#include <functional>
#include <vector>

#include "objects/samplereader.h"

namespace vela {

/// Loads each chunk once and whole, instead of looking at its blobs first and then reading the
/// part that is wanted. Takes for granted that all chunks are made like the first of the range,
/// and steps back where they are not.
class SmallChunkReader {
 public:
  SmallChunkReader(ObjectManager& manager, const SampleLayout& layout);

  using Allocate = std::function<SampleTarget(const SampleExtent&)>;
  /// \returns false, whatever was written, for a signal whose chunks are large or unlike
  bool read(double t0, double t1, const Allocate& allocate, SampleExtent& extent);

 private:
  struct Slice {
    ChunkRow chunk;
    std::size_t first;
    std::size_t count;
  };

  bool chunksAreSmall();
  void load(const ChunkRow& chunk);
  bool learnMake();
  bool isMadeLikeFirst(const ChunkRow& chunk, const ChunkBlobs& blobs) const;
  bool plan(const ChunkRow& chunk, double t0, double t1);
  void cut(Slice& slice, double t0, double t1) const;
  void add(const Slice& slice);
  bool copy(const Slice& slice, const SampleTarget& target) const;
  bool extract(const Slice& slice, const SampleTarget& target);
  void advance(SampleTarget& target, std::size_t points) const;
  double loadedTime(std::size_t point) const;

  ObjectManager& manager_;
  const SampleLayout& layout_;
  ChunkBytes& bytes_;

  const LoadedChunk* loaded_ = nullptr;
  int loadedID_ = 0;
  std::size_t recordBytes_ = 0;
  bool hasEpochs_ = false;
  std::vector<Slice> slices_;
  SampleExtent extent_;
};

}  // namespace vela
