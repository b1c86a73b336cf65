// The schema as stored in a file: catalogue, tables, indexes, and bringing them up to date.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "kodd/layout.h"
#include "kodd/metamodel.h"
#include "sqldb/database.h"

namespace kodd {

/// In the header of every repository file. // Stored; never change.
inline constexpr std::int32_t kApplicationId = 0x56454C41;
/// Version of the layout of the tables. // Stored; counts up.
inline constexpr int kFormatVersion = 1;

/// What a file's catalogue says.
struct StoredSchema {
  struct Property {
    int number = 0;
    int kind = 0;
    std::string defaultLiteral;
    std::string column;
  };
  struct Class {
    int number = 0;
    std::string table;
    std::map<std::string, Property, std::less<>> properties;
  };
  std::map<std::string, Class, std::less<>> classes;

  static StoredSchema read(sqldb::Database& database);
};

/// Makes sure that the file holds every class, property and index of the schema. A file created
/// with this very schema costs three short statements.
///
/// \returns the layout; shared with other files where it is the one of new files
/// \throws "KODD:kodd:ReadOnly" when something is missing in a file opened for reading,
///         "KODD:kodd:SchemaError" when a stored property has another kind or the file is of a
///         newer format, "sqldb:ssdb:Corrupt" when the catalogue is damaged
std::shared_ptr<const Layout> prepareSchema(sqldb::Database& database, const Metamodel& model,
                                            const std::string& schemaFile);

/// The UUID given to the file when it was made.
std::string databaseID(sqldb::Database& database);

}  // namespace kodd
