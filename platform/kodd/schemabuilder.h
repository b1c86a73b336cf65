// From the declarations of a schema to the schema itself: names resolved, everything checked.
#pragma once

#include <memory>
#include <string>

#include "kodd/metamodel.h"
#include "kodd/schemadeclaration.h"

namespace kodd {

/// Builds one Metamodel from one declaration.
class SchemaBuilder {
 public:
  /// \param schemaFile  named in errors
  SchemaBuilder(const SchemaDeclaration& declaration, const std::string& schemaFile)
      : declaration_(declaration), file_(schemaFile) {}

  /// \throws "KODD:kodd:SchemaError" for an unknown kind, a name declared twice, a target or
  ///         `via` that does not exist, a default its kind cannot hold
  std::unique_ptr<Metamodel> build();

 private:
  void addClasses();
  void addProperties(const ClassDeclaration& declaration, ClassInfo& cls);
  void resolveTargets(const ClassDeclaration& declaration, ClassInfo& cls);
  void resolveCollections(const ClassDeclaration& declaration, ClassInfo& cls);
  void addIndexes(const ClassDeclaration& declaration, ClassInfo& cls);
  void addIndex(ClassInfo& cls, const std::string& properties, const std::string& partial);
  PropertyInfo& addProperty(ClassInfo& cls, const std::string& name, PropertyKind kind);
  const ClassInfo* findClass(const ClassInfo& from, const std::string& name) const;
  std::string describe() const;
  [[noreturn]] void refuse(const ClassInfo& cls, const std::string& reason) const;

  const SchemaDeclaration& declaration_;
  std::string file_;
  std::unique_ptr<Metamodel> model_;
};

}  // namespace kodd
