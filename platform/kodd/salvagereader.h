// The objects of a damaged repository file, as far as they can be read.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "kodd/metamodel.h"

namespace kodd {

/// A value read from a damaged file; nothing where the property has its default. Text and bytes
/// are both kept as a string.
using SalvagedValue = std::variant<std::monostate, long long, double, std::string>;

/// One object, by the properties of its class.
class SalvagedObject {
 public:
  SalvagedObject(const ClassRef& cls, int id);

  int id() const { return id_; }
  const ClassRef& cls() const { return cls_; }
  const SalvagedValue& value(const PropertyInfo& property) const {
    return values_[static_cast<std::size_t>(property.index)];
  }
  void setValue(const PropertyInfo& property, SalvagedValue value) {
    values_[static_cast<std::size_t>(property.index)] = std::move(value);
  }

  // By name, which must be that of a property: 0 and empty where it has its default.
  long long integer(const std::string& property) const;
  double real(const std::string& property) const;
  const std::string& bytes(const std::string& property) const;
  void set(const std::string& property, long long value);

 private:
  const PropertyInfo& property(const std::string& name) const;

  ClassRef cls_;
  int id_;
  std::vector<SalvagedValue> values_;
};

/// Reads a private copy of a repository file, whatever is left of it.
///
/// Tables and columns are found by the names the classes and properties of the schema give
/// them; a property without a column has its default. Rows with values that their property
/// cannot hold and rows whose ID belongs to another class are left out. References are
/// delivered as stored: what they name may be gone.
class SalvageReader {
 public:
  /// \param file  path, UTF-8
  /// \throws as sqldb::DamagedFile; "SchemaError"
  SalvageReader(const std::string& file, const std::string& schemaFile);
  ~SalvageReader();
  SalvageReader(const SalvageReader&) = delete;
  SalvageReader& operator=(const SalvageReader&) = delete;

  MetamodelRef metamodel() const;

  enum class Blobs { read, leaveOut };
  struct Objects {
    std::vector<SalvagedObject> objects;  ///< by ID
    bool complete = true;                 ///< whether no row was in a damaged place or wrong
  };
  Objects readAll(const ClassRef& cls, Blobs blobs);
  /// Nothing when the object is gone or cannot be read.
  std::unique_ptr<SalvagedObject> readOne(const ClassRef& cls, int id);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kodd
