// Bulk deletions: objects collected per class and deleted together.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <vector>

#include "kodd/preparedwriters.h"

namespace vela {

/// The pending deletions of one thread in one manager, by class.
class BulkDeletions {
 public:
  /// What is to be deleted of one class.
  class Pending {
   public:
    Pending(const kodd::ClassRef& cls, kodd::DataModelRepository& repository,
            std::uint64_t begun)
        : deleter_(cls, repository), begun_(begun) {}

    std::uint64_t begun() const { return begun_; }
    void add(const kodd::ObjectRef& object, std::uint64_t order);
    void dropFrom(std::uint64_t order);
    void deleteAll(kodiag::util::diagnostics& diag);

   private:
    kodd::ObjectDeleter deleter_;
    std::uint64_t begun_;
    std::vector<kodd::ObjectRef> objects_;
    std::vector<std::uint64_t> orders_;  ///< of the objects, increasing
  };

  BulkDeletions() { pending_.max_load_factor(1.0f); }

  /// Keeps what was collected when the class is pending already.
  void begin(const kodd::ClassRef& cls, kodd::DataModelRepository& repository);
  /// \returns whether the object's class is pending, i.e. the object was taken
  bool add(const kodd::ObjectRef& object);
  /// Ends the collection of the class; none when it was not pending.
  std::optional<Pending> take(const kodd::ClassRef& cls);
  /// \returns how many brackets were open before
  int openBracket();
  /// \returns how many are open still
  int closeBracket();
  int openBrackets() const { return static_cast<int>(brackets_.size()); }
  void clear();

  /// The moment up to now: what is begun, opened or added later is dropped by rollBackTo(mark).
  std::uint64_t mark() const { return nextOrder_; }
  void rollBackTo(std::uint64_t mark);

 private:
  std::unordered_map<kodd::ClassRef, Pending> pending_;
  std::vector<std::uint64_t> brackets_;  ///< when the open ones were opened, increasing
  std::uint64_t nextOrder_ = 0;
};

}  // namespace vela
