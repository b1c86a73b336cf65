// How a new run comes to be: its number, its place in the list, its objects.
#include <chrono>
#include <limits>

#include "objectmanager/objectmanager.h"
#include "objects/find.h"
#include "objects/set.h"
#include "objects/strings.h"

namespace vela {
namespace {

double secondsSince1970() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

int stepped(int counter, int step) {
  using Limits = std::numeric_limits<int>;
  if (counter == (step > 0 ? Limits::max() : Limits::min())) {
    kodiag::raise({"nexstore:nex", "InvalidData"},
                  {{"Operation", "create run"}, {"Reason", "a 32-bit counter is used up"}});
  }
  return counter + step;
}

std::unique_ptr<ObjectRef> numberRecord(ObjectManager& manager, int runID) {
  std::vector<ObjectManager::Constraint> constraints = {equals(strings::FK_SetID, runID)};
  // Every instance has a counter of its own; it stands where the run would.
  if (runID == 0) constraints.push_back(equals(strings::InstanceID, manager.getInstanceID()));
  return findFirst(manager, strings::RunNumberByRunID, constraints);
}

int storedNumber(ObjectManager& manager, int runID) {
  const auto record = numberRecord(manager, runID);
  return record ? record->getPropertyInt32(strings::RunNumber) : 0;
}

void createNumber(ObjectManager& manager, int runID, int number) {
  const long long instance = manager.getInstanceID();
  std::vector<ObjectManager::InitialProperty> values = {
      {strings::FK_SetID, &runID, ObjectConstructorPropType::int32},
      {strings::RunNumber, &number, ObjectConstructorPropType::int32},
      {strings::InstanceID, &instance, ObjectConstructorPropType::int64}};
  manager.createObject(strings::RunNumberByRunID, values, false);
}

void storeNumber(ObjectManager& manager, int runID, int number) {
  manager.inTransaction([&] {
    if (const auto record = numberRecord(manager, runID)) {
      record->setPropertyInt32(strings::RunNumber, number);
    } else {
      createNumber(manager, runID, number);
    }
  });
}

/// The next place at the top or the bottom of this instance's list; 0 while the instance has no
/// single record of its own.
int takeOrderIndex(ObjectManager& manager) {
  boost::ptr_vector<ObjectRef> records;
  manager.findObjects(strings::MinMaxOrderIndex,
                      {equals(strings::InstanceID, manager.getInstanceID())}, records);
  if (records.size() != 1) return 0;
  ObjectRef& record = records.front();
  const bool atTop = record.getPropertyInt32(strings::ShowAtTop) != 0;
  const std::string& end = atTop ? strings::MinIndex : strings::MaxIndex;
  const int index = stepped(record.getPropertyInt32(end), atTop ? -1 : 1);
  record.setPropertyInt32(end, index);
  return index;
}

}  // namespace

int Set::getRunNumber() const {
  return storedNumber(manager(), getID());
}

void Set::setRunNumber(int number) {
  storeNumber(manager(), getID(), number);
}

int Set::getHighestRunNumber(ObjectManager& manager) {
  return storedNumber(manager, 0);
}

void Set::setHighestRunNumber(ObjectManager& manager, int number) {
  storeNumber(manager, 0, number);
}

void Set::init(bool assignRunNumber) {
  manager().ensureInstanceRecords();
  using Type = ObjectConstructorPropType;
  const long long instance = manager().getInstanceID();
  const std::wstring name = getRunNameTemplate(manager());
  const int orderIndex = takeOrderIndex(manager());
  const double date = secondsSince1970();
  std::vector<ObjectManager::InitialProperty> values = {
      {strings::InstanceID, &instance, Type::int64},
      {strings::OrderIndex, &orderIndex, Type::int32},
      {strings::Date, &date, Type::real64},
      {strings::UName, &name, Type::uString}};
  object_ = manager().createObject(strings::DataSet, values, true);

  if (assignRunNumber) {
    const int number = stepped(getHighestRunNumber(manager()), 1);
    storeNumber(manager(), 0, number);
    createNumber(manager(), getID(), number);
  }

  std::vector<ObjectManager::InitialProperty> owner = {
      {strings::DataSet, &object_->getObjRef(), Type::objectRef}};
  output_ = manager().createObject(strings::OutputMetaData, owner, true);
}

}  // namespace vela
