// Changes the samples of one signal within one unit of work.
#pragma once

#include <cstddef>
#include <vector>

#include "objects/chunkwriter.h"
#include "objects/signalstate.h"

namespace vela {

/// Sizes that decide when appends are merged and split. Process-wide, bytes.
struct ChunkLimits {
  /// Appends go into the newest chunk while its values take less; 0 turns that off.
  static int minimumBytes();
  static void setMinimumBytes(int bytes);
  /// No append makes a chunk with more bytes of values, or of times.
  static std::size_t maximumBytes();
  static void setMaximumBytes(std::size_t bytes);
};

/// Appends and drops samples of a signal that owns its chunks, keeping the bookkeeping true.
///
/// Reads the signal's bookkeeping when it is made and writes it in finish(), without which the
/// signal is left inconsistent: everything happens in one unit of work.
class SampleWriter {
 public:
  SampleWriter(ObjectManager& manager, const kodd::ObjectRef& signal);
  SampleWriter(ObjectManager& manager, int signal);

  const SignalState& state() const { return state_; }
  /// ID of the signal whose chunks hold the samples.
  int owner() const { return state_.isCompositeLeaf() ? state_.dataOwner : signal_; }

  /// Appends samples with valid times; drops stored ones from an earlier first time on.
  void append(const SampleBlock& block);
  /// Drops the samples at and after `time`.
  void dropFrom(double time);
  /// The same for a simulation that goes back to `time`: a run that is stepped more than one
  /// step at a time and goes back to its start loses the whole chunk the start lies in.
  void rollBackTo(double time);
  /// Drops every sample at one of these times, which must be sorted and not NaN.
  void dropAt(const std::vector<double>& times);
  void dropAll();
  /// Adds a copy of a chunk of another signal; for use on one without chunks.
  void addChunkNumbered(int number, const SampleBlock& block);
  /// Ends the copying of all chunks of `source`. \param whole  whether the values are its own
  void takeOver(const SignalState& source, bool whole);
  void noteDuplicateTimes() { state_.hasDuplicateTimes = 1; }
  void finish();

 private:
  void drop(const ChunkRow& reached, std::size_t kept);
  void appendPiece(const SampleBlock& piece);
  bool extendLastChunk(const SampleBlock& piece);
  void addChunk(const SampleBlock& piece);
  void trim(ChunkRow chunk, std::size_t points);
  void dropFromChunk(const ChunkRow& chunk, const std::vector<double>& times);
  void rewrite(ChunkRow chunk, const ChunkBlobs& blobs, const std::vector<double>& times,
               const std::vector<bool>& keep);
  void takeOverLastChunk();

  SignalStates& states_;
  ChunkRows& rows_;
  ChunkBytes& bytes_;
  ChunkWriter& chunks_;
  int signal_;
  SignalState state_;
};

}  // namespace vela
