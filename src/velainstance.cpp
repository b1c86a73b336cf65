#include "velainstance.h"

#include <pthread.h>

#include <boost/shared_ptr.hpp>
#include <exception>
#include <filesystem>
#include <functional>
#include <utility>

#include "host/environment.h"
#include "host/features.h"
#include "objectmanager/findobjectstracer.h"
#include "objectmanager/repositorylock.h"
#include "objects/identifiers.h"

namespace vela {
namespace {

host::Feature persistentDMR{"VELAStaticDMR", "VELA persistent DMR",
                            "vela instance", "Korvo Instrumentation",
                            1195856,         1};
// Looked up by name where runs are purged.
host::Feature deleteOnEmpty{"VELAStaticDMRDeleteOnEmpty",
                            "VELA persistent DMR: delete file when empty",
                            "set methods",
                            "Korvo Instrumentation",
                            1195856,
                            0};

using Notifier = boost::shared_ptr<VelaInstance::CreateNotifier>;

/// What outlives an instance: a forked child starts with another one.
struct Process {
  std::unique_ptr<std::once_flag> made = std::make_unique<std::once_flag>();
  VelaInstance* instance = nullptr;
  std::mutex notifierLock;
  std::vector<Notifier> notifiers;
};

// The lock is held while the process forks, so that the child finds the list whole and the lock
// its own.
Process& process() {
  static Process* const state = [] {
    pthread_atfork([] { process().notifierLock.lock(); },
                   [] { process().notifierLock.unlock(); },
                   [] {
                     process().made = std::make_unique<std::once_flag>();
                     process().instance = nullptr;
                     process().notifierLock.unlock();
                   });
    return new Process;
  }();
  return *state;
}

/// Folds a random UUID to 64 bits. Never 0, which stands for no identity, and never that of
/// rapid-accelerator processes.
unsigned long long newInstanceID() {
  unsigned long long id = 0;
  while (id <= static_cast<unsigned long long>(ObjectManager::RACCEL_INSTANCE_ID)) {
    const boost::uuids::uuid uuid = IdGenerator::generateUUID();
    id = 0;
    for (int i = 7; i >= 0; --i) {
      id = id << 8 | static_cast<unsigned char>(uuid.data[i] ^ uuid.data[i + 8]);
    }
  }
  return id;
}

bool isBatchJob() {
  return host::environmentVariable("USER") == host::batchAccountName();
}

bool areSamePath(const std::string& one, const std::string& other) {
  return std::filesystem::path(one).lexically_normal() ==
         std::filesystem::path(other).lexically_normal();
}

/// Collects failures of steps that must all be tried.
class Attempts {
 public:
  void attempt(const std::function<void()>& step) {
    try {
      step();
    } catch (...) {
      if (!first_) first_ = std::current_exception();
    }
  }
  void raiseFirst() const {
    if (first_) std::rethrow_exception(first_);
  }

