// The schema as loaded: packages, classes, properties and the handles to them.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kodd {

/// What a property holds. // Stored in the file's catalogue; never renumber.
enum class PropertyKind {
  int32 = 1,
  int64 = 2,
  real64 = 3,   ///< double; -0.0 and NaN survive
  string = 4,   ///< bytes, unchanged
  wstring = 5,  ///< text, kept as UTF-8
  blob = 6,
  reference = 7,    ///< another object; reads as none when that is gone
  link = 8,         ///< an int32 holding the ID of another object
  hostArray = 9,    ///< an array value of the host
  collection = 10,  ///< the objects of another class that refer here; not stored itself
};

struct ClassInfo;

struct PropertyInfo {
  std::string name;
  PropertyKind kind = PropertyKind::int32;
  const ClassInfo* owner = nullptr;
  int index = 0;            ///< position among the properties of its class
  std::string defaultText;  ///< as in the schema; empty stands for the kind's own default
  const ClassInfo* target =
      nullptr;  ///< reference, link, collection; null for a link to any class
  const PropertyInfo* via =
      nullptr;          ///< collection: the target's property that names the parent
  bool hidden = false;  ///< added for a collection without `via`; not among the names listed
};

struct IndexInfo {
  std::vector<const PropertyInfo*> properties;
  bool partial = false;  ///< only rows whose first property is not its default
};

struct PackageInfo;

struct ClassInfo {
  std::string name;
  const PackageInfo* package = nullptr;
  int index = 0;  ///< position among all classes of the schema
  std::vector<std::unique_ptr<PropertyInfo>> properties;
  std::vector<IndexInfo> indexes;
  std::unordered_map<std::string_view, const PropertyInfo*> byName;

  std::string qualifiedName() const;
};

struct PackageInfo {
  std::string name;
  std::vector<std::unique_ptr<ClassInfo>> classes;
  std::unordered_map<std::string_view, const ClassInfo*> byName;
};

/// One schema, immutable. Schemas are read once per content and kept until the process ends, so
/// the handles below never dangle and two repositories of one schema share them.
class Metamodel {
 public:
  /// Reads a schema file and the files it includes.
  /// \throws "KODD:kodd:SchemaError" naming the file and what is wrong in it
  static const Metamodel& load(const std::string& schemaFile);

  const std::vector<std::unique_ptr<PackageInfo>>& packages() const { return packages_; }
  const std::vector<const ClassInfo*>& classes() const { return classes_; }
  /// A text that changes whenever a class, property, kind, default or index does.
  const std::string& fingerprint() const { return fingerprint_; }

 private:
  friend class SchemaBuilder;
  Metamodel() = default;

  std::vector<std::unique_ptr<PackageInfo>> packages_;
  std::vector<const ClassInfo*> classes_;
  std::string fingerprint_;
};

/// Handle to a property of a class; empty when default-constructed.
class PropertyRef {
 public:
  PropertyRef() = default;
  explicit PropertyRef(const PropertyInfo* info) : info_(info) {}

  bool isValid() const { return info_ != nullptr; }
  const std::string& name() const { return info_->name; }
  PropertyKind kind() const { return info_->kind; }
  /// Whether the value is another object.
  bool typeIsClass() const { return info_ && info_->kind == PropertyKind::reference; }
  const PropertyInfo* info() const { return info_; }
  bool operator==(const PropertyRef&) const = default;

 private:
  const PropertyInfo* info_ = nullptr;
};

/// Handle to a class; empty when default-constructed.
class ClassRef {
 public:
  ClassRef() = default;
  explicit ClassRef(const ClassInfo* info) : info_(info) {}

  bool isValid() const { return info_ != nullptr; }
  /// The name without the package.
  const std::string& name() const { return info_->name; }
  /// The property of that name, compared byte by byte; empty when there is none.
  PropertyRef findProperty(std::string_view name) const;
  /// Appends the names in schema order, collections included.
  void getPropertyNames(std::vector<std::string>& names) const;
  const ClassInfo* info() const { return info_; }
  bool operator==(const ClassRef&) const = default;

 private:
  const ClassInfo* info_ = nullptr;
};

inline std::size_t hash_value(const ClassRef& cls) {
  return std::hash<const ClassInfo*>()(cls.info());
}

/// Handle to a package; empty when default-constructed.
class PackageRef {
 public:
  PackageRef() = default;
  explicit PackageRef(const PackageInfo* info) : info_(info) {}

  bool isValid() const { return info_ != nullptr; }
  const std::string& name() const { return info_->name; }
  ClassRef findClass(std::string_view name) const;
  /// Appends the names in schema order.
  void getClassNames(std::vector<std::string>& names) const;

 private:
  const PackageInfo* info_ = nullptr;
};

/// Handle to a loaded schema; empty when default-constructed.
class MetamodelRef {
 public:
  MetamodelRef() = default;
  explicit MetamodelRef(const Metamodel* model) : model_(model) {}

  bool isValid() const { return model_ != nullptr; }
  PackageRef findPackage(std::string_view name) const;
  const Metamodel* model() const { return model_; }

 private:
  const Metamodel* model_ = nullptr;
};

}  // namespace kodd

template <>
struct std::hash<kodd::ClassRef> {
  std::size_t operator()(const kodd::ClassRef& cls) const { return hash_value(cls); }
};
