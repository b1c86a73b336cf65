// The samples of a damaged file: which chunks are whole, and putting them into a repository.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "kodd/salvagereader.h"
#include "objectmanager/objectmanager.h"

namespace vela {

/// Finds the chunks of a damaged file and copies those whose blobs are there, long enough and
/// in agreement with what the chunk says of them: times that are finite, never decrease, and
/// begin and end where they should. The rest is counted.
class SalvageChunks {
 public:
  explicit SalvageChunks(kodd::SalvageReader& reader);

  /// Whether some chunk may be unknown.
  bool isIncomplete() const { return incomplete_; }
  /// Chunks of signals other than these.
  std::size_t countOfOthers(const std::vector<kodd::SalvagedObject>& signals) const;

  struct Outcome {
    std::uint64_t samples = 0;
    long long lost = 0;  ///< chunks the signal had and has no more
  };
  /// Copies the chunks of a signal and puts its bookkeeping right. Works inside a unit of work.
  /// \param copy  the signal in the repository
  Outcome copy(const kodd::SalvagedObject& signal, ObjectManager& manager, ObjectRef& copy,
               const std::function<void(std::uint64_t bytes)>& progress);

 private:
  struct Chunk {
    int id;
    int number;
    int points;
    double startTime;
    double endTime;
  };
  struct Bytes;

  bool load(const Chunk& chunk, Bytes& bytes);

  kodd::SalvageReader& reader_;
  kodd::ClassRef timesClass_;
  kodd::ClassRef valuesClass_;
  std::unordered_map<int, std::vector<Chunk>> bySignal_;  ///< in the order of their numbers
  std::unordered_map<int, int> timesOf_;                  ///< "TimeChunk" by chunk
  std::unordered_map<int, int> valuesOf_;                 ///< "DataChunk" by chunk
  bool incomplete_ = false;
};

}  // namespace vela
