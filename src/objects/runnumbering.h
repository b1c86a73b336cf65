// The numbers of runs and their places in the list of an instance.
#pragma once

#include <memory>
#include <string>

#include "objectmanager/objectmanager.h"

namespace vela {

/// Hands out the next numbers and places of this instance, in memory until store(). To be used
/// in one unit of work, after ObjectManager::ensureInstanceRecords().
class RunNumbering {
 public:
  explicit RunNumbering(ObjectManager& manager);

  /// \throws "nexstore:nex:InvalidData" when the counter is used up
  int nextNumber();
  /// The next place at the top or the bottom of the list; 0 while the instance has no single
  /// record of its own. \throws as nextNumber()
  int nextPlace();
  /// Keeps what was handed out; writes nothing when nothing was.
  void store();

 private:
  ObjectManager& manager_;
  int highest_;
  bool numberTaken_ = false;
  std::unique_ptr<ObjectRef> order_;
  bool atTop_ = false;
  int lastPlace_ = 0;
  bool placeTaken_ = false;
};

/// Makes the record of a run's number.
void createRunNumber(ObjectManager& manager, int runID, int number);

/// Seconds since 1970-01-01 UTC.
double secondsSince1970();

}  // namespace vela
