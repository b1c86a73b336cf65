// A schema as its files declare it, before anything in it is resolved.
#pragma once

#include <string>
#include <vector>

namespace kodd {

struct PropertyDeclaration {
  std::string name;
  std::string kind;  ///< "collection" for a Collection element
  std::string defaultText;
  std::string target;
  std::string via;
  std::string index;
};

struct IndexDeclaration {
  std::string properties;  ///< names separated by blanks
  std::string partial;
};

struct ClassDeclaration {
  std::string name;
  std::vector<PropertyDeclaration> properties;
  std::vector<IndexDeclaration> indexes;
};

struct PackageDeclaration {
  std::string name;
  std::vector<ClassDeclaration> classes;
};

/// A file a schema was read from, with its bytes.
struct SchemaSource {
  std::string file;
  std::string bytes;
};

struct SchemaDeclaration {
  std::vector<PackageDeclaration> packages;  ///< a package several files add to stands once
  std::vector<SchemaSource> sources;         ///< the schema file first
};

/// Reads a schema file and, once each, the files it includes: at most 256 files of 4 MiB, and
/// 256 packages. Documents with a DOCTYPE are refused, so that no entity is ever expanded or
/// fetched.
/// \throws "KODD:kodd:SchemaError" naming the file and what is wrong in it
SchemaDeclaration readSchemaFiles(const std::string& schemaFile);

/// The bytes of a file. \throws "KODD:kodd:SchemaError" when it cannot be read or is larger
/// than 4 MiB
std::string readSchemaBytes(const std::string& file);

[[noreturn]] void raiseSchemaError(const std::string& file, const std::string& reason);

}  // namespace kodd
