#include "saving/objectrow.h"

#include <algorithm>
#include <limits>

#include "kodd/hostarraycodec.h"
#include "kodiag/message.h"
#include "objects/find.h"
#include "objects/raising.h"
#include "objects/strings.h"
#include "saving/savedformat.h"
#include "text/numbers.h"
#include "text/utf8.h"

namespace vela::saving {
namespace {

using host::HostArray;
using kodd::PropertyKind;

std::string fieldNameOf(const kodd::PropertyRef& property) {
  const bool needsPrefix =
      property.typeIsClass() && !property.name().starts_with(kReferencePrefix);
  return (needsPrefix ? kReferencePrefix : std::string()) + property.name();
}

int toInt32(const HostArray& array) {
  const std::int64_t value = array.toInt64();
  using Limits = std::numeric_limits<int>;
  if (value < Limits::min() || value > Limits::max()) {
    kodiag::raise({"nexstore:nex", "HostArrayMismatch"},
                  {{"Expected", "a 32-bit number"}, {"Actual", std::to_string(value)}});
  }
  return static_cast<int>(value);
}

/// The ID in a record {ID, Type, data}.
int referenceIn(const HostArray& record) {
  static const std::vector<std::string> expected = {kID, kType, kRecordData};
  if (!record.isStructure() || !record.isScalar() || record.fieldNames() != expected) {
    kodiag::raise(
        {"nexstore:nex", "HostArrayMismatch"},
        {{"Expected", "a record of ID, Type and data"}, {"Actual", record.describe()}});
  }
  record.field(kType).toString();
  return toInt32(record.field(kID));
}

HostArray bytesArray(const std::vector<char>& bytes) {
  return HostArray::numeric(host::ArrayClass::uint8, {bytes.size(), 1},
                            std::as_bytes(std::span(bytes)));
}

std::vector<char> bytesOf(const HostArray& array) {
  const std::span<const std::uint8_t> values = array.values<std::uint8_t>();
  return {values.begin(), values.end()};
}

}  // namespace

/// A property and its value: the member of its kind.
struct ObjectRow::Slot {
  kodd::PropertyRef property;
  int int32 = 0;  ///< numbers, links and references
  long long int64 = 0;
  double real64 = 0;
  std::string string;
  std::wstring wstring;
  std::vector<char> bytes;          ///< as stored
  kodd::const_BlobDescriptor blob;  ///< the bytes, while they are written
};

ObjectRow::ObjectRow(ObjectManager& manager, const std::string& className)
    : manager_(manager),
      class_(manager.getClass(className)),
      reader_(manager.repository()),
      creator_(class_, manager.repository()) {
  reader_.addIDConstraint(class_, &id_);
  std::vector<std::string> names;
  class_.getPropertyNames(names);
  for (const std::string& name : names) {
    const kodd::PropertyRef property = class_.findProperty(name);
    if (property.kind() == PropertyKind::collection) continue;
    if (name == strings::OLDID) {
      creator_.setPropertyValueSource(property, &oldID_);
      continue;
    }
    slots_.push_back(std::make_unique<Slot>());
    slots_.back()->property = property;
    fieldNames_.push_back(fieldNameOf(property));
    bind(*slots_.back());
  }
}

ObjectRow::~ObjectRow() = default;

void ObjectRow::bind(Slot& slot) {
  const auto bindBoth = [&](auto* value) {
    reader_.addResultProperty(slot.property, value);
    creator_.setPropertyValueSource(slot.property, value);
  };
  switch (slot.property.kind()) {
    case PropertyKind::int32:
      bindBoth(&slot.int32);
      break;
    case PropertyKind::int64:
      bindBoth(&slot.int64);
      break;
    case PropertyKind::real64:
      bindBoth(&slot.real64);
      break;
    case PropertyKind::string:
      bindBoth(&slot.string);
      break;
    case PropertyKind::wstring:
      bindBoth(&slot.wstring);
      break;
    case PropertyKind::reference:
    case PropertyKind::link:
      reader_.addResultProperty(slot.property, &slot.int32);
      creator_.setPropertyIDSource(slot.property, &slot.int32);
      links_.push_back({slot.property, &slot.int32});
      break;
    case PropertyKind::blob:
      reader_.addResultProperty(slot.property, &slot.bytes);
      creator_.setPropertyValueSource(slot.property, &slot.blob);
      break;
    case PropertyKind::hostArray:
      reader_.addResultProperty(slot.property, &slot.bytes);
      break;
    case PropertyKind::collection:
      break;
  }
}

const std::string& ObjectRow::className() const {
  return class_.name();
}

bool ObjectRow::read(int id) {
  id_ = id;
  return raising([&](auto& diag) { return reader_.executeForOne(diag); });
}

int ObjectRow::create(int oldID) {
  oldID_ = oldID;
  for (const auto& slot : slots_) slot->blob = {slot->bytes.data(), slot->bytes.size()};
  const int id = raising([&](auto& diag) { return creator_.createObjectID(diag); });
  writeArrays(id);
  return id;
}

void ObjectRow::writeArrays(int id) {
  for (const auto& slot : slots_) {
    if (slot->property.kind() != PropertyKind::hostArray || slot->bytes.empty()) continue;
    const HostArray array = kodd::decodeHostArray(std::as_bytes(std::span(slot->bytes)));
    bool found = false;
    const auto object = manager_.findObject(id, class_.name(), found);
    object->setProperty(slot->property.name(), kodd::EntryValue(&array));
  }
}

std::vector<HostArray> ObjectRow::fields(const std::function<bool(int)>& isKept,
                                         bool bareReferences) const {
  std::vector<HostArray> values;
  values.reserve(slots_.size());
  for (const auto& slot : slots_) {
    const auto target = [&] { return isKept(slot->int32) ? slot->int32 : 0; };
    switch (slot->property.kind()) {
      case PropertyKind::int32:
        values.push_back(HostArray::scalar(slot->int32));
        break;
      case PropertyKind::int64:
        values.push_back(HostArray::scalar(std::int64_t{slot->int64}));
        break;
      case PropertyKind::real64:
        values.push_back(HostArray::scalar(slot->real64));
        break;
      case PropertyKind::string:
        values.push_back(HostArray::text(slot->string));
        break;
      case PropertyKind::wstring:
        values.push_back(HostArray::text(slot->wstring));
        break;
      case PropertyKind::reference: {
        const int id = target();
        const std::string type = id == 0 ? "" : slot->property.info()->target->name;
        values.push_back(bareReferences ? HostArray::scalar(id) : recordOf(id, type));
        break;
      }
      case PropertyKind::link:
        values.push_back(HostArray::scalar(target()));
        break;
      case PropertyKind::blob:
        values.push_back(bytesArray(slot->bytes));
        break;
      case PropertyKind::hostArray:
        values.push_back(kodd::decodeHostArray(std::as_bytes(std::span(slot->bytes))));
        break;
      case PropertyKind::collection:
        break;
    }
  }
  return values;
}

void ObjectRow::clear() {
  for (const auto& slot : slots_) {
    const std::string& standard = slot->property.info()->defaultText;
    slot->int64 = text::parseInteger(standard).value_or(0);
    // Only an int32 property has a default that is one.
    slot->int32 = static_cast<int>(slot->int64);
    slot->real64 = text::parseDouble(standard).value_or(0);
    slot->string = standard;
    slot->wstring = text::toWide(standard);
    slot->bytes.clear();
  }
}

std::string ObjectRow::assign(const std::string& field, const HostArray& value,
                              bool bareReferences) {
  const auto place = std::ranges::find(fieldNames_, field);
  if (place == fieldNames_.end()) return "it is no property";
  Slot& slot = *slots_[static_cast<std::size_t>(place - fieldNames_.begin())];
  try {
    switch (slot.property.kind()) {
      case PropertyKind::int32:
      case PropertyKind::link:
        slot.int32 = toInt32(value);
        break;
      case PropertyKind::int64:
        slot.int64 = value.toInt64();
        break;
      case PropertyKind::real64:
        slot.real64 = value.toDouble();
        break;
      case PropertyKind::string:
        slot.string = value.toString();
        break;
      case PropertyKind::wstring:
        slot.wstring = value.toWide();
        break;
      case PropertyKind::reference:
        slot.int32 = bareReferences ? toInt32(value) : referenceIn(value);
        break;
      case PropertyKind::blob:
        slot.bytes = bytesOf(value);
        break;
      case PropertyKind::hostArray: {
        const std::string stored = kodd::encodeHostArray(value);
        slot.bytes.assign(stored.begin(), stored.end());
        break;
      }
      case PropertyKind::collection:
        break;
    }
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    return error.message().text();
  }
  return {};
}

ObjectRow::Slot& ObjectRow::slot(const std::string& property) const {
  const auto place = std::ranges::find(slots_, property,
                                       [](const auto& slot) { return slot->property.name(); });
  if (place == slots_.end()) {
    kodiag::raise({"KODD:kodd", "InvalidProperty"},
                  {{"PropNameString", property}, {"ClassName", class_.name()}});
  }
  return **place;
}

int ObjectRow::integer(const std::string& property) const {
  return slot(property).int32;
}
long long ObjectRow::longInteger(const std::string& property) const {
  return slot(property).int64;
}
const std::string& ObjectRow::text(const std::string& property) const {
  return slot(property).string;
}
const std::wstring& ObjectRow::wideText(const std::string& property) const {
  return slot(property).wstring;
}
void ObjectRow::set(const std::string& property, int value) {
  slot(property).int32 = value;
}
void ObjectRow::set(const std::string& property, long long value) {
  slot(property).int64 = value;
}
void ObjectRow::set(const std::string& property, const std::string& value) {
  slot(property).string = value;
}

std::vector<ObjectManager::Constraint> ObjectRow::sameValues() const {
  std::vector<ObjectManager::Constraint> same;
  for (const auto& slot : slots_) {
    const std::string& name = slot->property.name();
    switch (slot->property.kind()) {
      case PropertyKind::int32:
      case PropertyKind::link:
      case PropertyKind::reference:
        same.push_back(equals(name, slot->int32));
        break;
      case PropertyKind::int64:
        same.push_back(equals(name, slot->int64));
        break;
      case PropertyKind::real64:
        same.push_back(equals(name, slot->real64));
        break;
      case PropertyKind::string:
        same.push_back(equals(name, slot->string));
        break;
      case PropertyKind::wstring:
        same.push_back(equals(name, slot->wstring));
        break;
      default:
        break;
    }
  }
  return same;
}

}  // namespace vela::saving
