// The one gateway to the store: opens a repository and reaches its objects.
#pragma once

#include <boost/function.hpp>
#include <boost/ptr_container/ptr_vector.hpp>
#include <boost/tuple/tuple.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <typeindex>
#include <utility>
#include <vector>

#include "kodd/datamodelrepository.h"
#include "kodiag/diagnostics.h"
#include "objectmanager/objectref.h"

namespace vela {

class FindObjectsTracer;

/// The kind of value an initial property points at.
enum class ObjectConstructorPropType {
  int32,
  int64,
  real64,
  stdString,
  uString,
  constBlob,
  objectRef
};

using DictionaryFunction = boost::function<void(kodiag::util::diagnostics&)>;

/// Statements a part of the system keeps prepared on a manager; dropped whenever it is opened
/// anew.
struct PreparedSet {
  virtual ~PreparedSet() = default;
};

/// One repository file and everything stored in it.
///
/// Failures are raised as ExceptionWithCauses unless said otherwise. safeTransaction and
/// threadSafeEval never raise: their callers look at the diagnostics. Threads: any; a unit of
/// work belongs to the thread that began it, and those that write to one repository take turns.
/// Lock order: repository lock, turn to write, instance lock.
class ObjectManager {
 public:
  /// Instance ID of rapid-accelerator child processes. // Stored; never change.
  static constexpr long long RACCEL_INSTANCE_ID = 1;

  /// A private repository: a fresh temporary name ending in ".dmr", removed with its side files
  /// when the manager is disconnected or destroyed. Nothing is opened.
  ObjectManager();
  using Access = sqldb::FileAccess;
  /// The repository at that path. Nothing is opened.
  ///
  /// For reading, nothing is ever written: every change is refused ("KODD:kodd:ReadOnly"), this
  /// instance is not recorded, and a file is enough that may only be read.
  explicit ObjectManager(const std::wstring& location, Access access = Access::write);
  /// Disconnects.
  ~ObjectManager();
  ObjectManager(const ObjectManager&) = delete;
  ObjectManager& operator=(const ObjectManager&) = delete;

  /// Opens the store and prepares the package: up to ten attempts, 500 ms apart, but one when
  /// the last call has failed; for the shared file under the machine-wide creation lock. Raises
  /// nothing when the file cannot be opened: the first use then reports "RepositoryNotOpen"
  /// with the reason. Called again, closes and opens anew; refused inside a unit of work
  /// ("TransactionActive").
  ///
  /// \param schemaFile   empty: the default, getSchemaPath("")
  /// \param packageName  empty: "vela"
  void initializeObjectManager(const std::string& schemaFile, const std::string& packageName);
  /// Full path of a schema file in the host's schema directory; empty: "schema.xml".
  static std::string getSchemaPath(const std::string& fileName);
  /// Rolls back what is open, drops pending bulk work, writes everything into the file and
  /// closes it.
  void disconnect();
  bool isOpen() const;
  bool isReadOnly() const;
  /// Gives all unused space of the file back to the disk and empties the log beside it. Refused
  /// inside a unit of work ("TransactionActive").
  /// \returns by how many bytes file and log became shorter; what readers keep in the log stays
  std::uint64_t compact();
  /// Looks at a file without changing it: whether it may be opened as a repository (or is
  /// absent).
  static void checkFile(const std::wstring& location, kodiag::util::diagnostics& diag);
  /// What the last opening has to tell: that a damaged shared file was set aside and where,
  /// that the shared file cannot be used, or that this instance could not be recorded. Empty
  /// after an ordinary one.
  const kodiag::util::diagnostics& getOpeningNotices() const;
  /// Adds to what every opening has to tell that this manager takes the place of the shared
  /// file, and why.
  void noteSharedFileUnusable();

  std::wstring getDatabaseLocation() const;
  void setLocationToPersistentDMR();
  bool isPersistentDMR() const;
  /// False when something that is no regular file stands at the path of the shared file.
  static bool isPersistentDMRWritable();
  /// Path of the user's shared repository: temporary directory, user name, schema signature,
  /// ".dmr".
  static std::wstring persistentDMRPath();
  /// Deletes the shared file with its side files; a missing file is no error.
  static void deletePersistentDMRfile();

  /// Marks this instance's rows of the instance table closed.
  void setInstanceClosed();
  long long getInstanceID() const;
  void setInstanceID(unsigned long long id);
  /// Looks and writes under that ID from now on without entering the instance: its records stay
  /// as they are, and nobody takes it for living because of this manager.
  void actForInstance(long long id);
  void setIsRapidAccelProcess();
  bool getIsRapidAccelProcess() const;
  /// Makes sure this instance has its row in the instance table and its run-order record; needs
  /// an open repository and an ID other than 0. Done by initializeObjectManager.
  void ensureInstanceRecords();
  /// Marks the rows of instances whose process is gone closed. Never takes a living one for
  /// dead. Done by initializeObjectManager when this instance has an ID other than 0.
  void closeDeadInstances();
  /// Whether this is that instance or a process has it open.
  bool isInstanceAlive(long long id);

