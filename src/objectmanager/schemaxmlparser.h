// Reads what identifies a schema: the name of its first package and its version.
#pragma once

#include <memory>
#include <string>

namespace vela {

/// The signature of a schema file. Never fails: a file that cannot be read or parsed, is larger
/// than 4 MiB or nests more than 256 elements gets the version "none", so that its signature is
/// stable and recognisable.
class SchemaXMLParser {
 public:
  /// \param file  path of the schema file, UTF-8
  explicit SchemaXMLParser(const std::string& file);
  ~SchemaXMLParser();
  SchemaXMLParser(const SchemaXMLParser&) = delete;
  SchemaXMLParser& operator=(const SchemaXMLParser&) = delete;

  /// First package name, "_", metamodel version, and for each included file "_" and its
  /// signature: "vela_3_view_2". A file contributes once, however often it is included.
  std::string signature();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace vela
