#include "objectmanager/objectmanager.h"

#include <cxxabi.h>

#include <optional>

#include "host/names.h"
#include "kodiag/message.h"
#include "objectmanager/childlinks.h"
#include "objectmanager/dbtrace.h"
#include "objectmanager/instancerecords.h"
#include "objectmanager/objectmanagerimpl.h"
#include "objectmanager/persistentdmr.h"
#include "objectmanager/propertyaccess.h"
#include "objectmanager/repositorylock.h"
#include "sqldb/database.h"
#include "text/utf8.h"

namespace vela {
namespace {

using kodiag::util::diagnostics;

kodiag::Message evaluationFailure(const char* reason, std::exception_ptr original) {
  return {{"nexstore:nex", "EvaluationFailed"}, {{"Reason", reason}}, {}, std::move(original)};
}

void requireOpen(ObjectManager& manager) {
  diagnostics notOpen;
  manager.repository().metamodel(notOpen);
  notOpen.raiseIfAny();
}

}  // namespace

ObjectManager::ObjectManager() : impl_(std::make_unique<ObjectManagerImpl>(*this)) {}

ObjectManager::ObjectManager(const std::wstring& location, Access access)
    : impl_(std::make_unique<ObjectManagerImpl>(*this, location, access)) {}

ObjectManager::~ObjectManager() = default;

void ObjectManager::initializeObjectManager(const std::string& schemaFile,
                                            const std::string& packageName) {
  impl_->initialize(schemaFile, packageName);
}

std::string ObjectManager::getSchemaPath(const std::string& fileName) {
  return (host::rootDirectory() / "toolbox" / "shared" / "nexstore" / "schema" /
          (fileName.empty() ? "schema.xml" : fileName))
      .string();
}

void ObjectManager::disconnect() {
  impl_->disconnect();
}

bool ObjectManager::isOpen() const {
  return impl_->repository().isOpen();
}

bool ObjectManager::isReadOnly() const {
  return impl_->isReadOnly();
}

std::uint64_t ObjectManager::compact() {
  requireOpen(*this);
  diagnostics diag;
  const sqldb::FileSpace before = repository().space(diag);
  repository().compact(diag);
  const sqldb::FileSpace after = repository().space(diag);
  diag.raiseIfAny();
  const std::uint64_t then = before.file + before.log;
  const std::uint64_t now = after.file + after.log;
  return then > now ? then - now : 0;
}

void ObjectManager::checkFile(const std::wstring& location, diagnostics& diag) {
  kodd::DataModelRepository::checkFile(location, diag);
}

const diagnostics& ObjectManager::getOpeningNotices() const {
  return impl_->openingNotices();
}

void ObjectManager::noteSharedFileUnusable() {
  impl_->noteSharedFileUnusable();
}

std::wstring ObjectManager::getDatabaseLocation() const {
  return impl_->location();
}

void ObjectManager::setLocationToPersistentDMR() {
  impl_->setLocationToPersistentDMR();
}

bool ObjectManager::isPersistentDMR() const {
  return impl_->location() == persistentdmr::path();
}

bool ObjectManager::isPersistentDMRWritable() {
  return persistentdmr::isUsable();
}

std::wstring ObjectManager::persistentDMRPath() {
  return persistentdmr::path();
}

void ObjectManager::deletePersistentDMRfile() {
  persistentdmr::deleteFile();
}

void ObjectManager::setInstanceClosed() {
  requireOpen(*this);
  instancerecords::close(*this);
}

long long ObjectManager::getInstanceID() const {
  return impl_->instanceID();
}

void ObjectManager::setInstanceID(unsigned long long id) {
  impl_->setInstanceID(static_cast<long long>(id));
}

void ObjectManager::actForInstance(long long id) {
  impl_->actForInstance(id);
}

void ObjectManager::setIsRapidAccelProcess() {
  impl_->setInstanceID(RACCEL_INSTANCE_ID);
}

bool ObjectManager::getIsRapidAccelProcess() const {
  return impl_->instanceID() == RACCEL_INSTANCE_ID;
}

void ObjectManager::ensureInstanceRecords() {
  requireOpen(*this);
  instancerecords::ensure(*this);
}

void ObjectManager::closeDeadInstances() {
  requireOpen(*this);
  instancerecords::closeDead(*this);
}

bool ObjectManager::isInstanceAlive(long long id) {
  requireOpen(*this);
  return id == getInstanceID() || impl_->repository().getDB()->isInstanceAlive(id);
}

std::unique_ptr<ObjectRef> ObjectManager::createObject(const std::string& className,
                                                       bool returnRef) {
  const kodd::ObjectRef created = impl_->createObject(impl_->classNamed(className));
  return returnRef ? impl_->handle(created) : nullptr;
}

std::unique_ptr<ObjectRef> ObjectManager::createObject(const std::string& className,
                                                       std::vector<InitialProperty>& properties,
                                                       bool returnRef) {
  const kodd::ObjectRef created = impl_->createObject(impl_->classNamed(className), properties);
  return returnRef ? impl_->handle(created) : nullptr;
}

std::unique_ptr<ObjectRef> ObjectManager::findObject(int objectID, const std::string& className,
                                                     bool& found) {
  std::unique_ptr<ObjectRef> object =
      impl_->handle(impl_->findObject(objectID, impl_->classNamed(className)));
  found = object != nullptr;
  return object;
}

std::unique_ptr<ObjectRef> ObjectManager::findObject(int objectID, bool& found) {
  std::unique_ptr<ObjectRef> object = impl_->handle(impl_->findObject(objectID));
  found = object != nullptr;
  return object;
}

void ObjectManager::findObjects(const std::string& className,
                                const std::vector<Constraint>& constraints,
                                boost::ptr_vector<ObjectRef>& results,
                                const std::vector<ObjectConstraint>& objectConstraints,
                                const std::string& orderBy,
                                const kodd::ObjectQuery::SortOrder& order) {
  impl_->findObjects(className, constraints, results, objectConstraints, orderBy, order);
}

void ObjectManager::findObjects(ObjectRef& parent, const std::string& childClass,
                                const std::vector<Constraint>& constraints,
                                boost::ptr_vector<ObjectRef>& results) {
  impl_->findObjects(parent, childClass, constraints, results);
}

void ObjectManager::findUUIDTypePairObjects(const std::vector<Constraint>& constraints,
                                            boost::ptr_vector<ObjectRef>& results,
                                            bool append) {
  if (!append) results.clear();
  findObjects("UUIDTypePair", constraints, results);
}

bool ObjectManager::getObjectRef(const std::string& className, kodd::ClassRef& cls,
                                 int objectID, kodd::ObjectRef& out) {
  cls = impl_->classNamed(className);
  out = impl_->findObject(objectID, cls);
  return out.id() != 0;
}

kodd::PackageRef ObjectManager::getPackageAndClass(const std::string& qualifiedName,
                                                   std::string& className) {
  return impl_->packageAndClass(qualifiedName, className);
}

kodd::ClassRef ObjectManager::getClass(const std::string& qualifiedName) {
  return impl_->classNamed(qualifiedName);
}

kodd::PropertyRef ObjectManager::getPropertyRef(const std::string& qualifiedClass,
                                                const std::string& property) {
  return propertyOf(impl_->classNamed(qualifiedClass), property);
}

void ObjectManager::removeObject(int objectID, const std::string& className) {
  bool found = false;
  const std::unique_ptr<ObjectRef> object = findObject(objectID, className, found);
  if (!found) {
    kodiag::raise({"KODD:kodd", "NoSuchObject"},
                  {{"ObjectID", std::to_string(objectID)}, {"ClassName", className}});
  }
  diagnostics raised;
  object->removeObject(raised);
}

void ObjectManager::addChild(ObjectRef& parent, ObjectRef& child) {
  linkChild(parent, child);
}

void ObjectManager::removeChild(ObjectRef& parent, ObjectRef& child) {
  unlinkChild(parent, child);
}

bool ObjectManager::isChild(ObjectRef& parent, ObjectRef& child) {
  return isLinkedChild(parent, child);
}

void ObjectManager::getProperty(ObjectRef& object, const std::string& name, int& value) {
  readProperty(object, name, value);
}

void ObjectManager::getProperty(ObjectRef& object, const std::string& name, long long& value) {
  readProperty(object, name, value);
}

void ObjectManager::getProperty(ObjectRef& object, const std::string& name, double& value) {
  readProperty(object, name, value);
}

void ObjectManager::getProperty(ObjectRef& object, const std::string& name,
                                std::string& value) {
  readProperty(object, name, value);
}

void ObjectManager::getProperty(ObjectRef& object, const std::string& name,
                                std::wstring& value) {
  readProperty(object, name, value);
}

void ObjectManager::getProperty(ObjectRef& object, const std::string& name,
                                kodd::EntryValue& value) {
  readProperty(object, name, value);
}

void ObjectManager::getProperty(ObjectRef& object, const std::string& name,
                                std::vector<char>& value) {
  readProperty(object, name, value);
}

void ObjectManager::getProperty(ObjectRef& object, const std::string& name, int size,
                                void* buffer, int& length) {
  readRawProperty(object, name, size, buffer, length);
}

void ObjectManager::getPropertyObject(ObjectRef& object, const std::string& name,
                                      std::unique_ptr<ObjectRef>& value,
                                      const std::string& targetClass) {
  readObjectProperty(object, name, value, targetClass);
}

void ObjectManager::setPropertyInt32(ObjectRef& object, const std::string& name, int value) {
  writeProperty(object, name, value);
}

void ObjectManager::setPropertyInt64(ObjectRef& object, const std::string& name,
                                     long long value) {
  writeProperty(object, name, value);
}

void ObjectManager::setPropertyReal64(ObjectRef& object, const std::string& name,
                                      double value) {
  writeProperty(object, name, value);
}

void ObjectManager::setPropertyStdString(ObjectRef& object, const std::string& name,
                                         const std::string& value) {
  writeProperty(object, name, value);
}

void ObjectManager::setPropertyUString(ObjectRef& object, const std::string& name,
                                       const std::wstring& value) {
  writeProperty(object, name, value);
}

void ObjectManager::setPropertyConstBlob(ObjectRef& object, const std::string& name,
                                         const kodd::const_BlobDescriptor& value) {
  writeProperty(object, name, value);
}

void ObjectManager::setPropertyObject(ObjectRef& object, const std::string& name,
                                      ObjectRef& value) {
  writeProperty(object, name, value.getObjRef());
}

void ObjectManager::setProperty(ObjectRef& object, const std::string& name,
                                const kodd::EntryValue& value) {
  writeProperty(object, name, value);
}

std::unique_ptr<kodd::ObjectQuery> ObjectManager::createObjectQuery() {
  return std::make_unique<kodd::ObjectQuery>(repository());
}

std::unique_ptr<kodd::ObjectConstructor> ObjectManager::createObjectConstructor(
    const kodd::ClassRef& cls) {
  return std::make_unique<kodd::ObjectConstructor>(cls, repository());
}

std::unique_ptr<kodd::ObjectModifier> ObjectManager::createObjectModifier(
    const std::string& propertyName, const kodd::ClassRef& cls) {
  propertyOf(cls, propertyName);
  return std::make_unique<kodd::ObjectModifier>(cls, repository());
}

std::unique_ptr<kodd::ObjectDeleter> ObjectManager::createObjectDeleter(
    const kodd::ClassRef& cls) {
  return std::make_unique<kodd::ObjectDeleter>(cls, repository());
}

std::unique_ptr<kodd::BlobStream> ObjectManager::createBlobStream(
    const kodd::PropertyRef& blobProperty, kodd::BlobStream::Access access) {
  return std::make_unique<kodd::BlobStream>(blobProperty, repository(), access);
}

std::unique_ptr<PreparedSet>& ObjectManager::preparedSlot(std::type_index type) {
  return impl_->preparedSlot(type);
}

void ObjectManager::threadSafeEval(DictionaryFunction& fn, diagnostics& diag) {
  std::optional<RepositoryGuard> lock;
  try {
    lock.emplace("threadSafeEval");
  } catch (const kodiag::except::ExceptionWithCauses& busy) {
    diag = diagnostics(busy);
    return;
  }
  if (fn.empty()) {
    diag.add(evaluationFailure("call to empty boost::function", nullptr));
    return;
  }
  try {
    fn(diag);
  } catch (const kodiag::except::ExceptionWithCauses& exception) {
    diag = diagnostics(exception);
  } catch (const std::exception& exception) {
    diag.add(evaluationFailure(exception.what(), std::current_exception()));
  } catch (const abi::__forced_unwind&) {
    throw;  // the thread is being cancelled
  } catch (...) {
    diag.add(evaluationFailure("unknown exception", std::current_exception()));
  }
}

void ObjectManager::beginTransaction() {
  impl_->beginTransaction();
}

void ObjectManager::commitTransaction() {
  impl_->commitTransaction();
}

void ObjectManager::rollbackTransaction() {
  impl_->rollbackTransaction();
}

void ObjectManager::safeTransaction(DictionaryFunction& fn, diagnostics& diag) {
  impl_->safeTransaction(fn, diag);
}

bool ObjectManager::trySafeTransaction(DictionaryFunction& fn, diagnostics& diag) {
  return impl_->trySafeTransaction(fn, diag);
}

void ObjectManager::beginBulkPropertyUpdate(ObjectRef* ref) {
  impl_->beginBulkPropertyUpdate(*ref);
}

void ObjectManager::commitBulkPropertyUpdate(ObjectRef* ref) {
  impl_->commitBulkPropertyUpdate(*ref);
}

template <class T>
void ObjectManager::setPropertyWithBulkSupport(ObjectRef* ref, const std::string& name,
                                               const T* value) {
  const kodd::PropertyRef property = propertyOf(ref->getClassRef(), name);
  if (!impl_->bulkUpdates().bind(ref, property, value)) writeProperty(*ref, name, *value);
}

template void ObjectManager::setPropertyWithBulkSupport(ObjectRef*, const std::string&,
                                                        const int*);
template void ObjectManager::setPropertyWithBulkSupport(ObjectRef*, const std::string&,
                                                        const long long*);
template void ObjectManager::setPropertyWithBulkSupport(ObjectRef*, const std::string&,
                                                        const double*);
template void ObjectManager::setPropertyWithBulkSupport(ObjectRef*, const std::string&,
                                                        const std::string*);
template void ObjectManager::setPropertyWithBulkSupport(ObjectRef*, const std::string&,
                                                        const std::wstring*);
template void ObjectManager::setPropertyWithBulkSupport(ObjectRef*, const std::string&,
                                                        const kodd::const_BlobDescriptor*);
template void ObjectManager::setPropertyWithBulkSupport(ObjectRef*, const std::string&,
                                                        const kodd::ObjectRef*);

void ObjectManager::dropBulkPropertyUpdate(const ObjectRef* ref) noexcept {
  impl_->bulkUpdates().take(ref);
}

void ObjectManager::beginBulkObjectDeletion(const kodd::ClassRef& cls) {
  impl_->beginBulkObjectDeletion(cls);
}

void ObjectManager::addObjectForBulkDeletion(kodd::ObjectRef& object) {
  impl_->addObjectForBulkDeletion(object);
}

void ObjectManager::commitBulkObjectDeletion(const kodd::ClassRef& cls) {
  impl_->commitBulkObjectDeletion(cls);
}

int ObjectManager::openBulkDeletionBracket() {
  return impl_->bulkDeletions().openBracket();
}

int ObjectManager::closeBulkDeletionBracket() {
  return impl_->bulkDeletions().closeBracket();
}

int ObjectManager::openBulkDeletionBrackets() const {
  return impl_->bulkDeletions().openBrackets();
}

FindObjectsTracer& ObjectManager::getFindObjectsTracer() {
  return impl_->tracer();
}

void ObjectManager::enableDBTrace() {
  dbtrace::enableTrace();
}

void ObjectManager::enableDBProfile() {
  dbtrace::enableProfile();
}

kodd::DataModelRepository& ObjectManager::repository() {
  return impl_->repository();
}

}  // namespace vela
