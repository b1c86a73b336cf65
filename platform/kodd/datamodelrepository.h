// The object store: one repository file with the typed objects of a schema.
#pragma once

#include <boost/function.hpp>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "kodd/constraints.h"
#include "kodd/metamodel.h"
#include "kodd/objectquery.h"
#include "kodd/objectref.h"
#include "kodd/preparedwriters.h"
#include "kodiag/diagnostics.h"
#include "sqldb/database.h"

namespace kodd {

struct SessionLink;

using DictionaryFunction = boost::function<void(kodiag::util::diagnostics&)>;

/// The repository file seen as objects.
///
/// Failures are left in the diagnostics, never thrown. A repository that could not be opened
/// keeps the reason and reports it ("RepositoryNotOpen" with that cause) at every use.
///
/// Threads: any number may use the repository, except while it is opened or destroyed. A unit
/// of work (read scope, dictionary function, explicit transaction) belongs to the thread that
/// began it: what other threads do meanwhile is no part of it. Readers do not wait for writers;
/// writers take turns, first come, first served, and fail with "RepositoryBusy", which names
/// what is in the way, after the busy timeout. When a thread ends, its units are undone. On a
/// file system without shared memory there is one connection, and readers wait too.
class DataModelRepository {
 public:
  DataModelRepository();
  /// Rolls back what is open and closes.
  ~DataModelRepository();
  DataModelRepository(const DataModelRepository&) = delete;
  DataModelRepository& operator=(const DataModelRepository&) = delete;

  struct Options {
    sqldb::Durability durability = sqldb::Durability::fast;
    std::chrono::milliseconds busyTimeout{30'000};
    bool createIfAbsent = true;
    /// Opened for reading, a file whose schema lacks something is refused ("ReadOnly"), and so
    /// is every change.
    sqldb::FileAccess access = sqldb::FileAccess::write;
    bool followLink = true;
  };

  /// Opens or creates the repository. Classes, properties and indexes that the stored schema
  /// lacks are added; nothing is dropped; a property whose kind changed is "SchemaError".
  /// Refused inside a dictionary function ("TransactionActive"); an open repository is closed
  /// first.
  void open(const std::wstring& file, const std::wstring& schemaFile, const Options& options,
            kodiag::util::diagnostics& diag);
  /// Undoes the units of all threads, writes the log into the file and closes. Handles die.
  void close();
  /// The same, after the writing units of other threads have ended: "RepositoryBusy" when they
  /// do not within the busy timeout, and the repository stays open.
  void closeInTurn(kodiag::util::diagnostics& diag);
  bool isOpen() const;
  std::wstring location() const;

  MetamodelRef metamodel(kodiag::util::diagnostics& diag);
  /// The UUID by which the repository file is told from every other; a copy has the same.
  std::string databaseID(kodiag::util::diagnostics& diag);

  ObjectRef createObject(const ClassRef& cls, kodiag::util::diagnostics& diag);
  /// The object with that ID; empty when there is none of that class.
  ObjectRef getObjectRef(int id, const ClassRef& cls, kodiag::util::diagnostics& diag);
  /// The object with that ID, whatever its class; empty when there is none.
  ObjectRef getObjectRef(int id, kodiag::util::diagnostics& diag);
  /// Appends all objects of the class that satisfy every constraint, in creation order.
  void findObjects(const ClassRef& cls, const MatchConstraints& constraints,
                   std::vector<ObjectRef>& results, kodiag::util::diagnostics& diag);
  long long countObjects(const Selection& selection, kodiag::util::diagnostics& diag);
  /// IDs of those objects, ascending by `orderBy` when it is valid, then in creation order.
  std::vector<int> selectIDs(const Selection& selection, const PropertyRef& orderBy,
                             kodiag::util::diagnostics& diag);
  /// Bytes of the blobs of those objects.
  std::uint64_t countBlobBytes(const Selection& selection, kodiag::util::diagnostics& diag);

