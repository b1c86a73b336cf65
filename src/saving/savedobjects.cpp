#include "saving/savedobjects.h"

#include <algorithm>
#include <set>

#include "objects/find.h"
#include "objects/strings.h"
#include "saving/rowscan.h"

namespace vela::saving {

const std::vector<std::string>& savedClasses() {
  static const std::vector<std::string> classes = {strings::Unit,
                                                   strings::ClassDefinition,
                                                   strings::EnumerationValue,
                                                   strings::FixedPointBinaryPointScaling,
                                                   strings::FixedPointSlopeBiasScaling,
                                                   strings::FixedPointUnspecifiedScaling,
                                                   strings::DataType,
                                                   strings::SignalSource,
                                                   strings::TestHarnessData,
                                                   strings::DataSet,
                                                   strings::OutputMetaData,
                                                   strings::InputMetaData,
                                                   strings::RunNumberByRunID,
                                                   strings::Signal,
                                                   strings::MetaData,
                                                   strings::YarrowRuns,
                                                   strings::YarrowSignals,
                                                   strings::YarrowMetaData};
  return classes;
}

namespace {

std::size_t placeOf(const std::string& className) {
  const auto place = std::ranges::find(savedClasses(), className);
  return static_cast<std::size_t>(place - savedClasses().begin());
}

}  // namespace

SavedObjects::SavedObjects(ObjectManager& manager, Set::Sessions sessions)
    : manager_(manager), sessions_(sessions), byClass_(savedClasses().size()) {
  findRuns();
  findRunRecords();
  findSignals();
  findUnits();
  findStreams();
  findMetaData();
  findEnumerators();
}

const std::vector<int>& SavedObjects::ofClass(const std::string& className) const {
  return byClass_.at(placeOf(className));
}

bool SavedObjects::isOurs(long long instanceID) const {
  return sessions_ == Set::Sessions::all || instanceID == manager_.getInstanceID();
}

void SavedObjects::add(const std::string& className, int id) {
  if (all_.insert(id).second) byClass_.at(placeOf(className)).push_back(id);
}

void SavedObjects::addIfStored(const std::string& className, int id) {
  if (id == 0 || contains(id)) return;
  bool found = false;
  manager_.findObject(id, className, found);
  if (found) add(className, id);
}

void SavedObjects::findRuns() {
  long long instance = 0;
  int marked = 0;
  RowScan(manager_, strings::DataSet)
      .reading(strings::InstanceID, &instance)
      .reading(strings::MarkedForDelete, &marked)
      .run([&](int id) {
        if (marked == 0 && isOurs(instance)) add(strings::DataSet, id);
      });
}

void SavedObjects::findRunRecords() {
  int run = 0;
  std::set<int> harnesses;
  int harness = 0;
  int unit = 0;
  RowScan(manager_, strings::OutputMetaData)
      .reading(strings::DataSet, &run)
      .reading(strings::TestHarnessDataID, &harness)
      .reading(strings::TestUnitDataID, &unit)
      .run([&](int id) {
        if (!contains(run)) return;
        add(strings::OutputMetaData, id);
        harnesses.insert({harness, unit});
      });
  for (const int id : harnesses) addIfStored(strings::TestHarnessData, id);
  RowScan(manager_, strings::InputMetaData).reading(strings::DataSet, &run).run([&](int id) {
    if (contains(run)) add(strings::InputMetaData, id);
  });
  RowScan(manager_, strings::RunNumberByRunID)
      .reading(strings::FK_SetID, &run)
      .run([&](int id) {
        if (contains(run)) add(strings::RunNumberByRunID, id);
      });
}

void SavedObjects::findSignals() {
  long long instance = 0;
  int run = 0;
  int source = 0;
  int type = 0;
  long long unit = 0;
  std::set<int> sources;
  std::set<int> types;
  RowScan(manager_, strings::Signal)
      .reading(strings::InstanceID, &instance)
      .reading(strings::FK_SetID, &run)
      .reading(strings::SignalSourceID, &source)
      .reading(strings::DataTypeID, &type)
      .reading(strings::UnitsChecksum, &unit)
      .run([&](int id) {
        if (!isOurs(instance) || (run != 0 && !contains(run))) return;
        add(strings::Signal, id);
        sources.insert(source);
        types.insert(type);
        units_.insert(unit);
      });
  for (const int id : sources) addIfStored(strings::SignalSource, id);
  for (const int id : types) findDataType(id);
}

// The type an alias stands for comes before it; a stored circle ends where it is met again.
void SavedObjects::findDataType(int id) {
  std::vector<int> types;
  while (id != 0 && !contains(id) && std::ranges::find(types, id) == types.end()) {
    bool found = false;
    const auto type = manager_.findObject(id, strings::DataType, found);
    if (!found) break;
    types.push_back(id);
    id = type->getPropertyInt32(strings::FK_DataTypeDefinitionID);
  }
  if (id != 0 && !contains(id)) {
    bool found = false;
    const auto definition = manager_.findObject(id, found);
    if (found && placeOf(definition->getObjectType()) < placeOf(strings::DataType)) {
      add(definition->getObjectType(), id);
    }
  }
  for (auto type = types.rbegin(); type != types.rend(); ++type) add(strings::DataType, *type);
}

void SavedObjects::findUnits() {
  long long number = 0;
  RowScan(manager_, strings::Unit).reading(strings::Checksum, &number).run([&](int id) {
    if (units_.contains(number)) add(strings::Unit, id);
  });
}

void SavedObjects::findStreams() {
  std::set<std::string> streams;
  long long instance = 0;
  std::string name;
  RowScan(manager_, strings::YarrowRuns)
      .reading(strings::InstanceID, &instance)
      .reading(strings::Name, &name)
      .run([&](int id) {
        if (!isOurs(instance)) return;
        add(strings::YarrowRuns, id);
        streams.insert(name);
      });
  RowScan(manager_, strings::YarrowSignals).reading(strings::Name, &name).run([&](int id) {
    if (streams.contains(name)) add(strings::YarrowSignals, id);
  });
  RowScan(manager_, strings::YarrowMetaData)
      .reading(strings::StreamUUID, &name)
      .run([&](int id) {
        if (streams.contains(name)) add(strings::YarrowMetaData, id);
      });
}

void SavedObjects::findMetaData() {
  int parent = 0;
  RowScan(manager_, strings::MetaData).reading(strings::FK_ParentID, &parent).run([&](int id) {
    if (contains(parent)) add(strings::MetaData, id);
  });
}

void SavedObjects::findEnumerators() {
  int definition = 0;
  RowScan(manager_, strings::EnumerationValue)
      .reading(strings::ClassDefinition, &definition)
      .run([&](int id) {
        if (contains(definition)) add(strings::EnumerationValue, id);
      });
}

}  // namespace vela::saving
