// Object IDs: unique over all classes of a file, never given twice, their class known from
// them.
#pragma once

#include <cstddef>
#include <functional>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "kodd/layout.h"
#include "sqldb/database.h"

namespace kodd {

/// Hands out IDs from blocks of 256 that the file keeps per class: the ID is block * 256 + n.
///
/// A block belongs to the process that reserved it for as long as its session lives, and no
/// other process ever gets it: the highest number is noted beside the file, where no rollback
/// undoes it. An ID that was taken in a level that is later undone is not given again; a block
/// reserved in such a level is gone from the file and is reserved anew. So IDs of one class
/// rise in the order of creation.
///
/// Threads: whoever has the turn to write; classOf() from any.
class IdAllocator {
 public:
  static constexpr int kBlockSize = 256;      // Stored in every ID; never change.
  static constexpr int kLastBlock = 8388607;  ///< its IDs are the last of 31 bits

  /// The connection that the calling thread works with.
  using Connection = std::function<sqldb::Database&()>;

  IdAllocator(Connection database, const Layout& layout);

  /// Whether an ID of the class is at hand; else reserve() has to come first.
  bool hasFree(const ClassInfo& cls) const { return state(cls).left > 0; }
  /// Needs a writing unit. \throws "KODD:kodd:OutOfIDs"
  void reserve(const ClassInfo& cls);
  /// The next ID; the same one until take(). Needs hasFree().
  int next(const ClassInfo& cls) const;
  void take(const ClassInfo& cls);
  /// `count` IDs from `first` on.
  struct Range {
    int first;
    int count;
  };
  /// Takes so many IDs, ascending, in as few ranges as the blocks allow. Needs a writing unit.
  std::vector<Range> takeMany(const ClassInfo& cls, long long count);

  /// The class an ID belongs to, whether or not there is such an object; null when none or one
  /// that the schema does not know.
  const ClassInfo* classOf(int id);

  /// Which reservations are not committed yet: the mark of a level when it opens.
  std::size_t mark() const { return uncommitted_.size(); }
  /// Gives up the blocks reserved since the mark, which the file has forgotten.
  void rolledBack(std::size_t mark) noexcept;
  void committed() noexcept { uncommitted_.clear(); }

 private:
  struct State {
    int block = 0;
    int left = 0;      ///< IDs of `block` not given yet
    int orphaned = 0;  ///< IDs left of `block` when its reservation was undone
  };
  struct Reservation {
    int block;
    const ClassInfo* cls;
  };

  const State& state(const ClassInfo& cls) const {
    return states_[static_cast<std::size_t>(cls.index)];
  }
  State& state(const ClassInfo& cls) { return states_[static_cast<std::size_t>(cls.index)]; }
  bool insertBlock(int block, const ClassInfo& cls);
  bool reclaimOrphan(const ClassInfo& cls);
  int freshBlock() const;

  void rememberClass(int block, const ClassInfo* cls);

  Connection database_;
  const Layout& layout_;
  std::vector<State> states_;
  std::mutex classesMutex_;
  std::unordered_map<int, const ClassInfo*> classes_;  ///< by block
  std::vector<Reservation> uncommitted_;
  int highestBlock_ = 0;  ///< ever reserved here, kept or not
};

}  // namespace kodd
