// How a new run comes to be: its number, its place in the list, its objects.
#include <chrono>
#include <limits>

#include "objectmanager/objectmanager.h"
#include "objects/find.h"
#include "objects/runnumbering.h"
#include "objects/set.h"
#include "objects/strings.h"

namespace vela {
namespace {

int stepped(int counter, int step) {
  using Limits = std::numeric_limits<int>;
  if (counter == (step > 0 ? Limits::max() : Limits::min())) {
    kodiag::raise({"nexstore:nex", "InvalidData"},
                  {{"Operation", "number a run"}, {"Reason", "a 32-bit counter is used up"}});
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

void storeNumber(ObjectManager& manager, int runID, int number) {
  manager.inTransaction([&] {
    if (const auto record = numberRecord(manager, runID)) {
      record->setPropertyInt32(strings::RunNumber, number);
    } else {
      createRunNumber(manager, runID, number);
    }
  });
}

/// The instance's record of its list; empty when it has none or several.
std::unique_ptr<ObjectRef> orderRecord(ObjectManager& manager) {
  boost::ptr_vector<ObjectRef> records;
  manager.findObjects(strings::MinMaxOrderIndex,
                      {equals(strings::InstanceID, manager.getInstanceID())}, records);
  if (records.size() != 1) return nullptr;
  return std::unique_ptr<ObjectRef>(records.release(records.begin()).release());
}

const std::string& endOfList(bool atTop) {
  return atTop ? strings::MinIndex : strings::MaxIndex;
}

}  // namespace

double secondsSince1970() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

RunNumbering::RunNumbering(ObjectManager& manager)
    : manager_(manager), highest_(storedNumber(manager, 0)), order_(orderRecord(manager)) {
  if (!order_) return;
  atTop_ = order_->getPropertyInt32(strings::ShowAtTop) != 0;
  lastPlace_ = order_->getPropertyInt32(endOfList(atTop_));
}

int RunNumbering::nextNumber() {
  highest_ = stepped(highest_, 1);
  numberTaken_ = true;
  return highest_;
}

int RunNumbering::nextPlace() {
  if (!order_) return 0;
  lastPlace_ = stepped(lastPlace_, atTop_ ? -1 : 1);
  placeTaken_ = true;
  return lastPlace_;
}

void RunNumbering::store() {
  if (numberTaken_) storeNumber(manager_, 0, highest_);
  if (placeTaken_) order_->setPropertyInt32(endOfList(atTop_), lastPlace_);
}

void createRunNumber(ObjectManager& manager, int runID, int number) {
  const long long instance = manager.getInstanceID();
  std::vector<ObjectManager::InitialProperty> values = {
      {strings::FK_SetID, &runID, ObjectConstructorPropType::int32},
      {strings::RunNumber, &number, ObjectConstructorPropType::int32},
      {strings::InstanceID, &instance, ObjectConstructorPropType::int64}};
  manager.createObject(strings::RunNumberByRunID, values, false);
}

int Set::getRunNumber() const {
  return storedNumber(manager(), liveID());
}

void Set::setRunNumber(int number) {
  manager().inTransaction([&] { storeNumber(manager(), liveID(), number); });
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
  RunNumbering numbering(manager());
  const int orderIndex = numbering.nextPlace();
  const double date = secondsSince1970();
  std::vector<ObjectManager::InitialProperty> values = {
      {strings::InstanceID, &instance, Type::int64},
      {strings::OrderIndex, &orderIndex, Type::int32},
      {strings::Date, &date, Type::real64},
      {strings::UName, &name, Type::uString}};
  object_ = manager().createObject(strings::DataSet, values, true);

  if (assignRunNumber) createRunNumber(manager(), getID(), numbering.nextNumber());
  numbering.store();

  std::vector<ObjectManager::InitialProperty> owner = {
      {strings::DataSet, &object_->getObjRef(), Type::objectRef}};
  output_ = manager().createObject(strings::OutputMetaData, owner, true);
}

}  // namespace vela
