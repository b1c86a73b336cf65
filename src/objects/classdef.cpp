#include "objects/classdef.h"

#include "objectmanager/objectmanager.h"
#include "objects/checksum.h"
#include "objects/find.h"
#include "objects/raising.h"
#include "objects/strings.h"
#include "velainstance.h"

namespace vela {

ClassDef::ClassDef(const std::string& name, const EnumerationDefinition& definition,
                   const std::string& storageType, ObjectManager& manager) {
  manager_ = &manager;
  init(name, definition, storageType);
}

ClassDef::ClassDef(const std::string& name, const EnumerationDefinition& definition,
                   const std::string& storageType)
    : ClassDef(name, definition, storageType,
               VelaInstance::getInstance().getObjectManager({}, {})) {}

int ClassDef::getID() const {
  return getObjectReference().getObjectID();
}

std::string ClassDef::getName() const {
  return getObjectReference().getPropertyStdString(strings::Name);
}

int ClassDef::getCheckSum() const {
  return getObjectReference().getPropertyInt32(strings::CheckSum);
}

EnumerationDefinition ClassDef::getOrderedEnumerationDefinition() const {
  const kodd::ClassRef cls = manager().getClass(strings::EnumerationValue);
  std::pair<int, std::string> enumerator;
  const auto query = manager().createObjectQuery();
  query->addObjectConstraint(cls.findProperty(strings::ClassDefinition), true,
                             &getObjectReference().getObjRef());
  query->addResultProperty(cls.findProperty(strings::Value), &enumerator.first);
  query->addResultProperty(cls.findProperty(strings::Label), &enumerator.second);
  return raising([&](kodiag::util::diagnostics& diag) {
    EnumerationDefinition definition;
    kodd::ResultIterator rows = query->execute(diag);
    while (diag.empty() && rows.getNextResult(diag)) definition.push_back(enumerator);
    return definition;
  });
}

std::unordered_map<int, std::string> ClassDef::getEnumerationDefinition() const {
  const EnumerationDefinition ordered = getOrderedEnumerationDefinition();
  return {ordered.begin(), ordered.end()};
}

std::string ClassDef::getStorageType() const {
  const std::string name = getName();
  const EnumerationDefinition definition = getOrderedEnumerationDefinition();
  const int checkSum = getCheckSum();
  for (const std::string* type :
       {&strings::KorvoIntEnumType, &strings::Int8, &strings::UInt8, &strings::Int16,
        &strings::UInt16, &strings::Int32, &strings::UInt32}) {
    if (checkSumOf(name, definition, *type) == checkSum) return *type;
  }
  return {};
}

int ClassDef::checkSumOf(const std::string& name, const EnumerationDefinition& definition,
                         const std::string& storageType) {
  CheckSum sum;
  sum.add(name).add(storageType);
  for (const auto& [value, label] : definition) sum.add(value).add(label);
  return sum.value();
}

void ClassDef::init(const std::string& name, const EnumerationDefinition& definition,
                    const std::string& storageType) {
  const int checkSum = checkSumOf(name, definition, storageType);
  if (adoptStored(name, definition, checkSum)) return;
  manager().inTransaction([&] {
    // Again, now that nobody else can be storing it.
    if (!adoptStored(name, definition, checkSum)) store(name, definition, checkSum);
  });
}

bool ClassDef::adoptStored(const std::string& name, const EnumerationDefinition& definition,
                           int checkSum) {
  const std::vector<int> candidates =
      findIDs(manager(), strings::ClassDefinition,
              {equals(strings::CheckSum, checkSum),
               equals(strings::InstanceID, manager().getInstanceID())});
  for (const int id : candidates) {
    bool found = false;
    ClassDef candidate(manager().findObject(id, strings::ClassDefinition, found));
    // Different definitions can have one checksum: nothing separates name, type and labels in
    // it.
    if (found && candidate.getName() == name &&
        candidate.getOrderedEnumerationDefinition() == definition) {
      object_ = std::move(candidate.object_);
      return true;
    }
  }
  return false;
}

void ClassDef::store(const std::string& name, const EnumerationDefinition& definition,
                     int checkSum) {
  using Type = ObjectConstructorPropType;
  const long long instance = manager().getInstanceID();
  std::vector<ObjectManager::InitialProperty> identity = {
      {strings::InstanceID, &instance, Type::int64},
      {strings::CheckSum, &checkSum, Type::int32},
      {strings::Name, &name, Type::stdString}};
  object_ = manager().createObject(strings::ClassDefinition, identity, true);

  for (const auto& [value, label] : definition) {
    std::vector<ObjectManager::InitialProperty> enumerator = {
        {strings::Value, &value, Type::int32},
        {strings::Label, &label, Type::stdString},
        {strings::ClassDefinition, &object_->getObjRef(), Type::objectRef}};
    manager().createObject(strings::EnumerationValue, enumerator, false);
  }

  const int id = getID();
  std::vector<ObjectManager::InitialProperty> type = {
      {strings::FK_DataTypeDefinitionID, &id, Type::int32},
      {strings::Classification, &strings::Enumeration, Type::stdString}};
  manager().createObject(strings::DataType, type, false);
}

}  // namespace vela
