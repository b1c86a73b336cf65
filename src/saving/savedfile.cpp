#include "saving/savedfile.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>

#include "kodiag/diagnostics.h"
#include "objects/strings.h"
#include "saving/savedobjects.h"

namespace vela::saving {
namespace {

const std::vector<std::string> kHeaderFields = {kID, kType};

/// The ID in a header; 0, which no object has, when it holds none.
int idIn(const host::HostArray& header) {
  const host::HostArray& id = header.field(kID);
  if (!id.isNumeric() || id.isComplex() || !id.isScalar()) return 0;
  const double value = id.toDouble();
  // Compared this way round so that NaN fails too.
  const bool fits = value >= std::numeric_limits<int>::min() &&
                    value <= std::numeric_limits<int>::max() && value == std::floor(value);
  return fits ? static_cast<int>(value) : 0;
}

}  // namespace

SavedFile::SavedFile(ObjectManager& manager, const datafile::DataFileReader& file)
    : file_(file), descriptor_(readDescriptor(file)) {
  readHeaders();
  checkObjects(manager);
  std::ranges::sort(runs_, {},
                    [](const auto& run) { return std::pair(run.second, run.first); });
  std::ranges::sort(numbers_);
  refuseCircle(parents_, "signals");
  refuseCircle(standsFor_, "data types");
  orderDataTypes();
}

const std::vector<int>& SavedFile::ofClass(const std::string& className) const {
  static const std::vector<int> none;
  const auto place = byClass_.find(className);
  return place == byClass_.end() ? none : place->second;
}

std::vector<int> SavedFile::numbersInOrder() const {
  std::vector<int> objects;
  for (const auto& [number, object] : numbers_) objects.push_back(object);
  return objects;
}

const std::vector<SavedFile::Enumerator>& SavedFile::enumerators(int definition) const {
  static const std::vector<Enumerator> none;
  const auto place = enumerators_.find(definition);
  return place == enumerators_.end() ? none : place->second;
}

void SavedFile::readHeaders() {
  const std::vector<std::string> variables = file_.names(kHeader);
  file_.expect(variables, Extent::all);
  for (const std::string& variable : variables) readHeader(variable);
  for (const auto& [id, className] : classes_) byClass_[*className].push_back(id);
}

void SavedFile::readHeader(const std::string& variable) {
  const host::HostArray header = file_.get(variable);
  if (!header.isStructure() || !header.isScalar() || header.fieldNames() != kHeaderFields ||
      !header.field(kType).isText()) {
    refuseFile(file_, "\"" + variable + "\" is no header");
  }
  const int id = idIn(header);
  if (id == 0 || variableName(kHeader, id) != variable) {
    refuseFile(file_, "\"" + variable + "\" is the header of another object");
  }
  const std::string type = header.field(kType).toString();
  const auto place = std::ranges::find(savedClasses(), type);
  if (place == savedClasses().end()) {
    refuseFile(file_, "\"" + variable + "\" is of the unknown class \"" + type + "\"");
  }
  classes_.emplace(id, &*place);
}

void SavedFile::expectObjects(Extent extent) const {
  std::vector<std::string> variables;
  for (const std::string& className : savedClasses()) {
    for (const int id : ofClass(className)) variables.push_back(variableName(kData, id));
  }
  file_.expect(variables, extent);
}

void SavedFile::checkObjects(ObjectManager& manager) {
  expectObjects(Extent::beginning);
  for (const std::string& className : savedClasses()) {
    ObjectRow row(manager, className);
    for (const int id : ofClass(className)) {
      datafile::DataFileReader::Variable data(file_, variableName(kData, id));
      if (!readFields(data, row, id)) data.finish();
      checkLinks(row, id);
      note(row, id);
    }
  }
}

bool SavedFile::readFields(datafile::DataFileReader::Variable& from, ObjectRow& row,
                           int id) const {
  const auto refuse = [&](const std::string& field, const std::string& reason) {
    refuseFile(file_, row.className() + " " + std::to_string(id) + ", field \"" + field +
                          "\": " + reason);
  };
  row.clear();
  std::set<std::string> seen;
  const std::vector<std::string> names = from.beginStructure();
  for (const std::string& name : names) {
    if (!seen.insert(name).second) refuse(name, "it is there twice");
    if (name == strings::Chunk && row.className() == strings::Signal) {
      if (&name != &names.back()) refuse(name, "it is not the last");
      return true;
    }
    const std::string wrong = row.assign(name, from.take(), hasBareReferences(descriptor_));
    if (!wrong.empty()) refuse(name, wrong);
  }
  return false;
}

void SavedFile::checkLinks(ObjectRow& row, int id) const {
  for (const ObjectRow::Link& link : row.links()) {
    if (*link.target == 0) continue;
    const auto target = classes_.find(*link.target);
    const kodd::ClassInfo* const wanted = link.property.info()->target;
    const bool fits = target != classes_.end() && (!wanted || wanted->name == *target->second);
    if (fits) continue;
    refuseFile(file_, row.className() + " " + std::to_string(id) + ": \"" +
                          link.property.name() + "\" names object " +
                          std::to_string(*link.target) + ", which is not in the file");
  }
}

void SavedFile::note(const ObjectRow& row, int id) {
  const std::string& className = row.className();
  if (className == strings::DataSet) {
    runs_.emplace_back(id, row.integer(strings::OrderIndex));
  } else if (className == strings::RunNumberByRunID) {
    numbers_.emplace_back(row.integer(strings::RunNumber), id);
  } else if (className == strings::EnumerationValue) {
    enumerators_[row.integer(strings::ClassDefinition)].push_back(
        {id, row.integer(strings::Value), row.text(strings::Label)});
  } else if (className == strings::Signal) {
    const int parent = row.integer(strings::FK_Parent);
    if (parent != 0) parents_.emplace(id, parent);
  } else if (className == strings::DataType) {
    const int definition = row.integer(strings::FK_DataTypeDefinitionID);
    const auto place = classes_.find(definition);
    const bool standsForType = place != classes_.end() && *place->second == strings::DataType;
    if (standsForType) standsFor_.emplace(id, definition);
  }
}

void SavedFile::refuseCircle(const std::map<int, int>& links, const std::string& what) const {
  std::set<int> settled;
  for (const auto& start : links) {
    std::set<int> path;
    auto at = links.find(start.first);
    while (at != links.end() && !settled.contains(at->first)) {
      if (!path.insert(at->first).second) refuseFile(file_, "its " + what + " form a circle");
      at = links.find(at->second);
    }
    settled.merge(path);
  }
}

void SavedFile::orderDataTypes() {
  std::vector<int>& types = byClass_[strings::DataType];
  const auto depth = [&](int type) {
    int steps = 0;
    for (auto at = standsFor_.find(type); at != standsFor_.end();
         at = standsFor_.find(at->second)) {
      ++steps;
    }
    return steps;
  };
  std::ranges::stable_sort(types, {}, depth);
}

}  // namespace vela::saving
