#include "objectmanager/instancerecords.h"

#include <mutex>
#include <utility>
#include <vector>

#include "host/environment.h"
#include "objectmanager/objectmanager.h"

namespace vela {
namespace {

using kodd::PropertyValueMatchRelation;

std::mutex preferenceMutex;

// Made on first use: it is set while other sources initialise their statics.
ShowAtTopPreference& showAtTopPreference() {
  static auto* const preference = new ShowAtTopPreference;
  return *preference;
}

int preferredShowAtTop() {
  ShowAtTopPreference preference;
  {
    std::lock_guard lock(preferenceMutex);
    preference = showAtTopPreference();
  }
  if (!preference) return 0;
  try {
    return preference() != 0 ? 1 : 0;
  } catch (const std::exception&) {
    return 0;
  }
}

/// The classes and properties of the records, as far as the package has them.
struct Vocabulary {
  explicit Vocabulary(ObjectManager& manager) {
    std::string name;
    const kodd::PackageRef package = manager.getPackageAndClass("InstanceID", name);
    if (!package.isValid()) return;
    instance = package.findClass("InstanceID");
    order = package.findClass("MinMaxOrderIndex");
    run = package.findClass("DataSet");
  }
  bool isComplete() const { return instance.isValid() && order.isValid() && run.isValid(); }

