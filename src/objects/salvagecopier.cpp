#include "objects/salvagecopier.h"

#include <memory>
#include <vector>

#include "host/arrays.h"
#include "kodd/hostarraycodec.h"
#include "objects/find.h"
#include "objects/strings.h"
#include "text/utf8.h"

namespace vela {
namespace {

using kodd::PropertyInfo;
using kodd::PropertyKind;
using kodd::SalvagedObject;
using kodd::SalvagedValue;

bool namesObject(const PropertyInfo& property) {
  return property.kind == PropertyKind::reference || property.kind == PropertyKind::link;
}

/// A value on its way from one repository to the other, with what it points to.
struct PassedValue {
  explicit PassedValue(const PropertyInfo& property, const SalvagedValue& salvaged) {
    if (const auto* whole = std::get_if<long long>(&salvaged)) value = *whole;
    if (const auto* real = std::get_if<double>(&salvaged)) value = *real;
    const auto* const bytes = std::get_if<std::string>(&salvaged);
    if (!bytes) return;
    if (property.kind == PropertyKind::string) value = *bytes;
    if (property.kind == PropertyKind::wstring) value = text::toWide(*bytes);
    if (property.kind == PropertyKind::blob) {
      value = kodd::const_BlobDescriptor(bytes->data(), bytes->size());
    }
    if (property.kind == PropertyKind::hostArray) {
      array = std::make_unique<const host::HostArray>(
          kodd::decodeHostArray(std::as_bytes(std::span(bytes->data(), bytes->size()))));
      value = array.get();
    }
  }

  kodd::EntryValue value;
  std::unique_ptr<const host::HostArray> array;
};

/// What a property holds that was left at its default; for classes whose properties have the
/// defaults of their kinds.
kodd::EntryValue plainDefault(const PropertyInfo& property) {
  if (property.kind == PropertyKind::real64) return 0.0;
  if (property.kind == PropertyKind::string) return std::string();
  if (property.kind == PropertyKind::wstring) return std::wstring();
  return 0LL;
}

}  // namespace

int SalvageCopier::copy(const SalvagedObject& object) {
  std::vector<std::pair<const PropertyInfo*, PassedValue>> values;
  for (const auto& property : object.cls().info()->properties) {
    const SalvagedValue& value = object.value(*property);
    if (property->name == strings::InstanceID) {
      values.emplace_back(property.get(), PassedValue(*property, manager_.getInstanceID()));
    } else if (!namesObject(*property) && !std::holds_alternative<std::monostate>(value)) {
      values.emplace_back(property.get(), PassedValue(*property, value));
    }
  }
  const std::unique_ptr<ObjectRef> created = manager_.createObject(object.cls().name(), true);
  for (const auto& [property, passed] : values) {
    manager_.setProperty(*created, property->name, passed.value);
  }
  copies_[object.id()] = {created->getObjectID(), object.cls()};
  linkAgain(object);
  return created->getObjectID();
}

int SalvageCopier::copyShared(const SalvagedObject& object) {
  const int equal = findEqual(object);
  if (equal == 0) return copy(object);
  copies_[object.id()] = {equal, object.cls()};
  return equal;
}

void SalvageCopier::linkAgain(const SalvagedObject& object) {
  std::unique_ptr<ObjectRef> copied;
  for (const auto& property : object.cls().info()->properties) {
    const int named = namesObject(*property) ? target(object, *property) : 0;
    if (named == 0) continue;
    bool found = false;
    if (!copied) copied = manager_.findObject(newID(object.id()), object.cls().name(), found);
    if (copied) manager_.setProperty(*copied, property->name, named);
  }
}

int SalvageCopier::newID(int oldID) const {
  const auto found = copies_.find(oldID);
  return found == copies_.end() ? 0 : found->second.id;
}

int SalvageCopier::newID(const SalvagedObject& object, const std::string& property) const {
  return target(object, *object.cls().findProperty(property).info());
}

int SalvageCopier::target(const SalvagedObject& object, const PropertyInfo& property) const {
  const auto* const old = std::get_if<long long>(&object.value(property));
  if (!old) return 0;
  const auto found = copies_.find(static_cast<int>(*old));
  if (found == copies_.end()) return 0;
  const bool fits = !property.target || found->second.cls.name() == property.target->name;
  return fits ? found->second.id : 0;
}

int SalvageCopier::findEqual(const SalvagedObject& object) {
  std::vector<ObjectManager::Constraint> same;
  for (const auto& property : object.cls().info()->properties) {
    if (property->kind == PropertyKind::collection || property->kind == PropertyKind::blob) {
      continue;
    }
    const SalvagedValue& value = object.value(*property);
    const bool isDefault = std::holds_alternative<std::monostate>(value);
    const kodd::EntryValue wanted = namesObject(*property)
                                        ? kodd::EntryValue(target(object, *property))
                                    : isDefault ? plainDefault(*property)
                                                : PassedValue(*property, value).value;
    same.push_back(equals(property->name, wanted));
  }
  return findFirstID(manager_, object.cls().name(), same);
}

}  // namespace vela