  /// \returns the new object, or nothing when `returnRef` is false
  std::unique_ptr<ObjectRef> createObject(const std::string& className, bool returnRef);
  using InitialProperty = boost::tuple<std::string, const void*, ObjectConstructorPropType>;
  std::unique_ptr<ObjectRef> createObject(const std::string& className,
                                          std::vector<InitialProperty>& properties,
                                          bool returnRef);

  /// Empty, with `found` false, when there is no such object; never raises for a missing one.
  std::unique_ptr<ObjectRef> findObject(int objectID, const std::string& className,
                                        bool& found);
  /// The object of that ID whatever its class.
  std::unique_ptr<ObjectRef> findObject(int objectID, bool& found);

  using Constraint =
      boost::tuple<std::string, kodd::EntryValue, kodd::PropertyValueMatchRelation>;
  using ObjectConstraint = boost::tuple<std::string, ObjectRef*>;
  /// Appends the objects that satisfy every constraint, ordered by `orderBy` (may be empty) and
  /// then by creation.
  void findObjects(
      const std::string& className, const std::vector<Constraint>& constraints,
      boost::ptr_vector<ObjectRef>& results,
      const std::vector<ObjectConstraint>& objectConstraints = {},
      const std::string& orderBy = {},
      const kodd::ObjectQuery::SortOrder& order = kodd::ObjectQuery::SortOrder::ascending);
  /// The same among the children of `parent`.
  void findObjects(ObjectRef& parent, const std::string& childClass,
                   const std::vector<Constraint>& constraints,
                   boost::ptr_vector<ObjectRef>& results);
  void findUUIDTypePairObjects(const std::vector<Constraint>& constraints,
                               boost::ptr_vector<ObjectRef>& results, bool append);

  /// Fills class and object; false when there is no such object.
  bool getObjectRef(const std::string& className, kodd::ClassRef& cls, int objectID,
                    kodd::ObjectRef& out);
  /// Splits "package.Class" at its first "."; without one, the manager's own package.
  kodd::PackageRef getPackageAndClass(const std::string& qualifiedName, std::string& className);
  /// The class of that (possibly qualified) name; raises "NoSuchObjectType".
  kodd::ClassRef getClass(const std::string& qualifiedName);
  /// The property of that class; raises "NoSuchObjectType" or "InvalidProperty".
  kodd::PropertyRef getPropertyRef(const std::string& qualifiedClass,
                                   const std::string& property);

  void removeObject(int objectID, const std::string& className);
  void addChild(ObjectRef& parent, ObjectRef& child);
  void removeChild(ObjectRef& parent, ObjectRef& child);
  bool isChild(ObjectRef& parent, ObjectRef& child);

  void getProperty(ObjectRef& object, const std::string& name, int& value);
  void getProperty(ObjectRef& object, const std::string& name, long long& value);
  void getProperty(ObjectRef& object, const std::string& name, double& value);
  void getProperty(ObjectRef& object, const std::string& name, std::string& value);
  void getProperty(ObjectRef& object, const std::string& name, std::wstring& value);
  void getProperty(ObjectRef& object, const std::string& name, kodd::EntryValue& value);
  void getProperty(ObjectRef& object, const std::string& name, std::vector<char>& value);
  void getProperty(ObjectRef& object, const std::string& name, int size, void* buffer,
                   int& length);
  void getPropertyObject(ObjectRef& object, const std::string& name,
                         std::unique_ptr<ObjectRef>& value, const std::string& targetClass);
  void setPropertyInt32(ObjectRef& object, const std::string& name, int value);
  void setPropertyInt64(ObjectRef& object, const std::string& name, long long value);
  void setPropertyReal64(ObjectRef& object, const std::string& name, double value);
  void setPropertyStdString(ObjectRef& object, const std::string& name,
                            const std::string& value);
  void setPropertyUString(ObjectRef& object, const std::string& name,
                          const std::wstring& value);
  void setPropertyConstBlob(ObjectRef& object, const std::string& name,
                            const kodd::const_BlobDescriptor& value);
  void setPropertyObject(ObjectRef& object, const std::string& name, ObjectRef& value);
  void setProperty(ObjectRef& object, const std::string& name, const kodd::EntryValue& value);

  std::unique_ptr<kodd::ObjectQuery> createObjectQuery();
  std::unique_ptr<kodd::ObjectConstructor> createObjectConstructor(const kodd::ClassRef& cls);
  /// A modifier for one property of the class; more can be bound.
  std::unique_ptr<kodd::ObjectModifier> createObjectModifier(const std::string& propertyName,
                                                             const kodd::ClassRef& cls);
  std::unique_ptr<kodd::ObjectDeleter> createObjectDeleter(const kodd::ClassRef& cls);
  std::unique_ptr<kodd::BlobStream> createBlobStream(const kodd::PropertyRef& blobProperty,
                                                     kodd::BlobStream::Access access);