  kodd::ClassRef instance;
  kodd::ClassRef order;
  kodd::ClassRef run;
};

bool hasInstanceRow(long long instanceID) {
  return instanceID != 0 && instanceID != ObjectManager::RACCEL_INSTANCE_ID;
}

kodd::Selection ofInstance(const kodd::ClassRef& cls, const char* property,
                           long long instanceID) {
  return kodd::Selection(cls).matching(cls.findProperty(property),
                                       PropertyValueMatchRelation::Equal, instanceID);
}

long long count(ObjectManager& manager, const kodd::Selection& selection) {
  kodiag::util::diagnostics diag;
  const long long found = manager.repository().countObjects(selection, diag);
  diag.raiseIfAny();
  return found;
}

enum class Ending { none, closed, crashed };

void setEnding(ObjectManager& manager, const Vocabulary& words, long long instanceID,
               Ending ending) {
  const int closed = ending != Ending::none;
  const int crashed = ending == Ending::crashed;
  kodiag::util::diagnostics diag;
  kodd::ObjectModifier modifier(words.instance, manager.repository());
  modifier.setPropertyValueSource(words.instance.findProperty("IsClosed"), &closed);
  modifier.setPropertyValueSource(words.instance.findProperty("HasCrashed"), &crashed);
  modifier.modifySelected(ofInstance(words.instance, "id", instanceID), diag);
  diag.raiseIfAny();
}

long long openRows(ObjectManager& manager, const Vocabulary& words, long long instanceID) {
  return count(manager, ofInstance(words.instance, "id", instanceID)
                            .matching(words.instance.findProperty("IsClosed"),
                                      PropertyValueMatchRelation::Equal, 0));
}

void ensureInstanceRow(ObjectManager& manager, const Vocabulary& words, long long instanceID) {
  if (openRows(manager, words, instanceID) > 0) return;
  if (count(manager, ofInstance(words.instance, "id", instanceID)) > 0) {
    setEnding(manager, words, instanceID, Ending::none);
    return;
  }
  const int open = 0;
  const int isFarmWorker = host::isWorkerMode() ? 1 : 0;
  std::vector<ObjectManager::InitialProperty> values = {
      {"id", &instanceID, ObjectConstructorPropType::int64},
      {"IsClosed", &open, ObjectConstructorPropType::int32},
      {"IsFarmWorker", &isFarmWorker, ObjectConstructorPropType::int32}};
  manager.createObject("InstanceID", values, false);
}

void ensureOrderRecord(ObjectManager& manager, const Vocabulary& words, long long instanceID) {
  if (count(manager, ofInstance(words.order, "InstanceID", instanceID)) > 0) return;
  const int none = 0;
  const int showAtTop = preferredShowAtTop();
  std::vector<ObjectManager::InitialProperty> values = {
      {"InstanceID", &instanceID, ObjectConstructorPropType::int64},
      {"MinIndex", &none, ObjectConstructorPropType::int32},
      {"MaxIndex", &none, ObjectConstructorPropType::int32},
      {"ShowAtTop", &showAtTop, ObjectConstructorPropType::int32}};
  manager.createObject("MinMaxOrderIndex", values, false);
}

// Another manager of this process may hold the instance already; one holder is enough.
void keepAlive(sqldb::Database& database, long long instanceID) {
  if (!database.isInstanceAlive(instanceID)) database.holdInstance(instanceID);
}

bool isRecorded(ObjectManager& manager, const Vocabulary& words, long long instanceID) {
  return (!hasInstanceRow(instanceID) || openRows(manager, words, instanceID) > 0) &&
         count(manager, ofInstance(words.order, "InstanceID", instanceID)) > 0;
}

void deleteAll(ObjectManager& manager, kodd::Selection selection) {
  kodiag::util::diagnostics diag;
  manager.createObjectDeleter(selection.cls())->deleteSelected(selection, diag);
  diag.raiseIfAny();
}

std::vector<long long> openInstances(ObjectManager& manager, const Vocabulary& words) {
  const int open = 0;
  long long id = 0;
  std::vector<long long> ids;
  kodiag::util::diagnostics diag;
  const std::unique_ptr<kodd::ObjectQuery> query = manager.createObjectQuery();
  query->addConstraint(words.instance.findProperty("IsClosed"),
                       PropertyValueMatchRelation::Equal, &open);
  query->addResultProperty(words.instance.findProperty("id"), &id);
  kodd::ResultIterator rows = query->execute(diag);
  while (diag.empty() && rows.getNextResult(diag)) ids.push_back(id);
  diag.raiseIfAny();
  return ids;
}

}  // namespace

void setShowAtTopPreference(ShowAtTopPreference preference) {
  std::lock_guard lock(preferenceMutex);
  showAtTopPreference() = std::move(preference);
}

namespace instancerecords {

void ensure(ObjectManager& manager) {
  const Vocabulary words(manager);
  if (!words.isComplete()) return;
  const long long instanceID = manager.getInstanceID();
  // Living comes before the row, so that nobody finds the row of a seemingly dead instance.
  if (hasInstanceRow(instanceID)) keepAlive(*manager.repository().getDB(), instanceID);
  if (isRecorded(manager, words, instanceID)) return;
  manager.inTransaction([&] {
    if (hasInstanceRow(instanceID)) ensureInstanceRow(manager, words, instanceID);
    ensureOrderRecord(manager, words, instanceID);
  });
}

void abandon(ObjectManager& manager, long long instanceID) {
  const Vocabulary words(manager);
  if (!words.isComplete() || !hasInstanceRow(instanceID)) return;
  manager.inTransaction([&] {
    if (count(manager, ofInstance(words.run, "InstanceID", instanceID)) > 0) return;
    deleteAll(manager, ofInstance(words.instance, "id", instanceID));
    deleteAll(manager, ofInstance(words.order, "InstanceID", instanceID));
  });
  manager.repository().getDB()->releaseInstance(instanceID);
}

void close(ObjectManager& manager) {
  const Vocabulary words(manager);
  if (!words.isComplete()) return;
  manager.inTransaction(
      [&] { setEnding(manager, words, manager.getInstanceID(), Ending::closed); });
}

void closeDead(ObjectManager& manager) {
  const Vocabulary words(manager);
  if (!words.isComplete()) return;
  const sqldb::Database& database = *manager.repository().getDB();
  std::vector<long long> dead;
  for (const long long id : openInstances(manager, words)) {
    const bool isOurs = id == manager.getInstanceID();
    if (!isOurs && hasInstanceRow(id) && !database.isInstanceAlive(id)) dead.push_back(id);
  }
  if (dead.empty()) return;
  manager.inTransaction([&] {
    for (const long long id : dead) {
      // Asked again under the write lock: a process may have taken the instance up meanwhile.
      if (!database.isInstanceAlive(id)) setEnding(manager, words, id, Ending::crashed);
    }
  });
}

}  // namespace instancerecords
}  // namespace vela
