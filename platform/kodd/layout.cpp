#include "kodd/layout.h"

#include <algorithm>
#include <map>
#include <memory>
#include <mutex>

#include "host/processmutex.h"
#include "kodd/storedvalue.h"
#include "kodiag/message.h"

namespace kodd {
namespace {

/// The name with everything but ASCII letters and digits made '_'.
std::string plainName(const std::string& name) {
  std::string plain = name;
  for (char& c : plain) {
    const bool isPlain =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (!isPlain) c = '_';
  }
  return plain;
}

bool headsPartialIndex(const PropertyInfo& property) {
  return std::ranges::any_of(property.owner->indexes, [&property](const IndexInfo& index) {
    return index.partial && index.properties.front() == &property;
  });
}

}  // namespace

std::string tableName(const ClassInfo& cls, int number) {
  return "t" + std::to_string(number) + "_" + plainName(cls.qualifiedName());
}

std::string columnName(const PropertyInfo& property, int number) {
  return "c" + std::to_string(number) + "_" + plainName(property.name);
}

SchemaNumbers SchemaNumbers::positional(const Metamodel& model) {
  SchemaNumbers numbers;
  for (const ClassInfo* cls : model.classes()) {
    numbers.classes.push_back(cls->index + 1);
    std::vector<int>& properties = numbers.properties.emplace_back();
    for (const auto& property : cls->properties) properties.push_back(property->index + 1);
  }
  return numbers;
}

const Layout& Layout::positional(const Metamodel& model) {
  static auto& mutex = *new host::ProcessMutex;
  // Never destroyed, like the schemas it belongs to.
  static auto& layouts = *new std::map<const Metamodel*, std::unique_ptr<const Layout>>;
  const std::scoped_lock lock(mutex);
  std::unique_ptr<const Layout>& layout = layouts[&model];
  if (!layout) layout = std::make_unique<const Layout>(model, SchemaNumbers::positional(model));
  return *layout;
}

Layout::Layout(const Metamodel& model, const SchemaNumbers& numbers) : model_(model) {
  for (const ClassInfo* cls : model.classes()) addClass(*cls, numbers);
  for (const PropertyInfo* property : numbers.changedDefaults) {
    classes_[static_cast<std::size_t>(property->owner->index)].changedDefaults.push_back(
        property);
  }
  for (ClassLayout& cls : classes_) addStatements(cls);
}

void Layout::addClass(const ClassInfo& cls, const SchemaNumbers& numbers) {
  const auto index = static_cast<std::size_t>(cls.index);
  ClassLayout& layout = classes_.emplace_back();
  layout.info = &cls;
  layout.number = numbers.classes[index];
  layout.table = tableName(cls, layout.number);
  byNumber_.emplace(layout.number, &cls);
  for (const auto& property : cls.properties) {
    ColumnLayout& column = layout.columns.emplace_back();
    if (!isStored(property->kind)) continue;
    const int number = numbers.properties[index][static_cast<std::size_t>(property->index)];
    column.name = columnName(*property, number);
    column.defaultLiteral = defaultLiteral(*property);
    column.headsPartialIndex = headsPartialIndex(*property);
  }
}

void Layout::addStatements(ClassLayout& cls) const {
  const std::string& table = cls.table;
  for (const auto& property : cls.info->properties) {
    if (!isStored(property->kind)) continue;
    ColumnLayout& column = cls.columns[static_cast<std::size_t>(property->index)];
    column.read = "SELECT " + column.name + " FROM " + table + " WHERE id=?";
    column.write = "UPDATE " + table + " SET " + column.name + "=? WHERE id=?";
    if (property->target) {
      column.live = "SELECT coalesce((SELECT t.id FROM " + of(*property->target).table +
                    " t WHERE t.id=s." + column.name + "),0) FROM " + table + " s WHERE s.id=?";
    }
  }
  std::string names = "id";
  std::string values = "?";
  for (const PropertyInfo* property : cls.changedDefaults) {
    const ColumnLayout& column = of(*property);
    names += "," + column.name;
    values += "," + column.defaultLiteral;
  }
  cls.create = "INSERT INTO " + table + "(" + names + ") VALUES(" + values + ")";
  cls.exists = "SELECT 1 FROM " + table + " WHERE id=?";
  cls.remove = "DELETE FROM " + table + " WHERE id=?";
}

const ClassLayout& Layout::of(const ClassRef& cls) const {
  if (!cls.isValid()) kodiag::raise({"KODD:kodd", "NoSuchObjectType"}, {{"ClassName", ""}});
  return of(*cls.info());
}

void Layout::raiseForeignClass(const ClassInfo& cls) {
  kodiag::raise({"KODD:kodd", "NoSuchObjectType"}, {{"ClassName", cls.qualifiedName()}});
}

const ClassInfo* Layout::classNumbered(int number) const {
  const auto found = byNumber_.find(number);
  return found == byNumber_.end() ? nullptr : found->second;
}

}  // namespace kodd
