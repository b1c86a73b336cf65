#include "objectmanager/objectmanagerimpl.h"

#include <chrono>
#include <utility>

#include "kodiag/message.h"
#include "objectmanager/childlinks.h"
#include "objectmanager/dbtrace.h"
#include "objectmanager/findobjects.h"
#include "objectmanager/instancerecords.h"
#include "objectmanager/opening.h"
#include "objectmanager/persistentdmr.h"
#include "objectmanager/propertyaccess.h"
#include "objectmanager/repositorylock.h"
#include "text/utf8.h"

namespace vela {
namespace {

using kodiag::util::diagnostics;

constexpr const char* kDefaultPackage = "vela";

using RepositoryGuard = std::lock_guard<std::recursive_mutex>;

/// Counts a running unit for a scope.
class UnitCount {
 public:
  explicit UnitCount(int& count) : count_(count) { ++count_; }
  ~UnitCount() { --count_; }
  UnitCount(const UnitCount&) = delete;
  UnitCount& operator=(const UnitCount&) = delete;

 private:
  int& count_;
};

double secondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

}  // namespace

ObjectManagerImpl::ObjectManagerImpl(ObjectManager& owner)
    : owner_(owner), privateFile_(std::in_place) {
  location_ = text::toWide(privateFile_->location());
}

ObjectManagerImpl::ObjectManagerImpl(ObjectManager& owner, std::wstring location)
    : owner_(owner), location_(std::move(location)) {}

ObjectManagerImpl::~ObjectManagerImpl() {
  RepositoryGuard lock(repositoryLock());
  closeStore();
}

void ObjectManagerImpl::initialize(const std::string& schemaFile,
                                   const std::string& packageName) {
  RepositoryGuard lock(repositoryLock());
  refuseInsideUnit("initializeObjectManager");
  closeStore();
  openStore(schemaFile);
  if (!repository_.isOpen()) return;
  passSettings();
  dbtrace::install(repository_);
  preparePackage(packageName);
  recordInstance();
}

void ObjectManagerImpl::openStore(const std::string& schemaFile) {
  const std::string schema = schemaFile.empty() ? ObjectManager::getSchemaPath("") : schemaFile;
  const opening::Request request{location_, text::toWide(schema),
                                 opening::optionsFromEnvironment()};
  openingNotices_.clear();
  if (location_ != persistentdmr::path() || persistentdmr::wasOpened()) {
    opening::openDirectly(repository_, request);
  } else {
    openingNotices_ = opening::openShared(repository_, request);
    persistentdmr::noteOpened();
  }
}

void ObjectManagerImpl::passSettings() {
  for (const char* const statement : {"PRAGMA journal_mode = OFF", "PRAGMA synchronous = OFF",
                                      "PRAGMA temp_store = MEMORY"}) {
    try {
      repository_.getDB()->executeStatement(statement);
    } catch (const kodiag::except::ExceptionWithCauses&) {
      // Wishes only: the database declines those that would cost it a failed change's undoing.
    }
  }
}

void ObjectManagerImpl::preparePackage(const std::string& packageName) {
  diagnostics discarded;
  metamodel_ = repository_.metamodel(discarded);
  if (!metamodel_.isValid()) return;
  package_ = metamodel_.findPackage(packageName.empty() ? kDefaultPackage : packageName);
}

void ObjectManagerImpl::recordInstance() {
  // Who is no instance only looks.
  if (instanceID_ == 0) return;
  try {
    instancerecords::ensure(owner_);
    instancerecords::closeDead(owner_);
  } catch (const kodiag::except::ExceptionWithCauses& exception) {
    openingNotices_.append(diagnostics(exception));
  }
}

void ObjectManagerImpl::disconnect() {
  RepositoryGuard lock(repositoryLock());
  refuseInsideUnit("disconnect");
  closeStore();
  if (privateFile_) privateFile_->remove();
}

void ObjectManagerImpl::closeStore() {
  prepared_.clear();
  constructors_.clear();
  bulkUpdates_.clear();
  bulkDeletions_.clear();
  explicitTransactionMark_.reset();
  package_ = {};
  metamodel_ = {};
  repository_.close();
}

void ObjectManagerImpl::refuseInsideUnit(const char* operation) const {
  if (runningUnits_ > 0) {
    kodiag::raise({"KODD:kodd", "TransactionActive"}, {{"Operation", operation}});
  }
}

void ObjectManagerImpl::setLocationToPersistentDMR() {
  RepositoryGuard lock(repositoryLock());
  location_ = persistentdmr::path();
  if (privateFile_ && !repository_.isOpen()) privateFile_->remove();
}

void ObjectManagerImpl::setInstanceID(long long id) {
  RepositoryGuard lock(repositoryLock());
  const long long former = std::exchange(instanceID_, id);
  if (former == id || !repository_.isOpen()) return;
  instancerecords::abandon(owner_, former);
  if (id != 0) instancerecords::ensure(owner_);
}

void ObjectManagerImpl::actForInstance(long long id) {
  RepositoryGuard lock(repositoryLock());
  instanceID_ = id;
}

kodd::PackageRef ObjectManagerImpl::packageAndClass(const std::string& qualifiedName,
                                                    std::string& className) {
  const std::size_t dot = qualifiedName.find('.');
  if (dot == std::string::npos) {
    className = qualifiedName;
    return package_;
  }
  className = qualifiedName.substr(dot + 1);
  if (!metamodel_.isValid()) return {};
  return metamodel_.findPackage(std::string_view(qualifiedName).substr(0, dot));
}

kodd::ClassRef ObjectManagerImpl::classNamed(const std::string& qualifiedName) {
  std::string name;
  const kodd::PackageRef package = packageAndClass(qualifiedName, name);
  const kodd::ClassRef cls = package.isValid() ? package.findClass(name) : kodd::ClassRef();
  if (!cls.isValid()) {
    diagnostics notOpen;
    repository_.metamodel(notOpen);
    notOpen.raiseIfAny();
    kodiag::raise({"KODD:kodd", "NoSuchObjectType"}, {{"ClassName", qualifiedName}});
  }
  return cls;
}

kodd::ObjectRef ObjectManagerImpl::createObject(const kodd::ClassRef& cls) {
  kodd::ObjectRef created;
  runUnit([&](diagnostics& diag) { created = repository_.createObject(cls, diag); });
  return created;
}

kodd::ObjectRef ObjectManagerImpl::createObject(
    const kodd::ClassRef& cls, const std::vector<ObjectManager::InitialProperty>& properties) {
  RepositoryGuard lock(repositoryLock());
  kodd::ObjectConstructor& constructor = constructors_.bound(cls, properties, repository_);
  kodd::ObjectRef created;
  runUnit([&](diagnostics& diag) { created = constructor.createObject(diag); });
  return created;
}

kodd::ObjectRef ObjectManagerImpl::findObject(int objectID, const kodd::ClassRef& cls) {
  RepositoryGuard lock(repositoryLock());
  diagnostics diag;
  kodd::ObjectRef object = repository_.getObjectRef(objectID, cls, diag);
  diag.raiseIfAny();
  return object;
}

kodd::ObjectRef ObjectManagerImpl::findObject(int objectID) {
  RepositoryGuard lock(repositoryLock());
  diagnostics diag;
  kodd::ObjectRef object = repository_.getObjectRef(objectID, diag);
  diag.raiseIfAny();
  return object;
}

std::unique_ptr<ObjectRef> ObjectManagerImpl::handle(const kodd::ObjectRef& object) {
  if (object.id() == 0) return nullptr;
  return std::make_unique<ObjectRef>(object, object.cls(), object.cls().name(), owner_);
}

void ObjectManagerImpl::findObjects(
    const std::string& className, const std::vector<ObjectManager::Constraint>& constraints,
    boost::ptr_vector<ObjectRef>& results,
    const std::vector<ObjectManager::ObjectConstraint>& objectConstraints,
    const std::string& orderBy, kodd::ObjectQuery::SortOrder order) {
  RepositoryGuard lock(repositoryLock());
  const auto start = std::chrono::steady_clock::now();
  const ObjectSearch search{classNamed(className), constraints, objectConstraints, orderBy,
                            order};
  for (const kodd::ObjectRef& object : findStoredObjects(repository_, search)) {
    results.push_back(handle(object).release());
  }
  tracer_.record(search.cls, constrainedProperties(search.cls, constraints, objectConstraints),
                 secondsSince(start));
}

void ObjectManagerImpl::findObjects(ObjectRef& parent, const std::string& childClass,
                                    const std::vector<ObjectManager::Constraint>& constraints,
                                    boost::ptr_vector<ObjectRef>& results) {
  RepositoryGuard lock(repositoryLock());
  const auto start = std::chrono::steady_clock::now();
  const kodd::ClassRef cls = childClassOf(parent, childClass);
  appendChildren(parent, childClass, matchConstraints(cls, constraints), results);
  tracer_.record(cls, constrainedProperties(cls, constraints, {}), secondsSince(start));
}

void ObjectManagerImpl::beginTransaction() {
  {
    // Before the transaction: a thread that holds this lock may be waiting for its end.
    RepositoryGuard lock(repositoryLock());
    if (!explicitTransactionMark_) explicitTransactionMark_ = bulkDeletions_.mark();
  }
  diagnostics diag;
  repository_.beginTransaction(diag);
  diag.raiseIfAny();
}

void ObjectManagerImpl::commitTransaction() {
  endTransaction([this](diagnostics& diag) { repository_.commitTransaction(diag); }, true);
}

void ObjectManagerImpl::rollbackTransaction() {
  endTransaction([this](diagnostics& diag) { repository_.rollbackTransaction(diag); }, false);
}

template <class Operation>
void ObjectManagerImpl::endTransaction(Operation&& operation, bool keepsWork) {
  const int depth = repository_.depth();
  diagnostics diag;
  operation(diag);
  if (repository_.depth() < depth) {
    const bool isUndone = !keepsWork || !diag.empty();
    RepositoryGuard lock(repositoryLock());
    if (explicitTransactionMark_ && isUndone)
      bulkDeletions_.rollBackTo(*explicitTransactionMark_);
    explicitTransactionMark_.reset();
  }
  diag.raiseIfAny();
}

void ObjectManagerImpl::safeTransaction(DictionaryFunction& fn, diagnostics& diag) {
  RepositoryGuard lock(repositoryLock());
  UnitCount running(runningUnits_);
  const std::uint64_t mark = bulkDeletions_.mark();
  diagnostics failure;
  repository_.performDictionaryFunction(fn, failure);
  if (!failure.empty()) bulkDeletions_.rollBackTo(mark);
  diag.append(failure);
}

void ObjectManagerImpl::runUnit(DictionaryFunction fn) {
  diagnostics diag;
  safeTransaction(fn, diag);
  diag.raiseIfAny();
}

void ObjectManagerImpl::beginBulkPropertyUpdate(ObjectRef& handle) {
  storedObject(handle);
  bulkUpdates_.begin(&handle, handle.getClassRef(), repository_);
  handle.noteBulkPropertyUpdate(true);
}

void ObjectManagerImpl::commitBulkPropertyUpdate(ObjectRef& handle) {
  std::optional<BulkUpdate> update = bulkUpdates_.take(&handle);
  handle.noteBulkPropertyUpdate(false);
  if (!update) return;
  const auto modify = [&](diagnostics& diag) {
    kodd::ObjectRef object = handle.getObjRef();
    update->modifier.modifyObject(object, diag);
    diag.raiseIfAny();
  };
  const std::string& className = handle.getObjectType();
  std::erase_if(update->properties,
                [&](const std::string& name) { return !isWatched(className, name); });
  if (update->properties.empty()) {
    diagnostics diag;
    return modify(diag);
  }
  runUnit([&](diagnostics& diag) {
    modify(diag);
    for (const std::string& name : update->properties)
      tellWatchers(className, name, owner_, handle.getObjectID());
  });
}

void ObjectManagerImpl::beginBulkObjectDeletion(const kodd::ClassRef& cls) {
  RepositoryGuard lock(repositoryLock());
  bulkDeletions_.begin(cls, repository_);
}

void ObjectManagerImpl::addObjectForBulkDeletion(kodd::ObjectRef& object) {
  // Under the lock, so that the failing unit of another thread does not take this object along.
  RepositoryGuard lock(repositoryLock());
  if (bulkDeletions_.add(object)) return;
  runUnit([&](diagnostics& diag) { object.deleteObject(diag); });
}

void ObjectManagerImpl::commitBulkObjectDeletion(const kodd::ClassRef& cls) {
  RepositoryGuard lock(repositoryLock());
  std::optional<BulkDeletions::Pending> pending = bulkDeletions_.take(cls);
  if (!pending) return;
  runUnit([&](diagnostics& diag) { pending->deleteAll(diag); });
}

}  // namespace vela
