#include "objects/metadata.h"

#include <memory>
#include <type_traits>
#include <utility>

#include "host/arrays.h"
#include "objects/find.h"
#include "objects/strings.h"

namespace vela::metadata {
namespace {

/// How a value is kept: the text in "Type", and the property that holds it.
struct Kind {
  const char* type;  // Stored; never change.
  const std::string& property;
};

const Kind kBoolean{"bool", strings::IntValue};
const Kind kInteger{"int", strings::IntValue};
const Kind kReal{"double", strings::FloatValue};
const Kind kString{"string", strings::StringValue};
const Kind kWideString{"wstring", strings::UStringValue};
const Kind kBlob{"blob", strings::BlobValue};
const Kind kHostArray{"hostarray", strings::HostarrayValue};

[[noreturn]] void refuse(const std::string& name, const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", "set metadata \"" + name + "\""}, {"Reason", reason}});
}

struct Encoded {
  const Kind& kind;
  kodd::EntryValue value;
};

Encoded encode(const std::string& name, const kodd::EntryValue& value) {
  return std::visit(
      [&]<class T>(const T& given) -> Encoded {
        if constexpr (std::is_same_v<T, bool>) {
          return {kBoolean, static_cast<long long>(given)};
        } else if constexpr (std::is_integral_v<T>) {
          if (static_cast<long long>(given) < 0 && given > T()) {
            refuse(name, std::to_string(given) + " is too large for a signed 64-bit integer");
          }
          return {kInteger, static_cast<long long>(given)};
        } else if constexpr (std::is_floating_point_v<T>) {
          return {kReal, static_cast<double>(given)};
        } else if constexpr (std::is_same_v<T, std::string>) {
          return {kString, given};
        } else if constexpr (std::is_same_v<T, std::wstring>) {
          return {kWideString, given};
        } else if constexpr (std::is_same_v<T, kodd::const_BlobDescriptor>) {
          return {kBlob, given};
        } else if constexpr (std::is_same_v<T, const host::HostArray*>) {
          if (!given) refuse(name, "the array is missing");
          return {kHostArray, given};
        } else {
          refuse(name, "a value of this kind cannot be kept");
        }
      },
      value);
}

const Kind& kindOf(const std::string& name, const std::string& type) {
  for (const Kind* kind :
       {&kBoolean, &kInteger, &kReal, &kString, &kWideString, &kBlob, &kHostArray}) {
    if (type == kind->type) return *kind;
  }
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", "read metadata \"" + name + "\""},
                 {"Reason", "its stored type \"" + type + "\" is unknown"}});
}

std::unique_ptr<ObjectRef> findEntry(ObjectManager& manager, int ownerID,
                                     const std::string& name) {
  return findFirst(manager, strings::MetaData,
                   {equals(strings::FK_ParentID, ownerID), equals(strings::Name, name)});
}

void removeEntry(ObjectRef& entry) {
  kodiag::util::diagnostics diag;
  entry.removeObject(diag);
  diag.raiseIfAny();
}

std::unique_ptr<ObjectRef> createEntry(ObjectManager& manager, int ownerID,
                                       const std::string& parentType, const std::string& name,
                                       const std::string& type) {
  using Type = ObjectConstructorPropType;
  std::vector<ObjectManager::InitialProperty> values = {
      {strings::FK_ParentID, &ownerID, Type::int32},
      {strings::ParentType, &parentType, Type::stdString},
      {strings::Name, &name, Type::stdString},
      {strings::Type, &type, Type::stdString}};
  return manager.createObject(strings::MetaData, values, true);
}

}  // namespace

Value get(ObjectManager& manager, int ownerID, const std::string& name) {
  Value result;
  manager.inReadUnit([&] {
    const auto entry = findEntry(manager, ownerID, name);
    if (!entry) return;
    const Kind& kind = kindOf(name, entry->getPropertyStdString(strings::Type));
    if (&kind == &kBlob) {
      entry->getProperty(kind.property, result.bytes);
      result.value = kodd::const_BlobDescriptor(result.bytes.data(), result.bytes.size());
      return;
    }
    entry->getProperty(kind.property, result.value);
    if (&kind == &kBoolean) {
      result.value = std::get<long long>(result.value) != 0;
    } else if (&kind == &kHostArray) {
      const auto* stored = std::get<const host::HostArray*>(result.value);
      result.array = std::make_shared<host::HostArray>(*stored);
      result.value = result.array.get();
    }
  });
  return result;
}

void set(ObjectManager& manager, int ownerID, const std::string& parentType,
         const std::string& name, const kodd::EntryValue& value) {
  const bool clears = std::holds_alternative<kodd::UndefinedValue>(value);
  const Encoded encoded = clears ? Encoded{kInteger, 0LL} : encode(name, value);
  manager.inTransaction([&] {
    auto entry = findEntry(manager, ownerID, name);
    // An entry of another kind goes, so that its old value does not stay behind.
    if (entry && (clears || entry->getPropertyStdString(strings::Type) != encoded.kind.type)) {
      removeEntry(*entry);
      entry.reset();
    }
    if (clears) return;
    if (!entry) entry = createEntry(manager, ownerID, parentType, name, encoded.kind.type);
    entry->setProperty(encoded.kind.property, encoded.value);
  });
}

std::vector<std::string> names(ObjectManager& manager, int ownerID) {
  boost::ptr_vector<ObjectRef> entries;
  manager.findObjects(strings::MetaData, {equals(strings::FK_ParentID, ownerID)}, entries);
  std::vector<std::string> result;
  for (const ObjectRef& entry : entries) {
    result.push_back(entry.getPropertyStdString(strings::Name));
  }
  return result;
}

}  // namespace vela::metadata
