#include "kodd/schemastore.h"

#include <algorithm>
#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>
#include <optional>
#include <set>
#include <vector>

#include "kodd/schemadeclaration.h"
#include "kodd/storedvalue.h"
#include "kodiag/message.h"
#include "text/numbers.h"

namespace kodd {
namespace {

constexpr const char* kCatalogueTables =
    "CREATE TABLE kodd_meta(key TEXT PRIMARY KEY NOT NULL,value TEXT NOT NULL) WITHOUT ROWID;"
    "CREATE TABLE kodd_blocks(b INTEGER PRIMARY KEY,class INTEGER NOT NULL);"
    "CREATE TABLE kodd_classes(class INTEGER PRIMARY KEY,name TEXT UNIQUE NOT NULL,"
    "tablename TEXT NOT NULL);"
    "CREATE TABLE kodd_properties(class INTEGER NOT NULL,property INTEGER NOT NULL,"
    "name TEXT NOT NULL,kind INTEGER NOT NULL,target TEXT NOT NULL,initial TEXT NOT NULL,"
    "columnname TEXT NOT NULL,PRIMARY KEY(class,property)) WITHOUT ROWID;";

constexpr std::string_view kCatalogueIsWhole =
    "SELECT count(*) FROM sqlite_master WHERE type='table' AND name IN "
    "('kodd_meta','kodd_blocks','kodd_classes','kodd_properties')";

std::string columnDeclaration(const PropertyInfo& property, const std::string& column) {
  const char* type = " INTEGER";
  // No type: a declared one would turn -0.0 into 0.
  if (property.kind == PropertyKind::real64) type = "";
  if (isText(property.kind)) type = " TEXT";
  if (isBytes(property.kind)) type = " BLOB";
  return column + type + " DEFAULT " + defaultLiteral(property);
}

int formatVersion(sqldb::Database& database) {
  return static_cast<int>(
      text::parseInteger(database.queryText("PRAGMA user_version")).value_or(0));
}

std::string metaValue(sqldb::Database& database, std::string_view key) {
  sqldb::Statement query = database.statement("SELECT value FROM kodd_meta WHERE key=?");
  query.bindText(1, key);
  return query.step() ? std::string(query.text(0)) : std::string();
}

void setMetaValue(sqldb::Database& database, std::string_view key, std::string_view value) {
  sqldb::Statement insert = database.statement("INSERT INTO kodd_meta VALUES(?,?)");
  insert.bindText(1, key);
  insert.bindText(2, value);
  insert.run();
}

/// Compares a schema with the stored one and adds what is missing.
class SchemaUpdate {
 public:
  SchemaUpdate(sqldb::Database& database, const Metamodel& model, const std::string& schemaFile)
      : database_(database), model_(model), schemaFile_(schemaFile) {
    readStored();
  }

  /// Whether the file lacks nothing; refuses a property whose kind has changed.
  bool isComplete() const;
  /// Adds what is missing. Needs a writing unit.
  void apply();
  SchemaNumbers numbers() const;

 private:
  void readStored();
  void addClass(const ClassInfo& cls);
  void addColumns(const ClassInfo& cls);
  void addIndexes(const ClassInfo& cls);
  void catalogueProperty(const StoredSchema::Class& stored, const PropertyInfo& property,
                         int number);
  const StoredSchema::Property* find(const PropertyInfo& property) const;
  std::string indexName(const IndexInfo& index) const;