 private:
  std::exception_ptr first_;
};

std::vector<Notifier> takeNotifiers() {
  std::lock_guard lock(process().notifierLock);
  return std::exchange(process().notifiers, {});
}

// Outside any lock of ours: a notifier may ask for a repository or register another one.
void tellNotifiers() {
  Attempts attempts;
  for (const Notifier& notifier : takeNotifiers()) {
    attempts.attempt([&] { notifier->notify(); });
  }
  attempts.raiseFirst();
}

}  // namespace

VelaInstance::VelaInstance()
    : defaultSchemaPath_(ObjectManager::getSchemaPath({})),
      persistentFileWritable_(ObjectManager::isPersistentDMRWritable()),
      instanceID_(newInstanceID()) {}

VelaInstance& VelaInstance::getInstance() {
  Process& state = process();
  std::call_once(*state.made, [&] { state.instance = new VelaInstance; });
  return *state.instance;
}

ObjectManager& VelaInstance::getObjectManager(const std::string& schemaPath,
                                              const std::string& packageName) {
  if (isDefault(schemaPath)) {
    return helperGetObjectManager(defaultSchemaPath_, packageName, true);
  }
  return helperGetObjectManager(schemaPath, packageName, false);
}

ObjectManager* VelaInstance::findObjectManager(const std::string& schemaPath) {
  std::lock_guard lock(lock_);
  const auto place = managers_.find(isDefault(schemaPath) ? defaultSchemaPath_ : schemaPath);
  return place != managers_.end() && place->second.ready ? place->second.manager.get()
                                                         : nullptr;
}

unsigned long long VelaInstance::getInstanceID() const {
  std::lock_guard lock(lock_);
  return instanceID_;
}

void VelaInstance::registerCreateNotifier(CreateNotifier* notifier) {
  const Notifier owned(notifier);
  const VelaInstance& instance = getInstance();
  {
    std::lock_guard lock(process().notifierLock);
    if (!instance.hasObjMgrBeenCreated()) {
      process().notifiers.push_back(owned);
      return;
    }
  }
  owned->notify();
}

void VelaInstance::unregisterAllNotifiers() {
  takeNotifiers();
}

void VelaInstance::setInstanceClosed() {
  const RepositoryGuard repository("setInstanceClosed");
  if (ObjectManager* manager = findObjectManager(defaultSchemaPath_))
    manager->setInstanceClosed();
}

void VelaInstance::setIsRapidAccelProcess() {
  const RepositoryGuard repository("setIsRapidAccelProcess");
  std::vector<ObjectManager*> managers;
  {
    std::lock_guard lock(lock_);
    instanceID_ = static_cast<unsigned long long>(ObjectManager::RACCEL_INSTANCE_ID);
    for (const auto& [path, entry] : managers_) managers.push_back(entry.manager.get());
  }
  for (ObjectManager* manager : managers) manager->setIsRapidAccelProcess();
}

void VelaInstance::deleteDMR() {
  const RepositoryGuard repository("deleteDMR");
  std::vector<Entry*> shared;
  for (Entry* entry : readyEntries()) {
    if (!entry->manager->isPersistentDMR()) continue;
    entry->manager->disconnect();
    entry->ready = false;
    shared.push_back(entry);
  }
  ObjectManager::deletePersistentDMRfile();
  for (Entry* entry : shared) open(*entry, {}, {});
}

host::HostArray VelaInstance::getQueryLog() {
  using Threads = FindObjectsTracer::Threads;
  const auto tableFor = [this](Threads threads) {
    std::vector<FindObjectsTracer::Row> rows;
    for (Entry* entry : readyEntries()) {
      for (auto& row : entry->manager->getFindObjectsTracer().rows(threads)) {
        rows.push_back(std::move(row));
      }
    }
    return tableOf(rows);
  };
  return host::HostArray::structure(
      {{"MainThreadLog", tableFor(Threads::main)}, {"AllThreadsLog", tableFor(Threads::all)}});
}

void VelaInstance::purgeQueryLog() {
  for (Entry* entry : readyEntries()) entry->manager->getFindObjectsTracer().reset();
}

void VelaInstance::disconnectAll() {
  const RepositoryGuard repository("disconnectAll");
  Attempts attempts;
  for (Entry* entry : readyEntries()) {
    attempts.attempt([&] {
      entry->manager->disconnect();
      entry->ready = false;
    });
  }
  attempts.raiseFirst();
}

bool VelaInstance::isDefault(const std::string& schemaPath) const {
  return schemaPath.empty() || areSamePath(schemaPath, defaultSchemaPath_);
}

ObjectManager& VelaInstance::helperGetObjectManager(const std::string& schemaPath,
                                                    const std::string& packageName,
                                                    bool isDefault) {
  if (ObjectManager* manager = findObjectManager(schemaPath)) return *manager;
  ObjectManager* manager = nullptr;
  {
    // Waiting for another thread's opening is waiting for this lock: a thread that waited for
    // anything else while holding it would stop the opening.
    const RepositoryGuard repository("getObjectManager");
    Entry& entry = entryFor(schemaPath, isDefault);
    manager = entry.manager.get();
    if (entry.ready || entry.opening) return *manager;
    open(entry, schemaPath, packageName);
    created_ = true;
  }
  tellNotifiers();
  return *manager;
}

VelaInstance::Entry& VelaInstance::entryFor(const std::string& schemaPath, bool isDefault) {
  std::lock_guard lock(lock_);
  Entry& entry = managers_[schemaPath];
  if (!entry.manager) {
    auto manager = std::make_unique<ObjectManager>();
    if (isDefault && isSharedWanted()) {
      if (isSharedUsable()) {
        manager->setLocationToPersistentDMR();
      } else {
        manager->noteSharedFileUnusable();
      }
    }
    manager->setInstanceID(instanceID_);
    entry.manager = std::move(manager);
  }
  return entry;
}

void VelaInstance::open(Entry& entry, const std::string& schemaPath,
                        const std::string& packageName) {
  struct Mark {
    explicit Mark(bool& flag) : flag_(flag) { flag_ = true; }
    ~Mark() { flag_ = false; }
    bool& flag_;
  } opening(entry.opening);
  entry.manager->initializeObjectManager(schemaPath, packageName);
  // What could not be opened is tried again when it is next asked for.
  entry.ready = entry.manager->isOpen();
}

std::vector<VelaInstance::Entry*> VelaInstance::readyEntries() {
  std::lock_guard lock(lock_);
  std::vector<Entry*> ready;
  for (auto& [path, entry] : managers_) {
    if (entry.ready) ready.push_back(&entry);
  }
  return ready;
}

bool VelaInstance::isSharedWanted() {
  const int feature = persistentDMR.value();
  return feature > 1 || (feature == 1 && !isBatchJob());
}

bool VelaInstance::isSharedUsable() const {
  return persistentDMR.value() > 1 ? ObjectManager::isPersistentDMRWritable()
                                   : persistentFileWritable_;
}

}  // namespace vela
