#include "sqldb/writeturn.h"

namespace sqldb {

void WriteTurn::take(std::string_view operation) {
  lock_.acquireWrite(operation, timeout_);
  refuseMovedFile(operation);
}

bool WriteTurn::takeWithin(std::chrono::milliseconds timeout, std::string_view operation) {
  if (!lock_.tryAcquireWrite(timeout)) return false;
  refuseMovedFile(operation);
  return true;
}

void WriteTurn::give() noexcept {
  if (!connection_.inTransaction()) log_.afterCommit();
  lock_.releaseWrite();
}

void WriteTurn::refuseMovedFile(std::string_view operation) {
  if (!connection_.findMoved()) return;
  lock_.releaseWrite();
  connection_.raiseMoved(operation);
}

}  // namespace sqldb
