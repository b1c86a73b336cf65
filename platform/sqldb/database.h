// The embedded SQL database: a connection to one repository file, its locks and its units of
// work.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sqldb/blob.h"
#include "sqldb/statement.h"

namespace sqldb {

enum class Durability {
  fast,     ///< a killed process loses nothing; a power cut may lose the newest work
  durable,  ///< committed work survives a power cut as well
};

/// What a newcomer finds in the file before it changes anything.
enum class FileKind {
  absent,   ///< nothing there, or an empty file: may be created
  ours,     ///< carries our application ID
  foreign,  ///< another program's database, or no database at all
};

enum class FileAccess {
  write,  ///< the file is made when absent
  read,   ///< nothing is ever written into it, and nothing made beside it where it is not ours
};

struct OpenOptions {
  /// Stored in the file's header and checked on every open. // Stored; never change.
  std::int32_t applicationId = 0;
  Durability durability = Durability::fast;
  /// How long to wait for another writer before "RepositoryBusy".
  std::chrono::milliseconds busyTimeout{30'000};
  bool createIfAbsent = true;
  FileAccess access = FileAccess::write;
  /// Whether a symbolic link is followed. Not in a folder where everybody may plant one.
  bool followLink = true;
};

/// Sizes in bytes.
struct FileSpace {
  std::uint64_t file = 0;  ///< the repository file, with what the log has yet to add to it
  std::uint64_t free = 0;  ///< of that, unused
  std::uint64_t log = 0;
};

/// A listener for the ends of units of work; called before the turn to write is given back.
class LevelListener {
 public:
  virtual ~LevelListener() = default;
  virtual void levelOpened() = 0;
  virtual void levelCommitted() = 0;
  virtual void levelRolledBack() = 0;
};

class EngineGate;
class RepositoryLock;

/// One connection to one repository file.
///
/// Locks: a file `<location>-lock` stands beside the repository, never deleted while in use.
/// Byte 0 is the write lock, held around every outermost writing unit and every checkpoint;
/// byte 1 is shared by everyone who has the file open; byte 2 is the head of the queue for byte
/// 0; bytes from 16 on stand for instances that are alive.
///
/// Units of work form one stack: the outermost writing one is a transaction, those inside it
/// are savepoints. Reading units below it are one reading transaction, which sees the newest
/// state once more when the writing unit has ended. When the engine drops the whole transaction
/// (disk full, I/O error), all its levels are dead: every operation reports "TransactionLost"
/// until the outermost writing level ends. Outside any writing unit, a statement that writes is
/// a unit of its own.
///
/// A file that was moved, replaced or deleted is noticed when a unit is about to write: that
/// call and every later one fail with "FileRemoved" until the owner opens the path anew, since
/// IDs and tables of what lies there now may be others.
///
/// Threads: one at a time; the owner lends the connection to one thread until its unit has
/// ended. Threads at work at the same time have a connection each, by openBeside(); the turn to
/// write goes from thread to thread in the order they came. After fork() the child's copy
/// refuses every call with "ForkedProcess" and never touches the file; the child may open the
/// file anew when the parent's connection rested at the moment of the fork (no unit, statement
/// or blob of it alive), and is refused with "ForkedProcess" otherwise.
///
/// Errors: every call throws ExceptionWithCauses with the ID of error.h unless said otherwise.
class Database {
 public:
  /// Opens or creates the file. Refuses, without changing a byte of it: what is no regular
  /// file, text, another program's database ("KODD:kodd:NotARepository"), a truncated file
  /// ("sqldb:ssdb:Corrupt").
  ///
  /// Opened for reading, every write is refused with "ReadOnly". Then a file needs no more than
  /// the right to read it, in a folder where nothing can be made; what a killed process left in
  /// the log is read too, unless the log has no index and none can be made ("ReadOnly").
  ///
  /// \param location  path of the file, UTF-8
  Database(std::string location, const OpenOptions& options);
  /// Rolls back what is open, checkpoints and closes; never throws.
  ~Database();
  /// Another connection to the same file, with a small cache: it sees what has been committed
  /// and shares the locks. May be called from any thread while this object lives. Needs
  /// allowsSeveral(). \throws "FileRemoved" when the path leads to another file by now
  std::unique_ptr<Database> openBeside() const;
  /// Whether readers and one writer do not stand in each other's way: the file has a log.
  bool allowsSeveral() const;
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Looks at a file without changing a byte of it. \throws "sqldb:ssdb:Corrupt" for a database
  /// that is damaged, "IOError" when it cannot be read.
  static FileKind identify(const std::string& location, std::int32_t applicationId);

  const std::string& location() const { return location_; }
  bool isReadOnly() const;

  /// The statement for this text, prepared once and kept; bound to nothing.
  Statement statement(std::string_view sql);
  /// Runs statements of our own that return nothing (several, separated by ';').
  void execute(std::string_view sql);
  /// Runs one statement of somebody else's, rows dropped. Pragmas that would change how the
  /// file is journalled, locked, mapped or laid out do nothing, without an error, and so does
  /// "PRAGMA synchronous" when the repository is durable. ATTACH, extensions and statements
  /// that begin or end transactions are refused with one.
  void executeStatement(const std::string& sql);
  /// The first column of the first row as text; empty when there is none.
  std::string queryText(std::string_view sql);

