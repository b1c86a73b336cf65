#include "sqldb/writeturn.h"

#include "kodiag/message.h"

namespace sqldb {

void WriteTurn::take(std::string_view operation) {
  refuseReadOnly(operation);
  if (!lock_.tryAcquireWrite(operation, std::chrono::milliseconds(0))) {
    const EngineGate::Pause outside(connection_.gate());
    lock_.acquireWrite(operation, timeout_);
  }
  refuseUnlessInPlace(operation);
}

bool WriteTurn::takeWithin(std::chrono::milliseconds timeout, std::string_view operation) {
  refuseReadOnly(operation);
  if (!lock_.tryAcquireWrite(operation, timeout)) return false;
  refuseUnlessInPlace(operation);
  return true;
}

void WriteTurn::refuseLostFiles(std::string_view operation) {
  if (sideFiles_.areInPlace()) return;
  if (connection_.isReadOnly()) sideFiles_.giveUp(operation);
  take(operation);
  give();
}

void WriteTurn::refuseReadOnly(std::string_view operation) {
  if (!connection_.isReadOnly()) return;
  kodiag::raise({"KODD:kodd", "ReadOnly"}, {{"Operation", std::string(operation)},
                                            {"Location", connection_.path()},
                                            {"Reason", "it was opened for reading"}});
}

void WriteTurn::give() noexcept {
  // A log whose index others do not see must not be copied beside their work.
  if (!connection_.inTransaction() && log_.isLong() && sideFiles_.areInPlace()) log_.copySome();
  lock_.releaseWrite();
}

void WriteTurn::refuseUnlessInPlace(std::string_view operation) {
  try {
    if (connection_.findMoved()) connection_.raiseMoved(operation);
    sideFiles_.refuseUnlessInPlace(operation);
  } catch (...) {
    lock_.releaseWrite();
    throw;
  }
}

}  // namespace sqldb
