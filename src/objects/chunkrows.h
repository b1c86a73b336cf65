// Which chunks a signal has: their numbers, sizes and time spans.
#pragma once

#include <optional>
#include <vector>

#include "objectmanager/objectmanager.h"

namespace vela {

struct ChunkRow {
  int id = 0;
  int number = 0;  ///< from 1; 0 for a chunk without times
  int points = 0;
  double startTime = 0;
  double endTime = 0;
};

/// Queries on "Chunk". Reading order is that of the times, and of the numbers where these are
/// equal. Calls come one at a time, from within a unit of work or read unit.
class ChunkRows : public PreparedSet {
 public:
  explicit ChunkRows(ObjectManager& manager);

  std::optional<ChunkRow> withID(int chunk);
  std::optional<ChunkRow> numbered(int signal, int number);

  // The following three see only chunks with times.
  std::optional<ChunkRow> first(int signal);
  std::optional<ChunkRow> last(int signal);
  /// The first chunk in reading order that ends at or after `time`.
  std::optional<ChunkRow> firstReaching(int signal, double time);
  /// The last chunk in reading order that ends before `time`.
  std::optional<ChunkRow> lastBefore(int signal, double time);

  /// The chunks that touch [t0, t1], in reading order; none when t0 > t1 or one is NaN. The
  /// finite extremes and infinities select every chunk.
  std::vector<ChunkRow> overlapping(int signal, double t0, double t1);
  /// Every chunk, those without times first.
  std::vector<ChunkRow> all(int signal);

 private:
  kodd::PropertyRef property(const std::string& name) const;
  kodd::ObjectQuery makeQuery();
  kodd::ObjectQuery makeQueryOfSignal();
  kodd::ObjectQuery makeQueryOfTimed();
  std::optional<ChunkRow> one(kodd::ObjectQuery& query);

  ObjectManager& manager_;
  kodd::ClassRef class_;

  // What the queries are bound to.
  int chunk_ = 0;
  int signal_ = 0;
  int number_ = 0;
  double time_ = 0;
  const int noPoints_ = 0;
  ChunkRow row_;

  kodd::ObjectQuery withID_;
  kodd::ObjectQuery numbered_;
  kodd::ObjectQuery first_;
  kodd::ObjectQuery last_;
  kodd::ObjectQuery reaching_;
  kodd::ObjectQuery firstReaching_;
  kodd::ObjectQuery lastBefore_;
  kodd::ObjectQuery all_;
};

}  // namespace vela
