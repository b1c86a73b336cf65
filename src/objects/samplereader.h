// Reads the samples of one signal within one read unit.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "objects/chunkbytes.h"
#include "objects/chunkrows.h"
#include "objects/elementnumbers.h"
#include "objects/leafextraction.h"
#include "objects/signal.h"
#include "objects/signalstate.h"

namespace vela {

/// The samples of one chunk that a read is about: [first, first + count) of its points.
struct ChunkSlice {
  ChunkRow chunk;
  ChunkBlobs blobs;
  std::size_t first = 0;
  std::size_t count = 0;
};

/// What has to be known of a signal before its bytes make sense.
struct SampleLayout {
  SignalState state;
  int owner = 0;  ///< the signal whose chunks are read
  std::optional<LeafExtraction> extraction;
  std::optional<std::string> typeLabel;  ///< empty until it is needed
};

/// Finds and reads the samples of a signal, those of a composite leaf in the chunks of its
/// root. Holds blobs open: lives no longer than the read unit it works in.
class SampleReader {
 public:
  /// \param extractLeaf  deliver a composite leaf's elements, not the records they lie in
  SampleReader(ObjectManager& manager, const kodd::ObjectRef& signal, bool extractLeaf);
  /// Goes on with a layout found earlier.
  SampleReader(ObjectManager& manager, const SampleLayout& layout);

  const SampleLayout& layout() const { return layout_; }
  /// The signal whose chunks are read.
  int owner() const { return layout_.owner; }
  /// Classification or built-in name of the element type; looked up once.
  const std::string& typeLabel();
  void setTypeLabel(const std::string& label) { layout_.typeLabel = label; }
  /// How the delivered elements are read as numbers.
  NumberKind numberKind();

  /// The samples in [t0, t1], both ends included. Chunks without times have none.
  std::vector<ChunkSlice> slices(double t0, double t1);
  /// What slices() would hold, found out from the rows as far as possible.
  SampleSpan span(double t0, double t1);
  /// A whole chunk, at most `mostPoints` of it.
  ChunkSlice whole(const ChunkRow& chunk, std::size_t mostPoints);

  /// Bytes of the slice's values as delivered.
  std::size_t valueBytes(const ChunkSlice& slice);
  /// Bytes of one delivered element of a composite leaf; 0 for other signals.
  std::size_t elementBytes() const {
    return layout_.extraction ? layout_.extraction->elementBytes() : 0;
  }
  /// Whether every sample of the slice has an epoch index.
  static bool hasEpochs(const ChunkSlice& slice);
  SampleExtent extentOf(const std::vector<ChunkSlice>& slices);
  /// Writes the samples of all slices where `target` says.
  void readAll(const std::vector<ChunkSlice>& slices, const SampleExtent& extent,
               SampleTarget target);
  void readTimes(const ChunkSlice& slice, double* into);
  void readEpochs(const ChunkSlice& slice, unsigned* into);
  void readValues(const ChunkSlice& slice, char* into);
  /// A whole chunk into vectors that fit it. `epochs` may be null; it is emptied when the chunk
  /// has none.
  void readWhole(const ChunkSlice& slice, std::vector<char>& values, std::vector<double>& times,
                 std::vector<unsigned>* epochs);
  /// The first stored time at or after / the last before `time`.
  std::optional<double> firstTimeFrom(double time);
  std::optional<double> lastTimeBefore(double time);
  double timeAt(const ChunkSlice& slice, std::size_t point);
  /// Adds the slice's numbers, a piece at a time.
  void addTo(NumberBounds& bounds, const ChunkSlice& slice);

 private:
  bool cut(ChunkSlice& slice, double t0, double t1);
  std::size_t storedOffset(const ChunkBlobs& blobs, std::size_t point);
  std::size_t bytesWithoutTimes(const ChunkSlice& slice);
  template <class Consume>
  void forEachPiece(const ChunkSlice& slice, Consume consume);

  ObjectManager& manager_;
  ChunkRows& rows_;
  ChunkBytes& bytes_;
  ChunkBytes::Reading reading_;
  SampleLayout layout_;
  std::vector<char> piece_;
  std::vector<char> extracted_;
};

}  // namespace vela
