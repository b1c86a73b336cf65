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

std::uint64_t nextWorkSerial() {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

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
    : owner_(owner), privateFile_(std::in_place), workSerial_(nextWorkSerial()) {
  location_ = text::toWide(privateFile_->location());
}

ObjectManagerImpl::ObjectManagerImpl(ObjectManager& owner, std::wstring location,
                                     ObjectManager::Access access)
    : owner_(owner),
      location_(std::move(location)),
      access_(access),
      workSerial_(nextWorkSerial()) {}

ObjectManagerImpl::~ObjectManagerImpl() {
  dropWork();
  repository_.close();
}

ObjectManagerImpl::ThreadWork& ObjectManagerImpl::work() {
  thread_local std::uint64_t serial = 0;
  thread_local ThreadWork* mine = nullptr;
  const std::uint64_t current = workSerial_.load(std::memory_order_relaxed);
  if (serial == current) return *mine;
  {
    const std::lock_guard guard(workMutex_);
    std::unique_ptr<ThreadWork>& slot = work_[std::this_thread::get_id()];
    if (!slot) slot = std::make_unique<ThreadWork>();
    mine = slot.get();
  }
  serial = current;
  if (std::exchange(mine->serial, current) != current) {
    mine->prepared.clear();
    mine->constructors.clear();
    mine->explicitTransactionMark.reset();
    mine->bulkDeletions.clear();
  }
  return *mine;
}

void ObjectManagerImpl::initialize(const std::string& schemaFile,
                                   const std::string& packageName) {
  const RepositoryGuard lock("initializeObjectManager");
  refuseInsideUnit("initializeObjectManager");
  closeStoreInTurn();
  openStore(schemaFile);
  if (!repository_.isOpen()) return;
  passSettings();
  dbtrace::install(repository_);
  preparePackage(packageName);
  if (!isReadOnly()) recordInstance();
}

void ObjectManagerImpl::openStore(const std::string& schemaFile) {
  const std::string schema = schemaFile.empty() ? ObjectManager::getSchemaPath("") : schemaFile;
  opening::Request request{location_, text::toWide(schema), opening::optionsFromEnvironment()};
  request.options.access = access_;
  // Everybody may make links in the folder of the shared file.
  request.options.followLink = location_ != persistentdmr::path();
  if (hasFailedToOpen_) request.attempts = 1;
  openingNotices_ = standingNotices_;
  if (isReadOnly() || location_ != persistentdmr::path() || persistentdmr::wasOpened()) {
    opening::openDirectly(repository_, request);
  } else {
    openingNotices_.append(opening::openShared(repository_, request));
    persistentdmr::noteOpened();
  }
  hasFailedToOpen_ = !repository_.isOpen();
}

void ObjectManagerImpl::noteSharedFileUnusable() {
  standingNotices_.add({{"nexstore:nex", "SharedFileUnusable"},
                        {{"Location", text::toUtf8(persistentdmr::path())},
                         {"Reason", persistentdmr::unusableReason()},
                         {"Instead", text::toUtf8(location_)}},
                        {},
                        nullptr});
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
  const RepositoryGuard lock("disconnect");
  refuseInsideUnit("disconnect");
  closeStoreInTurn();
  if (privateFile_) privateFile_->remove();
}

void ObjectManagerImpl::closeStoreInTurn() {
  diagnostics diag;
  repository_.closeInTurn(diag);
  diag.raiseIfAny();
  dropWork();
}

void ObjectManagerImpl::dropWork() {
  // Every thread drops what it has prepared when it comes back.
  workSerial_ = nextWorkSerial();
  work();
  bulkUpdates_.clear();
  package_ = {};
  metamodel_ = {};
}

void ObjectManagerImpl::refuseInsideUnit(const char* operation) {
  if (work().runningUnits > 0) {
    kodiag::raise({"KODD:kodd", "TransactionActive"}, {{"Operation", operation}});
  }
}

void ObjectManagerImpl::setLocationToPersistentDMR() {
  const RepositoryGuard lock("setLocationToPersistentDMR");
  location_ = persistentdmr::path();
  if (privateFile_ && !repository_.isOpen()) privateFile_->remove();
}

void ObjectManagerImpl::setInstanceID(long long id) {
  const RepositoryGuard lock("setInstanceID");
  const long long former = std::exchange(instanceID_, id);
  if (former == id || !repository_.isOpen() || isReadOnly()) return;
  instancerecords::abandon(owner_, former);
  if (id != 0) instancerecords::ensure(owner_);
}

void ObjectManagerImpl::actForInstance(long long id) {
  const RepositoryGuard lock("actForInstance");
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
  kodd::ObjectConstructor& constructor =
      work().constructors.bound(cls, properties, repository_);
  kodd::ObjectRef created;
  runUnit([&](diagnostics& diag) { created = constructor.createObject(diag); });
  return created;
}

kodd::ObjectRef ObjectManagerImpl::findObject(int objectID, const kodd::ClassRef& cls) {
  diagnostics diag;
  kodd::ObjectRef object = repository_.getObjectRef(objectID, cls, diag);
  diag.raiseIfAny();
  return object;
}

kodd::ObjectRef ObjectManagerImpl::findObject(int objectID) {
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
  const auto start = std::chrono::steady_clock::now();
  const kodd::ClassRef cls = childClassOf(parent, childClass);
  appendChildren(parent, childClass, matchConstraints(cls, constraints), results);
  tracer_.record(cls, constrainedProperties(cls, constraints, {}), secondsSince(start));
}

void ObjectManagerImpl::beginTransaction() {
  diagnostics diag;
  repository_.beginTransaction(diag);
  diag.raiseIfAny();
  work().explicitTransactionMark = work().bulkDeletions.mark();
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
    ThreadWork& mine = work();
    if (mine.explicitTransactionMark && isUndone) {
      mine.bulkDeletions.rollBackTo(*mine.explicitTransactionMark);
    }
    mine.explicitTransactionMark.reset();
  }
  diag.raiseIfAny();
}

template <class Run>
void ObjectManagerImpl::runRemembering(diagnostics& diag, Run&& run) {
  ThreadWork& mine = work();
  UnitCount running(mine.runningUnits);
  const std::uint64_t mark = mine.bulkDeletions.mark();
  diagnostics failure;
  run(failure);
  if (!failure.empty()) mine.bulkDeletions.rollBackTo(mark);
  diag.append(failure);
}

void ObjectManagerImpl::safeTransaction(DictionaryFunction& fn, diagnostics& diag) {
  runRemembering(
      diag, [&](diagnostics& failure) { repository_.performDictionaryFunction(fn, failure); });
}

bool ObjectManagerImpl::trySafeTransaction(DictionaryFunction& fn, diagnostics& diag) {
  bool hasRun = false;
  runRemembering(diag, [&](diagnostics& failure) {
    hasRun = repository_.tryDictionaryFunction(fn, failure);
  });
  return hasRun;
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
  work().bulkDeletions.begin(cls, repository_);
}

void ObjectManagerImpl::addObjectForBulkDeletion(kodd::ObjectRef& object) {
  if (work().bulkDeletions.add(object)) return;
  runUnit([&](diagnostics& diag) { object.deleteObject(diag); });
}

void ObjectManagerImpl::commitBulkObjectDeletion(const kodd::ClassRef& cls) {
  std::optional<BulkDeletions::Pending> pending = work().bulkDeletions.take(cls);
  if (!pending) return;
  runUnit([&](diagnostics& diag) { pending->deleteAll(diag); });
}

}  // namespace vela
