#include "kodd/schemabuilder.h"

#include <algorithm>
#include <array>
#include <boost/uuid/name_generator_sha1.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <cmath>
#include <limits>
#include <optional>
#include <sstream>
#include <utility>

#include "text/numbers.h"
#include "text/utf8.h"

namespace kodd {
namespace {

constexpr std::array<std::pair<const char*, PropertyKind>, 10> kKinds{{
    {"int32", PropertyKind::int32},
    {"int64", PropertyKind::int64},
    {"real64", PropertyKind::real64},
    {"string", PropertyKind::string},
    {"wstring", PropertyKind::wstring},
    {"blob", PropertyKind::blob},
    {"reference", PropertyKind::reference},
    {"link", PropertyKind::link},
    {"hostarray", PropertyKind::hostArray},
    {"collection", PropertyKind::collection},
}};

std::optional<PropertyKind> kindNamed(const std::string& name) {
  for (const auto& [text, kind] : kKinds) {
    if (name == text) return kind;
  }
  return std::nullopt;
}

bool isValidDefault(PropertyKind kind, const std::string& defaultText) {
  if (defaultText.empty()) return true;
  switch (kind) {
    case PropertyKind::int32: {
      const std::optional<long long> value = text::parseInteger(defaultText);
      return value && *value >= std::numeric_limits<int>::min() &&
             *value <= std::numeric_limits<int>::max();
    }
    case PropertyKind::int64:
      return text::parseInteger(defaultText).has_value();
    case PropertyKind::real64: {
      const std::optional<double> value = text::parseDouble(defaultText);
      return value && std::isfinite(*value);
    }
    case PropertyKind::string:
    case PropertyKind::wstring:
      return text::isUtf8(defaultText) && defaultText.find('\0') == std::string::npos;
    default:
      return false;
  }
}

std::vector<std::string> words(const std::string& text) {
  std::istringstream stream(text);
  std::vector<std::string> result;
  for (std::string word; stream >> word;) result.push_back(word);
  return result;
}

/// Length first, so that no two different lists of fields read the same.
void addField(std::string& out, const std::string& field) {
  out += std::to_string(field.size()) + ":" + field + " ";
}

}  // namespace

std::unique_ptr<Metamodel> SchemaBuilder::build() {
  model_.reset(new Metamodel);
  addClasses();
  // In this order: collections need every other property, and they add hidden ones.
  using Step = void (SchemaBuilder::*)(const ClassDeclaration&, ClassInfo&);
  for (const Step step : {&SchemaBuilder::addProperties, &SchemaBuilder::resolveTargets,
                          &SchemaBuilder::resolveCollections, &SchemaBuilder::addIndexes}) {
    for (std::size_t p = 0; p < declaration_.packages.size(); ++p) {
      const std::vector<ClassDeclaration>& declared = declaration_.packages[p].classes;
      for (std::size_t c = 0; c < declared.size(); ++c) {
        (this->*step)(declared[c], *model_->packages_[p]->classes[c]);
      }
    }
  }
  boost::uuids::name_generator_sha1 hash(boost::uuids::ns::oid());
  model_->fingerprint_ = to_string(hash(describe()));
  return std::move(model_);
}

void SchemaBuilder::addClasses() {
  if (declaration_.packages.empty()) raiseSchemaError(file_, "it declares no package");
  for (const PackageDeclaration& declared : declaration_.packages) {
    auto package = std::make_unique<PackageInfo>();
    package->name = declared.name;
    for (const ClassDeclaration& declaredClass : declared.classes) {
      auto cls = std::make_unique<ClassInfo>();
      cls->name = declaredClass.name;
      cls->package = package.get();
      cls->index = static_cast<int>(model_->classes_.size());
      if (!package->byName.emplace(cls->name, cls.get()).second) {
        refuse(*cls, "it is declared twice");
      }
      model_->classes_.push_back(cls.get());
      package->classes.push_back(std::move(cls));
    }
    model_->packages_.push_back(std::move(package));
  }
}

PropertyInfo& SchemaBuilder::addProperty(ClassInfo& cls, const std::string& name,
                                         PropertyKind kind) {
  auto property = std::make_unique<PropertyInfo>();
  property->name = name;
  property->kind = kind;
  property->owner = &cls;
  property->index = static_cast<int>(cls.properties.size());
  if (!cls.byName.emplace(property->name, property.get()).second) {
    refuse(cls, "property \"" + name + "\" is declared twice");
  }
  cls.properties.push_back(std::move(property));
  return *cls.properties.back();
}

void SchemaBuilder::addProperties(const ClassDeclaration& declaration, ClassInfo& cls) {
  for (const PropertyDeclaration& declared : declaration.properties) {
    const std::optional<PropertyKind> kind = kindNamed(declared.kind);
    if (!kind) refuse(cls, "property \"" + declared.name + "\" has no kind we know");
    PropertyInfo& property = addProperty(cls, declared.name, *kind);
    if (!isValidDefault(*kind, declared.defaultText)) {
      refuse(cls, "property \"" + declared.name + "\" cannot default to \"" +
                      declared.defaultText + "\"");
    }
    property.defaultText = declared.defaultText;
  }
}

void SchemaBuilder::resolveTargets(const ClassDeclaration& declaration, ClassInfo& cls) {
  for (std::size_t i = 0; i < declaration.properties.size(); ++i) {
    const PropertyDeclaration& declared = declaration.properties[i];
    PropertyInfo& property = *cls.properties[i];
    const bool pointsAtObjects = property.kind == PropertyKind::reference ||
                                 property.kind == PropertyKind::link ||
                                 property.kind == PropertyKind::collection;
    if (!pointsAtObjects && !declared.target.empty()) {
      refuse(cls, "property \"" + declared.name + "\" cannot have a target");
    }
    if (!pointsAtObjects) continue;
    const bool anyClass = declared.target.empty() || declared.target == "any";
    if (anyClass && property.kind == PropertyKind::link) continue;
    property.target = findClass(cls, declared.target);
    if (!property.target) {
      refuse(cls, "property \"" + declared.name + "\" has the unknown target \"" +
                      declared.target + "\"");
    }
  }
}

void SchemaBuilder::resolveCollections(const ClassDeclaration& declaration, ClassInfo& cls) {
  for (std::size_t i = 0; i < declaration.properties.size(); ++i) {
    PropertyInfo& collection = *cls.properties[i];
    if (collection.kind != PropertyKind::collection) continue;
    ClassInfo& child =
        const_cast<ClassInfo&>(*collection.target);  // owned by the model we build
    const std::string& via = declaration.properties[i].via;
    if (via.empty()) {
      PropertyInfo& hidden = addProperty(child, "#" + cls.qualifiedName(), PropertyKind::link);
      hidden.target = &cls;
      hidden.hidden = true;
      collection.via = &hidden;
      addIndex(child, hidden.name, "yes");
      continue;
    }
    const auto found = child.byName.find(via);
    const bool fits = found != child.byName.end() &&
                      (found->second->kind == PropertyKind::link ||
                       found->second->kind == PropertyKind::reference) &&
                      (!found->second->target || found->second->target == &cls);
    if (!fits) {
      refuse(cls, "collection \"" + collection.name + "\": \"" + via +
                      "\" is no link or reference from \"" + child.name + "\" to this class");
    }
    collection.via = found->second;
  }
}

void SchemaBuilder::addIndexes(const ClassDeclaration& declaration, ClassInfo& cls) {
  for (const PropertyDeclaration& property : declaration.properties) {
    if (property.index.empty()) continue;
    if (property.index != "yes" && property.index != "partial") {
      refuse(cls, "property \"" + property.name + "\" has index=\"" + property.index + "\"");
    }
    addIndex(cls, property.name, property.index == "partial" ? "yes" : "");
  }
  for (const IndexDeclaration& index : declaration.indexes) {
    addIndex(cls, index.properties, index.partial);
  }
}

void SchemaBuilder::addIndex(ClassInfo& cls, const std::string& properties,
                             const std::string& partial) {
  if (!partial.empty() && partial != "yes" && partial != "no") {
    refuse(cls, "an index has partial=\"" + partial + "\"");
  }
  IndexInfo index;
  index.partial = partial == "yes";
  // A hidden property's name holds no blank of its own making, but its package's might.
  const std::vector<std::string> names =
      cls.byName.contains(properties) ? std::vector{properties} : words(properties);
  for (const std::string& name : names) {
    const auto found = cls.byName.find(name);
    if (found == cls.byName.end() || found->second->kind == PropertyKind::collection) {
      refuse(cls, "an index names \"" + name + "\", which is no stored property");
    }
    index.properties.push_back(found->second);
  }
  if (index.properties.empty()) refuse(cls, "an index names no property");
  cls.indexes.push_back(std::move(index));
}

const ClassInfo* SchemaBuilder::findClass(const ClassInfo& from,
                                          const std::string& name) const {
  if (const auto near = from.package->byName.find(name); near != from.package->byName.end()) {
    return near->second;
  }
  for (const auto& package : model_->packages_) {
    const std::string prefix = package->name + ".";
    if (!name.starts_with(prefix)) continue;
    const auto found = package->byName.find(name.substr(prefix.size()));
    if (found != package->byName.end()) return found->second;
  }
  return nullptr;
}

std::string SchemaBuilder::describe() const {
  std::string out;
  for (const ClassInfo* cls : model_->classes_) {
    out += "\nclass ";
    addField(out, cls->package->name);
    addField(out, cls->name);
    for (const auto& property : cls->properties) {
      out += "\n  property ";
      addField(out, property->name);
      addField(out, std::to_string(static_cast<int>(property->kind)));
      addField(out, property->defaultText);
      addField(out, property->target ? property->target->qualifiedName() : "");
      addField(out, property->via ? property->via->name : "");
    }
    for (const IndexInfo& index : cls->indexes) {
      out += index.partial ? "\n  partial index " : "\n  index ";
      for (const PropertyInfo* property : index.properties) addField(out, property->name);
    }
  }
  return out;
}

void SchemaBuilder::refuse(const ClassInfo& cls, const std::string& reason) const {
  raiseSchemaError(file_, "class \"" + cls.qualifiedName() + "\": " + reason);
}

}  // namespace kodd