  sqldb::Database& database_;
  const Metamodel& model_;
  const std::string& schemaFile_;
  StoredSchema stored_;
  std::set<std::string, std::less<>> storedIndexes_;
};

void SchemaUpdate::readStored() {
  stored_ = StoredSchema::read(database_);
  storedIndexes_.clear();
  sqldb::Statement query =
      database_.statement("SELECT name FROM sqlite_master WHERE type='index'");
  while (query.step()) storedIndexes_.emplace(query.text(0));
}

const StoredSchema::Property* SchemaUpdate::find(const PropertyInfo& property) const {
  const auto cls = stored_.classes.find(property.owner->qualifiedName());
  if (cls == stored_.classes.end()) return nullptr;
  const auto found = cls->second.properties.find(property.name);
  return found == cls->second.properties.end() ? nullptr : &found->second;
}

bool SchemaUpdate::isComplete() const {
  bool complete = true;
  for (const ClassInfo* cls : model_.classes()) {
    for (const auto& property : cls->properties) {
      const StoredSchema::Property* stored = find(*property);
      if (!stored) {
        complete = false;
      } else if (stored->kind != static_cast<int>(property->kind)) {
        raiseSchemaError(schemaFile_, "property \"" + property->name + "\" of class \"" +
                                          cls->qualifiedName() +
                                          "\" is stored as another kind in \"" +
                                          database_.location() + "\"");
      }
    }
    if (!stored_.classes.contains(cls->qualifiedName())) complete = false;
  }
  if (!complete) return false;
  return std::ranges::all_of(model_.classes(), [this](const ClassInfo* cls) {
    return std::ranges::all_of(cls->indexes, [this](const IndexInfo& index) {
      return storedIndexes_.contains(indexName(index));
    });
  });
}

void SchemaUpdate::apply() {
  for (const ClassInfo* cls : model_.classes()) {
    if (stored_.classes.contains(cls->qualifiedName())) {
      addColumns(*cls);
    } else {
      addClass(*cls);
    }
  }
  readStored();
  for (const ClassInfo* cls : model_.classes()) addIndexes(*cls);
}

void SchemaUpdate::addClass(const ClassInfo& cls) {
  int number = 1;
  for (const auto& [name, stored] : stored_.classes)
    number = std::max(number, stored.number + 1);
  StoredSchema::Class& stored = stored_.classes[cls.qualifiedName()];
  stored.number = number;
  stored.table = tableName(cls, number);
  std::string sql = "CREATE TABLE " + stored.table + "(id INTEGER PRIMARY KEY";
  for (const auto& property : cls.properties) {
    const int propertyNumber = property->index + 1;
    if (isStored(property->kind)) {
      sql += "," + columnDeclaration(*property, columnName(*property, propertyNumber));
    }
    catalogueProperty(stored, *property, propertyNumber);
  }
  database_.execute(sql + ")");
  sqldb::Statement insert = database_.statement("INSERT INTO kodd_classes VALUES(?,?,?)");
  const std::string name = cls.qualifiedName();
  insert.bind(1, number);
  insert.bindText(2, name);
  insert.bindText(3, stored.table);
  insert.run();
}

void SchemaUpdate::addColumns(const ClassInfo& cls) {
  const StoredSchema::Class& stored = stored_.classes.at(cls.qualifiedName());
  int number = 0;
  for (const auto& [name, property] : stored.properties) {
    number = std::max(number, property.number);
  }
  for (const auto& property : cls.properties) {
    if (find(*property)) continue;
    catalogueProperty(stored, *property, ++number);
    if (!isStored(property->kind)) continue;
    database_.execute("ALTER TABLE " + stored.table + " ADD COLUMN " +
                      columnDeclaration(*property, columnName(*property, number)));
  }
}

void SchemaUpdate::catalogueProperty(const StoredSchema::Class& stored,
                                     const PropertyInfo& property, int number) {
  const bool hasColumn = isStored(property.kind);
  const std::string target = property.target ? property.target->qualifiedName() : "";
  const std::string initial = hasColumn ? defaultLiteral(property) : "";
  const std::string column = hasColumn ? columnName(property, number) : "";
  sqldb::Statement insert =
      database_.statement("INSERT INTO kodd_properties VALUES(?,?,?,?,?,?,?)");
  insert.bind(1, stored.number);
  insert.bind(2, number);
  insert.bindText(3, property.name);
  insert.bind(4, static_cast<int>(property.kind));
  insert.bindText(5, target);
  insert.bindText(6, initial);
  insert.bindText(7, column);
  insert.run();
}

std::string SchemaUpdate::indexName(const IndexInfo& index) const {
  const ClassInfo& cls = *index.properties.front()->owner;
  std::string name = "i" + std::to_string(stored_.classes.at(cls.qualifiedName()).number);
  for (const PropertyInfo* property : index.properties) {
    name += "_" + std::to_string(find(*property)->number);
  }
  return index.partial ? name + "_partial" : name;
}

void SchemaUpdate::addIndexes(const ClassInfo& cls) {
  for (const IndexInfo& index : cls.indexes) {
    std::string columns;
    for (const PropertyInfo* property : index.properties) {
      columns += (columns.empty() ? "" : ",") + find(*property)->column;
    }
    std::string sql = "CREATE INDEX IF NOT EXISTS " + indexName(index) + " ON " +
                      stored_.classes.at(cls.qualifiedName()).table + "(" + columns + ")";
    if (index.partial) {
      const PropertyInfo& first = *index.properties.front();
      sql += " WHERE " + find(first)->column + "<>" + defaultLiteral(first);
    }
    database_.execute(sql);
  }
}

SchemaNumbers SchemaUpdate::numbers() const {
  SchemaNumbers numbers;
  for (const ClassInfo* cls : model_.classes()) {
    numbers.classes.push_back(stored_.classes.at(cls->qualifiedName()).number);
    std::vector<int>& properties = numbers.properties.emplace_back();
    for (const auto& property : cls->properties) {
      const StoredSchema::Property& stored = *find(*property);
      properties.push_back(stored.number);
      if (isStored(property->kind) && stored.defaultLiteral != defaultLiteral(*property)) {
        numbers.changedDefaults.push_back(property.get());
      }
    }
  }
  return numbers;
}

void createCatalogue(sqldb::Database& database, const Metamodel& model) {
  database.execute(kCatalogueTables);
  setMetaValue(database, "FormatVersion", std::to_string(kFormatVersion));
  setMetaValue(database, "CreatedWith", model.fingerprint());
  setMetaValue(database, "DbID", to_string(boost::uuids::random_generator()()));
  database.execute("PRAGMA user_version=" + std::to_string(kFormatVersion));
}

void create(sqldb::Database& database, const Metamodel& model, const std::string& schemaFile) {
  sqldb::Unit unit(database, sqldb::Database::Access::write, "create the repository");
  // Another process may have been faster.
  if (formatVersion(database) == 0) {
    createCatalogue(database, model);
    SchemaUpdate(database, model, schemaFile).apply();
  }
  unit.commit();
}

void refuseToExtend(const sqldb::Database& database) {
  if (!database.isReadOnly()) return;
  kodiag::raise({"KODD:kodd", "ReadOnly"},
                {{"Operation", "open"},
                 {"Location", database.location()},
                 {"Reason", "it lacks a part of the schema; open it once for writing"}});
}

void refuseForeignFormat(sqldb::Database& database, const std::string& schemaFile) {
  const int version = formatVersion(database);
  if (version != kFormatVersion) {
    raiseSchemaError(schemaFile, "\"" + database.location() + "\" has the format " +
                                     std::to_string(version) + ", this program writes " +
                                     std::to_string(kFormatVersion));
  }
  if (database.queryText(kCatalogueIsWhole) != "4") {
    kodiag::raise({"sqldb:ssdb", "Corrupt"}, {{"Operation", "open"},
                                              {"Location", database.location()},
                                              {"Reason", "its catalogue is not whole"}});
  }
}

}  // namespace

StoredSchema StoredSchema::read(sqldb::Database& database) {
  StoredSchema schema;
  std::map<int, Class*> byNumber;
  sqldb::Statement classes =
      database.statement("SELECT class,name,tablename FROM kodd_classes");
  while (classes.step()) {
    Class& cls = schema.classes[std::string(classes.text(1))];
    cls.number = static_cast<int>(classes.int64(0));
    cls.table = classes.text(2);
    byNumber[cls.number] = &cls;
  }
  sqldb::Statement properties = database.statement(
      "SELECT class,property,name,kind,initial,columnname FROM kodd_properties");
  while (properties.step()) {
    const auto cls = byNumber.find(static_cast<int>(properties.int64(0)));
    if (cls == byNumber.end()) continue;
    Property& property = cls->second->properties[std::string(properties.text(2))];
    property.number = static_cast<int>(properties.int64(1));
    property.kind = static_cast<int>(properties.int64(3));
    property.defaultLiteral = properties.text(4);
    property.column = properties.text(5);
  }
  return schema;
}

std::shared_ptr<const Layout> prepareSchema(sqldb::Database& database, const Metamodel& model,
                                            const std::string& schemaFile) {
  if (formatVersion(database) == 0) {
    refuseToExtend(database);
    create(database, model, schemaFile);
  }
  refuseForeignFormat(database, schemaFile);
  if (metaValue(database, "CreatedWith") == model.fingerprint()) {
    return {std::shared_ptr<const void>(), &Layout::positional(model)};
  }
  std::optional<SchemaUpdate> update(std::in_place, database, model, schemaFile);
  if (!update->isComplete()) {
    refuseToExtend(database);
    sqldb::Unit unit(database, sqldb::Database::Access::write, "extend the schema");
    update.emplace(database, model, schemaFile);  // another process may have been faster
    if (!update->isComplete()) update->apply();
    unit.commit();
  }
  return std::make_shared<const Layout>(model, update->numbers());
}

std::string databaseID(sqldb::Database& database) {
  return metaValue(database, "DbID");
}

}  // namespace kodd
