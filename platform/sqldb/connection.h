// The engine's handle to one file, opened and set up the one way this system uses it.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "sqldb/database.h"
#include "sqldb/enginegate.h"

struct sqlite3;
struct sqlite3_stmt;

namespace sqldb {

/// What went wrong, kept while the engine is called again to clean up.
struct Failure {
  int code = 0;
  std::string text;
};

/// The statements that open and end transactions and savepoints.
enum class Control {
  begin,
  beginImmediate,
  commit,
  rollback,
  savepoint,
  release,
  rollbackToSavepoint
};

class Connection {
 public:
  /// Only foreign tools and the engine's own recovery can make us wait inside the engine.
  static constexpr int kEngineWaitMilliseconds = 5000;

  /// How the engine is to see the file.
  enum class View {
    shared,    ///< with others, through locks, log and index
    unchanged  ///< alone and without any of them: for a file that nobody changes meanwhile
  };

  /// \param path  absolute, without links
  Connection(const std::string& path, const OpenOptions& options, View view = View::shared);
  /// Another handle to the file of `first`, with a small cache. \throws "FileRemoved" when the
  /// path leads to another file by now
  Connection(const Connection& first, const OpenOptions& options);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  sqlite3* handle() const { return handle_; }
  const std::string& path() const { return path_; }
  bool isReadOnly() const { return access_ == FileAccess::read; }
  /// To be entered around every use of the handle.
  EngineGate& gate() const { return *gate_; }
  const std::shared_ptr<EngineGate>& sharedGate() const { return gate_; }

  /// Whether changes go to a write-ahead log, so that readers and one writer do not meet.
  bool usesLog();
  /// Whether there is nothing in the file; a creation that was cut short is undone on the way.
  bool isEmpty();
  /// Gives an empty file our header; the caller holds the write lock.
  void layOut(std::int32_t applicationId);
  /// Turns the write-ahead log on where the file system can do it; the caller holds the write
  /// lock.
  void turnOnLog(std::chrono::milliseconds timeout);
  /// What the last of the two found.
  bool hasLog() const { return hasLog_; }

  /// Prepares the first statement of `sql`. \returns nothing when there is none left
  /// \param rest  set to what follows it
  sqlite3_stmt* prepare(std::string_view sql, bool keep, std::string_view& rest);
  /// Prepares text that must be exactly one statement.
  sqlite3_stmt* prepareOnly(std::string_view sql, bool keep);
  void run(const std::string& sql);
  std::string queryText(const std::string& sql);
  /// Runs a control statement. \returns the engine's code
  int control(Control which);

  bool inTransaction() const;
  /// Whether something has been written in the transaction that is open.
  bool inWritingTransaction() const;
  /// Looks whether the path still leads to the open file, and remembers when it does not.
  bool findMoved();
  bool wasMoved() const { return moved_->load(std::memory_order_relaxed); }
  /// From now on every use is refused as one of a file that was moved; tells why.
  void giveUp(std::string file, std::string reason);
  [[noreturn]] void raiseMoved(std::string_view operation);

  Failure failure(int code) const;
  [[noreturn]] void raise(const Failure& failure, std::string_view operation);
  [[noreturn]] void raise(int code, std::string_view operation) {
    raise(failure(code), operation);
  }

  /// Closes the handle; all statements but the control ones must be gone.
  void close() noexcept;
  /// Forgets the handle without touching the file.
  void leak() noexcept { handle_ = nullptr; }

 private:
  void prepareControls();
  void configure();
  void applyDurability();
  void set(int option, int value);
  void check(int code, std::string_view operation);

  std::string path_;
  Durability durability_;
  FileAccess access_;
  sqlite3* handle_ = nullptr;
  std::array<sqlite3_stmt*, 7> controls_{};
  bool hasLog_ = false;
  std::shared_ptr<EngineGate> gate_ = std::make_shared<EngineGate>();
  /// Shared by all connections to one file: none of them may use it any more.
  std::shared_ptr<std::atomic<bool>> moved_ = std::make_shared<std::atomic<bool>>(false);
  std::string movedFile_;
  std::string movedReason_ = "its path leads to another file or to none";
};

}  // namespace sqldb
