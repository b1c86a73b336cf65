// What stands behind ObjectManager: the open store, its package, and the manager's own state.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <typeindex>
#include <vector>

#include "host/processmutex.h"
#include "kodd/datamodelrepository.h"
#include "objectmanager/bulkdeletions.h"
#include "objectmanager/bulkupdates.h"
#include "objectmanager/findobjectstracer.h"
#include "objectmanager/objectmanager.h"
#include "objectmanager/preparedobjectconstructors.h"
#include "objectmanager/privatefile.h"

namespace vela {

/// Functions carry the names and the promises of ObjectManager's members they serve.
class ObjectManagerImpl {
 public:
  /// A private repository.
  explicit ObjectManagerImpl(ObjectManager& owner);
  ObjectManagerImpl(ObjectManager& owner, std::wstring location, ObjectManager::Access access);
  ~ObjectManagerImpl();

  void initialize(const std::string& schemaFile, const std::string& packageName);
  void disconnect();
  kodd::DataModelRepository& repository() { return repository_; }
  const kodd::DataModelRepository& repository() const { return repository_; }

  bool isReadOnly() const { return access_ == ObjectManager::Access::read; }

  const std::wstring& location() const { return location_; }
  void setLocationToPersistentDMR();
  const kodiag::util::diagnostics& openingNotices() const { return openingNotices_; }
  void noteSharedFileUnusable();

  long long instanceID() const { return instanceID_; }
  void setInstanceID(long long id);
  void actForInstance(long long id);

  kodd::PackageRef packageAndClass(const std::string& qualifiedName, std::string& className);
  kodd::ClassRef classNamed(const std::string& qualifiedName);

  kodd::ObjectRef createObject(const kodd::ClassRef& cls);
  kodd::ObjectRef createObject(const kodd::ClassRef& cls,
                               const std::vector<ObjectManager::InitialProperty>& properties);
  /// Empty when there is no such object.
  kodd::ObjectRef findObject(int objectID, const kodd::ClassRef& cls);
  kodd::ObjectRef findObject(int objectID);
  /// A handle of this manager; nothing for an empty reference.
  std::unique_ptr<ObjectRef> handle(const kodd::ObjectRef& object);

  void findObjects(const std::string& className,
                   const std::vector<ObjectManager::Constraint>& constraints,
                   boost::ptr_vector<ObjectRef>& results,
                   const std::vector<ObjectManager::ObjectConstraint>& objectConstraints,
                   const std::string& orderBy, kodd::ObjectQuery::SortOrder order);
  void findObjects(ObjectRef& parent, const std::string& childClass,
                   const std::vector<ObjectManager::Constraint>& constraints,
                   boost::ptr_vector<ObjectRef>& results);

  void beginTransaction();
  void commitTransaction();
  void rollbackTransaction();
  void safeTransaction(DictionaryFunction& fn, kodiag::util::diagnostics& diag);
  bool trySafeTransaction(DictionaryFunction& fn, kodiag::util::diagnostics& diag);

  void beginBulkPropertyUpdate(ObjectRef& handle);
  void commitBulkPropertyUpdate(ObjectRef& handle);
  BulkUpdates& bulkUpdates() { return bulkUpdates_; }

  void beginBulkObjectDeletion(const kodd::ClassRef& cls);
  void addObjectForBulkDeletion(kodd::ObjectRef& object);
  void commitBulkObjectDeletion(const kodd::ClassRef& cls);
  /// Those of this thread: what a unit collects belongs to the thread
  /// that began it.
  BulkDeletions& bulkDeletions() { return work().bulkDeletions; }

  FindObjectsTracer& tracer() { return tracer_; }
  std::unique_ptr<PreparedSet>& preparedSlot(std::type_index type) {
    return work().prepared[type];
  }

 private:
  /// What one thread keeps between its calls.
  struct ThreadWork {
    std::uint64_t serial = 0;
    PreparedObjectConstructors constructors;
    std::map<std::type_index, std::unique_ptr<PreparedSet>> prepared;
    BulkDeletions bulkDeletions;
    std::optional<std::uint64_t> explicitTransactionMark;
    int runningUnits = 0;
  };

  ThreadWork& work();
  template <class Run>
  void runRemembering(kodiag::util::diagnostics& diag, Run&& run);
  void openStore(const std::string& schemaFile);
  void passSettings();
  void preparePackage(const std::string& packageName);
  void recordInstance();
  /// Waits for the writing units of other threads, drops whatever refers to the open store and
  /// closes it. \throws "RepositoryBusy"
  void closeStoreInTurn();
  void dropWork();
  void refuseInsideUnit(const char* operation);
  /// Runs `fn` as one unit and raises what it left.
  void runUnit(DictionaryFunction fn);
  template <class Operation>
  void endTransaction(Operation&& operation, bool keepsWork);

  kodd::DataModelRepository repository_;
  ObjectManager& owner_;
  std::wstring location_;
  ObjectManager::Access access_ = ObjectManager::Access::write;
  std::optional<PrivateFile> privateFile_;
  kodiag::util::diagnostics standingNotices_;
  kodiag::util::diagnostics openingNotices_;
  bool hasFailedToOpen_ = false;
  long long instanceID_ = 0;
  kodd::MetamodelRef metamodel_;
  kodd::PackageRef package_;
  FindObjectsTracer tracer_;
  BulkUpdates bulkUpdates_;
  host::ProcessMutex workMutex_;
  std::map<std::thread::id, std::unique_ptr<ThreadWork>> work_;
  /// Of this opening, unique in the process: by it a thread knows its own work again.
  std::atomic<std::uint64_t> workSerial_;
};

}  // namespace vela
