// Hands the samples of a time range out one chunk at a time.
#pragma once

#include <memory>
#include <vector>

#include "objects/signal.h"

namespace vela {

/// Reads whole chunks that overlap a range, in reading order, trading buffers with the caller
/// so that nothing is allocated per chunk.
///
/// The chunks and the number of samples in each are fixed at construction: samples appended
/// later are not seen. Borrows the signal. Not shared between threads.
class Signal::DataRangeIterator {
 public:
  /// \param minTime, maxTime  both ends included; the finite extremes or infinities read all
  /// \param extractLeaf       deliver the elements of a composite leaf, not its root's records
  DataRangeIterator(Signal& signal, double minTime, double maxTime, bool wantEpochs,
                    bool extractLeaf);
  /// The whole signal.
  DataRangeIterator(Signal& signal, bool wantEpochs, bool extractLeaf);
  ~DataRangeIterator();
  DataRangeIterator(const DataRangeIterator&) = delete;
  DataRangeIterator& operator=(const DataRangeIterator&) = delete;

  unsigned getNumChunks() const;
  /// The next chunk, whole. After the last one `hasMore` becomes false and the vectors keep
  /// what they held. A chunk that has vanished meanwhile gives empty vectors.
  void getNext(std::vector<char>& values, std::vector<double>& times,
               std::vector<unsigned>* epochs, bool& hasMore);
  /// Gives the iterator the caller's buffers when they are larger than its own.
  void swapIteratorVectors(std::vector<char>& values, std::vector<double>& times,
                           std::vector<unsigned>* epochs);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vela