  /// An explicit transaction of this thread. A second begin, or one inside a dictionary
  /// function, is "TransactionActive"; an end without a begin, or inside a dictionary function,
  /// "NoTransaction".
  void beginTransaction(kodiag::util::diagnostics& diag);
  void commitTransaction(kodiag::util::diagnostics& diag);
  void rollbackTransaction(kodiag::util::diagnostics& diag);

  /// Runs `fn` as one unit of work. It fails, and its own work alone is undone, when `fn`
  /// throws
  /// ("DictFuncThrewException", "DictFuncThrewStdException", with the exception as cause) or
  /// leaves diagnostics. `fn` starts with fresh diagnostics, which are then appended to `diag`.
  void performDictionaryFunction(DictionaryFunction& fn, kodiag::util::diagnostics& diag);
  /// The same for a function that writes what has been found out in the read scope around it:
  /// it does not run when somebody else is writing now, and fails with "RepositoryBusy" at its
  /// first write when somebody has written since the scope began. Waits for nobody.
  /// \returns whether it ran
  bool tryDictionaryFunction(DictionaryFunction& fn, kodiag::util::diagnostics& diag);
  /// The same for a function that only reads: takes no write lock and does not wait for
  /// writers.
  void performReadFunction(DictionaryFunction& fn, kodiag::util::diagnostics& diag);

  /// What this thread reads while it lives is one state of the file and costs a tenth. Does
  /// nothing when a unit of this thread is open already or the repository is not. A write
  /// inside is committed at once, and is seen from then on together with all that others have
  /// committed. Any thread may end it.
  class ReadScope {
   public:
    explicit ReadScope(DataModelRepository& repository);
    ~ReadScope();
    ReadScope(const ReadScope&) = delete;
    ReadScope& operator=(const ReadScope&) = delete;

   private:
    std::shared_ptr<Session> session_;
    SessionLink* link_ = nullptr;
    unsigned long long ticket_ = 0;  ///< which read unit it keeps open; 0 when none
  };

  /// Number of open units of work of this thread.
  int depth() const;
  /// Called with the number of the level (1 is the outermost) whenever one has been undone.
  void setRollbackListener(boost::function<void(int level)> listener);

  void setTraceCallback(sqldb::Database::TraceCallback callback);
  void setProfileCallback(sqldb::Database::ProfileCallback callback);
  /// The main connection of the embedded database, for settings and for what concerns the file
  /// as a whole; null when the repository is not open. Not for use beside other threads.
  sqldb::Database* getDB();

  /// Whether the file at that path may be opened as a repository, found out without changing
  /// it: diagnostics empty when it may be or is absent ("NotARepository", "sqldb:ssdb:Corrupt",
  /// "IOError").
  static void checkFile(const std::wstring& file, kodiag::util::diagnostics& diag);
  /// Everything wrong with the stored bytes and objects, as sentences; empty when whole.
  std::vector<std::string> integrityProblems(kodiag::util::diagnostics& diag);
  /// Writes the log into the main file, so that the main file alone is whole.
  void checkpoint(kodiag::util::diagnostics& diag);
  /// Gives at most `pages` free pages of the file back to the disk. Does nothing inside a unit.
  void releaseFreePages(int pages, kodiag::util::diagnostics& diag);
  /// Gives all free pages back to the disk and empties the log, in one turn of writing. Refused
  /// inside a unit of work ("TransactionActive").
  void compact(kodiag::util::diagnostics& diag);
  sqldb::FileSpace space(kodiag::util::diagnostics& diag);

 private:
  friend class ObjectQuery;
  friend class ValueSources;
  friend class ObjectConstructor;
  friend class ObjectModifier;
  friend class ObjectDeleter;
  friend class BlobStream;
  friend class ObjectCopier;

  std::shared_ptr<Session> session_;
};

}  // namespace kodd
