#include "objectmanager/objectref.h"

#include "objectmanager/childlinks.h"
#include "objectmanager/objectmanager.h"
#include "objectmanager/propertyaccess.h"

namespace vela {

struct ObjectRef::Record {
  int tag;
  kodd::ObjectRef object;
  kodd::ClassRef cls;
  std::string type;
  ObjectManager& manager;
  bool hasBulkUpdate = false;
};

ObjectRef::ObjectRef(int tag, kodd::ObjectRef object, kodd::ClassRef cls,
                     const std::string& type, ObjectManager& manager)
    : record_(new Record{tag, std::move(object), cls, type, manager, false}) {}

ObjectRef::ObjectRef(kodd::ObjectRef object, kodd::ClassRef cls, const std::string& type,
                     ObjectManager& manager)
    : ObjectRef(0, std::move(object), cls, type, manager) {}

ObjectRef::~ObjectRef() {
  // Otherwise a new handle at this address would inherit the update and write to this object. A
  // handle without one leaves the manager alone: that may be gone already.
  if (record_->hasBulkUpdate) record_->manager.dropBulkPropertyUpdate(this);
}

void ObjectRef::noteBulkPropertyUpdate(bool open) {
  record_->hasBulkUpdate = open;
}

std::unique_ptr<ObjectRef> ObjectRef::clone() const {
  return std::make_unique<ObjectRef>(record_->tag, record_->object, record_->cls, record_->type,
                                     record_->manager);
}

int ObjectRef::getTag() const {
  return record_->tag;
}

int ObjectRef::getObjectID() const {
  return record_->object.id();
}

const std::string& ObjectRef::getObjectType() const {
  return record_->type;
}

kodd::ClassRef ObjectRef::getClassRef() const {
  return record_->cls;
}

const kodd::ObjectRef& ObjectRef::getObjRef() const {
  return record_->object;
}

ObjectManager& ObjectRef::getObjectManager() const {
  return record_->manager;
}

int ObjectRef::getPropertyInt32(const std::string& name) const {
  int value = 0;
  readProperty(*this, name, value);
  return value;
}

long long ObjectRef::getPropertyInt64(const std::string& name) const {
  long long value = 0;
  readProperty(*this, name, value);
  return value;
}

double ObjectRef::getPropertyReal64(const std::string& name) const {
  double value = 0;
  readProperty(*this, name, value);
  return value;
}

std::string ObjectRef::getPropertyStdString(const std::string& name) const {
  std::string value;
  readProperty(*this, name, value);
  return value;
}

std::wstring ObjectRef::getPropertyUString(const std::string& name) const {
  std::wstring value;
  readProperty(*this, name, value);
  return value;
}

void ObjectRef::getProperty(const std::string& name, kodd::EntryValue& value) const {
  readProperty(*this, name, value);
}

void ObjectRef::getProperty(const std::string& name, int size, void* buffer,
                            int& length) const {
  readRawProperty(*this, name, size, buffer, length);
}

void ObjectRef::getProperty(const std::string& name, std::vector<char>& value) const {
  readProperty(*this, name, value);
}

void ObjectRef::getPropertyObject(const std::string& name, std::unique_ptr<ObjectRef>& value,
                                  const std::string& targetClass) const {
  readObjectProperty(*this, name, value, targetClass);
}

void ObjectRef::setPropertyInt32(const std::string& name, int value) {
  writeProperty(*this, name, value);
}

void ObjectRef::setPropertyInt64(const std::string& name, long long value) {
  writeProperty(*this, name, value);
}

void ObjectRef::setPropertyReal64(const std::string& name, double value) {
  writeProperty(*this, name, value);
}

void ObjectRef::setPropertyStdString(const std::string& name, const std::string& value) {
  writeProperty(*this, name, value);
}

void ObjectRef::setPropertyUString(const std::string& name, const std::wstring& value) {
  writeProperty(*this, name, value);
}

void ObjectRef::setPropertyConstBlob(const std::string& name,
                                     const kodd::const_BlobDescriptor& value) {
  writeProperty(*this, name, value);
}

void ObjectRef::setPropertyObject(const std::string& name, ObjectRef& value) {
  writeProperty(*this, name, value.getObjRef());
}

void ObjectRef::setProperty(const std::string& name, const kodd::EntryValue& value) {
  writeProperty(*this, name, value);
}

void ObjectRef::beginBulkPropertyUpdate() {
  record_->manager.beginBulkPropertyUpdate(this);
}

void ObjectRef::commitBulkPropertyUpdate() {
  record_->manager.commitBulkPropertyUpdate(this);
}

template <class T>
void ObjectRef::setPropertyWithBulkSupport(const std::string& name, const T* value) {
  record_->manager.setPropertyWithBulkSupport(this, name, value);
}

template void ObjectRef::setPropertyWithBulkSupport(const std::string&, const int*);
template void ObjectRef::setPropertyWithBulkSupport(const std::string&, const long long*);
template void ObjectRef::setPropertyWithBulkSupport(const std::string&, const double*);
template void ObjectRef::setPropertyWithBulkSupport(const std::string&, const std::string*);
template void ObjectRef::setPropertyWithBulkSupport(const std::string&, const std::wstring*);
template void ObjectRef::setPropertyWithBulkSupport(const std::string&,
                                                    const kodd::const_BlobDescriptor*);
template void ObjectRef::setPropertyWithBulkSupport(const std::string&, const kodd::ObjectRef*);

void ObjectRef::addChild(ObjectRef& child) {
  record_->manager.addChild(*this, child);
}

void ObjectRef::removeChild(ObjectRef& child) {
  record_->manager.removeChild(*this, child);
}

bool ObjectRef::isChild(ObjectRef& child) {
  return record_->manager.isChild(*this, child);
}

void ObjectRef::getChildren(const std::string& childClass,
                            const kodd::MatchConstraints& constraints,
                            boost::ptr_vector<ObjectRef>& children) const {
  appendChildren(*this, childClass, constraints, children);
}

void ObjectRef::removeObject(kodiag::util::diagnostics& diag) {
  kodiag::util::diagnostics failure;
  kodd::ObjectRef object = storedObject(*this);
  DictionaryFunction deletion = [&object](kodiag::util::diagnostics& inner) {
    object.deleteObject(inner);
  };
  record_->manager.safeTransaction(deletion, failure);
  diag.append(failure);
  failure.raiseIfAny();
}

}  // namespace vela
