// How a schema lies in one file: tables, columns and the SQL of single-object operations.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "kodd/metamodel.h"

namespace kodd {

struct ColumnLayout {
  std::string name;
  std::string defaultLiteral;
  std::string read;   ///< (id) -> value as stored
  std::string live;   ///< (id) -> ID of the object it names, 0 when that is gone
  std::string write;  ///< (value, id)
  bool headsPartialIndex = false;
};

struct ClassLayout {
  const ClassInfo* info = nullptr;
  int number = 0;  ///< what the file's catalogue calls the class
  std::string table;
  std::vector<ColumnLayout> columns;  ///< by property index; empty ones for collections
  /// Columns whose default in the schema is no longer the one the table was made with.
  std::vector<const PropertyInfo*> changedDefaults;
  std::string create;  ///< (id): all properties at their defaults
  std::string exists;  ///< (id) -> a row when there is such an object
  std::string remove;  ///< (id)
};

/// The numbers under which a file knows the classes and properties of a schema. They count from
/// 1 and are never given again: the catalogue of a file only grows.
struct SchemaNumbers {
  std::vector<int> classes;                  ///< by class index
  std::vector<std::vector<int>> properties;  ///< by class and property index
  std::vector<const PropertyInfo*> changedDefaults;

  /// As a new file of that schema has them: by position.
  static SchemaNumbers positional(const Metamodel& model);
};

/// Tables are named "t<number>_<class>", columns "c<number>_<property>": readable, no SQL
/// words, and different even where names differ only by case.
class Layout {
 public:
  Layout(const Metamodel& model, const SchemaNumbers& numbers);
  Layout(const Layout&) = delete;
  Layout& operator=(const Layout&) = delete;

  /// The layout of files created with that schema, shared by all of them.
  static const Layout& positional(const Metamodel& model);

  const Metamodel& model() const { return model_; }
  /// \throws "NoSuchObjectType" for a class of another schema
  const ClassLayout& of(const ClassInfo& cls) const {
    const auto index = static_cast<std::size_t>(cls.index);
    if (index >= classes_.size() || classes_[index].info != &cls) [[unlikely]] {
      raiseForeignClass(cls);
    }
    return classes_[index];
  }
  /// The same for a handle, which may be empty.
  const ClassLayout& of(const ClassRef& cls) const;
  const ColumnLayout& of(const PropertyInfo& property) const {
    return of(*property.owner).columns[static_cast<std::size_t>(property.index)];
  }
  /// Null for a class only a newer schema knows.
  const ClassInfo* classNumbered(int number) const;

 private:
  void addClass(const ClassInfo& cls, const SchemaNumbers& numbers);
  void addStatements(ClassLayout& cls) const;
  [[noreturn]] static void raiseForeignClass(const ClassInfo& cls);

  const Metamodel& model_;
  std::vector<ClassLayout> classes_;
  std::unordered_map<int, const ClassInfo*> byNumber_;
};

std::string tableName(const ClassInfo& cls, int number);
std::string columnName(const PropertyInfo& property, int number);

}  // namespace kodd