  enum class Access { read, write };
  /// Opens one blob of a row. Writing in place needs an open unit ("NoTransaction" without
  /// one): there must be somebody to hear of a commit that fails.
  Blob blob(const std::string& table, const std::string& column, long long row, Access access);

  /// Opens a level: a transaction when it is the outermost, a savepoint otherwise. A read unit
  /// takes no lock; a writing unit on top of reading ones is a transaction of its own, after
  /// which they see the newest state ("RepositoryBusy" when a result is still being read and
  /// somebody has written meanwhile).
  ///
  /// \throws "RepositoryBusy" when another writer does not finish in time, or at once when this
  ///         thread itself holds the write lock through another connection; no level is then
  ///         opened.
  void beginUnit(Access access, std::string_view operation);
  /// Opens a writing level on top of the reading ones without giving up the state they see: it
  /// can write only while that is the newest one, and its writes fail with "RepositoryBusy"
  /// when somebody has written meanwhile. Waits for nobody. \returns false when somebody else
  /// is writing now; no level is then opened
  bool tryBeginWriting(std::string_view operation);
  /// Ends the newest level and keeps its work. When this fails the level is rolled back and
  /// closed.
  void commitUnit();
  /// Ends the newest level and undoes its work. Never throws.
  void rollbackUnit() noexcept;
  /// Number of open levels; 0 when every statement stands for itself.
  int depth() const;
  /// Whether one of the open levels is a writing one.
  bool isWriting() const;
  /// Whether the engine dropped the transaction under the open levels.
  bool transactionLost() const;

  void setLevelListener(LevelListener* listener);

  /// The locks, shared with the connections opened beside this one. Its write lock may be taken
  /// around calls of this class by the same thread.
  const std::shared_ptr<RepositoryLock>& lock() const;
  /// What is entered by every call here; an owner that enters it around several calls lets a
  /// fork come between them no more than between the steps of one.
  const std::shared_ptr<EngineGate>& gate() const;

  /// Copies the log into the main file, so that the main file alone is whole. Waits for the
  /// write lock; returns false when readers kept part of it in the log.
  /// \throws "TransactionActive" inside a unit
  bool checkpoint();
  /// Gives at most `pages` free pages back to the disk. Does nothing inside a unit.
  void releaseFreePages(int pages);
  /// Gives all free pages back to the disk and copies the log into the file, in one turn of
  /// writing. \throws "TransactionActive" inside a unit
  void compact();
  FileSpace space();
  /// The engine's own check of the whole file; empty when it found nothing, else its findings.
  std::vector<std::string> integrityProblems();

  /// A number of the repository's that no rollback takes back, kept in the lock file: 0 for a
  /// new file, and again when the lock file was deleted. Needs a writing unit.
  std::uint64_t notedNumber() const;
  void noteNumber(std::uint64_t number);

  /// Marks this connection as the living owner of an instance for as long as it is open.
  void holdInstance(long long instanceID);
  void releaseInstance(long long instanceID);
  /// Whether some process holds the instance.
  bool isInstanceAlive(long long instanceID) const;

  using TraceCallback = std::function<void(std::string_view sql)>;
  using ProfileCallback = std::function<void(std::string_view sql, std::uint64_t nanoseconds)>;
  void setTraceCallback(TraceCallback callback);
  void setProfileCallback(ProfileCallback callback);
  /// A seam for tests: called before every statement that writes and before every commit of a
  /// transaction that has written. What it throws fails that step; at a commit as an error of
  /// the engine.
  using WriteCallback = std::function<void()>;
  void setWriteCallback(WriteCallback callback);

 private:
  friend class Statement;
  friend class Blob;
  struct Impl;
  Database(std::string location, std::unique_ptr<Impl> impl);

  std::string location_;
  std::unique_ptr<Impl> impl_;
};

/// A unit of work for a scope: undone unless committed.
class Unit {
 public:
  Unit(Database& database, Database::Access access, std::string_view operation)
      : database_(database) {
    database_.beginUnit(access, operation);
  }
  ~Unit() {
    if (open_) database_.rollbackUnit();
  }
  Unit(const Unit&) = delete;
  Unit& operator=(const Unit&) = delete;

  void commit() {
    open_ = false;  // a failed commit has closed the level as well
    database_.commitUnit();
  }

 private:
  Database& database_;
  bool open_ = true;
};

/// Moves a file that cannot be opened, with its side files, into a new folder
/// `<location>.quarantine-<date>-<pid>` beside it; only when nobody has it open.
/// \returns the folder, or an empty string when somebody lives on the file (nothing is moved
/// then)
std::string quarantine(const std::string& location);

/// Deletes a repository file with its side files, except the lock file. A missing file is no
/// error.
void removeFile(const std::string& location);

}  // namespace sqldb
