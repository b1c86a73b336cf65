#include "sqldb/levels.h"

#include <sqlite3.h>

#include "kodiag/message.h"

namespace sqldb {

void Levels::begin(Database::Access access, std::string_view operation) {
  refuseWhenLost(operation);
  // A unit that turns out to write nothing may do so anywhere.
  if (connection_.isReadOnly()) access = Database::Access::read;
  if (access == Database::Access::write && !writing_) {
    beginWriting(operation);
  } else if (depth_ == 0) {
    beginReading(operation);
  }
  push(operation);
  if (listener_ != nullptr) listener_->levelOpened();
}

bool Levels::tryBeginWriting(std::string_view operation) {
  refuseWhenLost(operation);
  if (!writing_) {
    if (!turn_.takeWithin(std::chrono::milliseconds(0), operation)) return false;
    if (depth_ == 0) {
      if (const int code = connection_.control(Control::begin); code != SQLITE_OK) {
        const Failure failure = connection_.failure(code);
        turn_.give();
        connection_.raise(failure, operation);
      }
    }
    writing_ = true;
    readingBelow_ = depth_;
  }
  push(operation);
  if (listener_ != nullptr) listener_->levelOpened();
  return true;
}

void Levels::beginReading(std::string_view operation) {
  turn_.refuseLostFiles(operation);
  if (const int code = connection_.control(Control::begin); code != SQLITE_OK) {
    connection_.raise(code, operation);
  }
}

void Levels::beginWriting(std::string_view operation) {
  turn_.take(operation);
  // What was read may be older than the newest commit, and nothing can be written on top of
  // that. Nothing has been written yet, so the transaction can be ended and begun anew.
  int code = depth_ > 0 ? connection_.control(Control::commit) : SQLITE_OK;
  if (code == SQLITE_OK) code = connection_.control(Control::beginImmediate);
  if (code == SQLITE_OK) {
    writing_ = true;
    readingBelow_ = depth_;
    return;
  }
  const Failure failure = connection_.failure(code);
  turn_.give();
  resumeReading();
  connection_.raise(failure, operation);
}

void Levels::prepareWrite() {
  while (!innermostIsSavepoint()) {
    if (const int code = connection_.control(Control::savepoint); code != SQLITE_OK) {
      const Failure failure = connection_.failure(code);
      noteFailure(failure);
      connection_.raise(failure, operation());
    }
    ++savepoints_;
  }
}

void Levels::pauseReading(std::string_view operation) {
  if (depth_ == 0) return;
  if (const int code = connection_.control(Control::commit); code != SQLITE_OK) {
    connection_.raise(code, operation);
  }
  paused_ = true;
}

void Levels::resumeReading() noexcept {
  paused_ = false;
  if (depth_ == 0 || connection_.inTransaction()) return;
  const int code = connection_.control(Control::begin);
  if (code != SQLITE_OK) noteFailure(connection_.failure(code));
}

void Levels::commit() {
  if (depth_ == 0) {
    kodiag::raise({"KODD:kodd", "NoTransaction"}, {{"Operation", "commit"}});
  }
  Failure failure;
  if (!lost_) {
    int code = SQLITE_OK;
    if (isOutermost()) {
      if (!hasOnlyRead()) code = connection_.control(Control::commit);
    } else if (innermostIsSavepoint()) {
      code = connection_.control(Control::release);
      if (code == SQLITE_OK) --savepoints_;
    }
    if (code == SQLITE_OK) {
      pop();
      if (listener_ != nullptr) listener_->levelCommitted();
      finishWriting();
      return;
    }
    failure = connection_.failure(code);
    noteFailure(failure);
  }

  const std::string operationName(operation());
  const bool wasLostBefore = failure.code == SQLITE_OK;
  const std::string reason = lostReason_;
  rollback();
  if (!wasLostBefore) connection_.raise(failure, operationName);
  kodiag::raise({"KODD:kodd", "TransactionLost"},
                {{"Operation", operationName}, {"Reason", reason}});
}

void Levels::rollback() noexcept {
  if (depth_ == 0) return;
  if (connection_.inTransaction()) undoInnermost();
  pop();
  if (listener_ != nullptr) listener_->levelRolledBack();
  finishWriting();
}

void Levels::undoInnermost() noexcept {
  if (isOutermost()) {
    if (!hasOnlyRead()) connection_.control(Control::rollback);
  } else if (innermostIsSavepoint()) {
    int code = connection_.control(Control::rollbackToSavepoint);
    if (code == SQLITE_OK) code = connection_.control(Control::release);
    // A level that cannot be undone alone takes the whole transaction with it.
    if (code != SQLITE_OK) {
      const Failure failure = connection_.failure(code);
      connection_.control(Control::rollback);
      noteFailure(failure);
    }
    --savepoints_;
  }
}

void Levels::noteFailure(const Failure& failure) {
  if (depth_ == 0 || paused_ || lost_ || connection_.inTransaction()) return;
  lost_ = true;
  lostReason_ = failure.text;
}

void Levels::refuseWhenLost(std::string_view operation) const {
  if (!lost_) return;
  kodiag::raise({"KODD:kodd", "TransactionLost"},
                {{"Operation", std::string(operation)}, {"Reason", lostReason_}});
}

std::string_view Levels::operation() const {
  return depth_ == 0 ? std::string_view{} : std::string_view{operations_[depth_ - 1]};
}

void Levels::push(std::string_view operation) {
  if (operations_.size() == depth_) operations_.emplace_back();
  operations_[depth_].assign(operation);
  ++depth_;
}

void Levels::pop() noexcept {
  --depth_;
  if (depth_ > (writing_ ? readingBelow_ : 0)) return;
  lost_ = false;
  lostReason_.clear();
}

void Levels::finishWriting() noexcept {
  if (!writing_ || depth_ > readingBelow_) return;
  writing_ = false;
  savepoints_ = 0;
  turn_.give();
  resumeReading();
}

void Levels::forget() noexcept {
  depth_ = 0;
  savepoints_ = 0;
  writing_ = false;
  paused_ = false;
  lost_ = false;
}

}  // namespace sqldb
