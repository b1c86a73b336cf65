#include "kodd/integrity.h"

#include <set>

#include "kodd/schemastore.h"
#include "kodd/storedvalue.h"

namespace kodd {
namespace {

class IntegrityCheck {
 public:
  IntegrityCheck(sqldb::Database& database, const Layout& layout)
      : database_(database), layout_(layout) {}

  std::vector<std::string> run();

 private:
  bool catalogueMatchesTables();
  void checkBlocks();
  void checkObjects(const ClassLayout& cls);
  void checkValues(const ClassLayout& cls, const PropertyInfo& property);
  std::set<std::string, std::less<>> columnsOf(const std::string& table);
  long long count(const std::string& sql);
  void reportCount(long long count, const std::string& what) {
    if (count > 0) problems_.push_back(std::to_string(count) + " " + what);
  }

  sqldb::Database& database_;
  const Layout& layout_;
  std::vector<std::string> problems_;
};

std::vector<std::string> IntegrityCheck::run() {
  problems_ = database_.integrityProblems();
  // Without the tables the rest could not even be asked.
  if (!catalogueMatchesTables()) return problems_;
  checkBlocks();
  for (const ClassInfo* cls : layout_.model().classes()) checkObjects(layout_.of(*cls));
  return problems_;
}

bool IntegrityCheck::catalogueMatchesTables() {
  const std::size_t before = problems_.size();
  for (const auto& [name, cls] : StoredSchema::read(database_).classes) {
    const std::set<std::string, std::less<>> columns = columnsOf(cls.table);
    for (const auto& [property, stored] : cls.properties) {
      if (stored.column.empty() || columns.contains(stored.column)) continue;
      problems_.push_back("Property \"" + property + "\" of class \"" + name +
                          "\" has no column in the file.");
    }
  }
  for (const ClassInfo* cls : layout_.model().classes()) {
    const ClassLayout& expected = layout_.of(*cls);
    const std::set<std::string, std::less<>> columns = columnsOf(expected.table);
    for (const ColumnLayout& column : expected.columns) {
      if (column.name.empty() || columns.contains(column.name)) continue;
      problems_.push_back("Class \"" + cls->qualifiedName() + "\" has no column \"" +
                          column.name + "\" in the file.");
    }
  }
  return problems_.size() == before;
}

std::set<std::string, std::less<>> IntegrityCheck::columnsOf(const std::string& table) {
  sqldb::Statement query = database_.statement("SELECT name FROM pragma_table_info(?)");
  query.bindText(1, table);
  std::set<std::string, std::less<>> columns;
  while (query.step()) columns.emplace(query.text(0));
  return columns;
}

void IntegrityCheck::checkBlocks() {
  reportCount(count("SELECT count(*) FROM kodd_blocks WHERE class NOT IN "
                    "(SELECT class FROM kodd_classes) OR b<1 OR b>8388607"),
              "blocks of object IDs belong to no class.");
}

void IntegrityCheck::checkObjects(const ClassLayout& cls) {
  reportCount(count("SELECT count(*) FROM " + cls.table +
                    " WHERE NOT EXISTS (SELECT 1 FROM kodd_blocks WHERE b=id/256 AND class=" +
                    std::to_string(cls.number) + ")"),
              "objects of class \"" + cls.info->qualifiedName() +
                  "\" have IDs that are not of that class.");
  for (const auto& property : cls.info->properties) {
    if (isStored(property->kind)) checkValues(cls, *property);
  }
}

void IntegrityCheck::checkValues(const ClassLayout& cls, const PropertyInfo& property) {
  const std::string& column = layout_.of(property).name;
  const std::string where = "SELECT count(*) FROM " + cls.table + " WHERE ";
  const std::string named = "values of property \"" + property.name + "\" of class \"" +
                            cls.info->qualifiedName() + "\" ";
  std::string types = "'integer'";
  if (isReal(property.kind)) types = "'real','integer','null'";
  if (isText(property.kind)) types = "'text'";
  if (isBytes(property.kind)) types = "'blob'";
  reportCount(count(where + "typeof(" + column + ") NOT IN (" + types + ")"),
              named + "are of another kind.");
  if (fitsInt(property.kind)) {
    reportCount(count(where + column + " NOT BETWEEN -2147483648 AND 2147483647"),
                named + "have more than 32 bits.");
  }
  if (property.kind == PropertyKind::reference) {
    reportCount(
        count(where + column +
              "<>0 AND NOT EXISTS (SELECT 1 FROM kodd_blocks WHERE b=" + column +
              "/256 AND class=" + std::to_string(layout_.of(*property.target).number) + ")"),
        named + "name objects of another class.");
  }
}

long long IntegrityCheck::count(const std::string& sql) {
  sqldb::Statement query = database_.statement(sql);
  return query.step() ? query.int64(0) : 0;
}

}  // namespace

std::vector<std::string> findIntegrityProblems(sqldb::Database& database,
                                               const Layout& layout) {
  return IntegrityCheck(database, layout).run();
}

}  // namespace kodd