  /// This thread's statements of type T (derived from PreparedSet, constructible from
  /// ObjectManager&), made on first use and kept until the repository is opened anew.
  template <class T>
  T& prepared() {
    std::unique_ptr<PreparedSet>& slot = preparedSlot(typeid(T));
    if (!slot) slot = std::make_unique<T>(*this);
    return static_cast<T&>(*slot);
  }

  /// Runs `fn` under the repository lock of the process, outside the store's units, one
  /// function at a time; leaves "RepositoryBusy" after the busy timeout. Never raises.
  void threadSafeEval(DictionaryFunction& fn, kodiag::util::diagnostics& diag);

  void beginTransaction();
  void commitTransaction();
  void rollbackTransaction();
  /// Runs `fn` as one unit of work of this thread: all or nothing, and in the file when it
  /// returns without diagnostics. Waits for units of other threads and processes that write to
  /// the same repository, and leaves "RepositoryBusy" after the busy timeout. Never raises.
  void safeTransaction(DictionaryFunction& fn, kodiag::util::diagnostics& diag);
  /// The same for what has been found out in the read unit around it: `fn` does not run when
  /// somebody else is writing now, and fails with "RepositoryBusy" at its first write when
  /// somebody has written since that unit began. Waits for nobody. \returns whether it ran
  bool trySafeTransaction(DictionaryFunction& fn, kodiag::util::diagnostics& diag);
  /// safeTransaction for a callable, raising what it left.
  template <class Function>
  void inTransaction(Function&& function) {
    DictionaryFunction fn = [&function](kodiag::util::diagnostics&) { function(); };
    kodiag::util::diagnostics diag;
    safeTransaction(fn, diag);
    diag.raiseIfAny();
  }
  /// Runs a callable that only reads: it sees one state of the repository, takes no write lock
  /// and waits for no writer. What it writes all the same is committed at once.
  template <class Function>
  void inReadUnit(Function&& function) {
    kodd::DataModelRepository::ReadScope scope(repository());
    function();
  }

  void beginBulkPropertyUpdate(ObjectRef* ref);
  void commitBulkPropertyUpdate(ObjectRef* ref);
  /// Inside a bulk update of this very handle binds `value`, which must live until the commit;
  /// otherwise writes at once.
  template <class T>
  void setPropertyWithBulkSupport(ObjectRef* ref, const std::string& name, const T* value);
  /// Forgets the bulk update of a handle that goes away.
  void dropBulkPropertyUpdate(const ObjectRef* ref) noexcept;

  /// Deletions collected per class and done together at the commit; a unit that is undone takes
  /// what was collected in it back. Without a begin, an added object is deleted at once and the
  /// commit does nothing.
  void beginBulkObjectDeletion(const kodd::ClassRef& cls);
  void addObjectForBulkDeletion(kodd::ObjectRef& object);
  void commitBulkObjectDeletion(const kodd::ClassRef& cls);
  /// Brackets around deletions of several classes that may nest. A unit that is undone closes
  /// those it opened, and forgets the classes whose deletions it began.
  /// \returns how many were open before
  int openBulkDeletionBracket();
  /// \returns how many are open still; 0 when none was open
  int closeBulkDeletionBracket();
  int openBulkDeletionBrackets() const;

  /// Writes this instance's runs that are not marked for deletion, with everything that belongs
  /// to them, and its signals and streams without a run, to a data file. Reports to the tracker
  /// "SavingProgressBar". Until the new file is whole the old one is untouched.
  ///
  /// \param option  without meaning
  /// \throws "nexstore:nex:CouldNotWriteToMatFile"; what a tracker throws
  void save(const std::wstring& file, const std::string& option = {});
  /// Reads such a file, written by any instance: everything in it becomes this instance's own,
  /// beside what is there, with run numbers and places that follow. Only units and data types
  /// that are there already are shared. The instance's overwrite run is removed. Reports to the
  /// tracker "LoadingProgressBar". All or nothing.
  ///
  /// \throws "nexstore:nex:CouldNotReadMatFile", "InvalidFile"; what a tracker throws
  void load(const std::wstring& file, const std::string& option = {});

  FindObjectsTracer& getFindObjectsTracer();
  /// Repositories opened afterwards log every statement to "dbtrace_log.txt" in the current
  /// directory.
  static void enableDBTrace();
  /// The same for durations, to "dbprofile_log.txt".
  static void enableDBProfile();

  kodd::DataModelRepository& repository();

 private:
  friend class ObjectManagerImpl;
  std::unique_ptr<PreparedSet>& preparedSlot(std::type_index type);

  std::unique_ptr<class ObjectManagerImpl> impl_;
};

}  // namespace vela
