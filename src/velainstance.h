// The process's one instance: which repository files are open, and under which identity.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/arrays.h"
#include "objectmanager/objectmanager.h"

namespace vela {

/// The process-wide owner of the shared object managers, one for each schema.
///
/// The default repository lives in the user's shared file or in a private one, as the feature
/// "VELAStaticDMR" says: below 1 private, above 1 shared, 1 shared except in batch jobs; and
/// always private where the shared file must not be used.
/// Threads: any. Lock order: repository lock, turn to write, instance lock. A forked child gets
/// an instance, identity and managers of its own; those of its parent are left alone.
class VelaInstance {
 public:
  /// Told once, when a repository first exists.
  class CreateNotifier {
   public:
    virtual ~CreateNotifier() = default;
    virtual void notify() = 0;
  };

  static VelaInstance& getInstance();
  VelaInstance(const VelaInstance&) = delete;
  VelaInstance& operator=(const VelaInstance&) = delete;

  /// The manager of a schema, opened on first use; other threads wait until that has ended.
  /// Returned unopened only to code called by that very opening.
  ///
  /// \param schemaPath   empty: the default schema, the only one that uses the shared file
  /// \param packageName  package under which the classes are named; empty: the default
  /// \returns an unopened one, which reports why at its first use, when the file cannot be
  /// opened;
  ///          the next call then tries again, once
  /// \throws what ObjectManager::initializeObjectManager raises
  ObjectManager& getObjectManager(const std::string& schemaPath,
                                  const std::string& packageName);
  /// The manager of a schema that is open; null when there is none. Opens nothing.
  ObjectManager* findObjectManager(const std::string& schemaPath);
  /// Whether a repository exists.
  bool hasObjMgrBeenCreated() const { return created_; }
  /// Neither 0 nor 1, except that it is 1 in a rapid-accelerator process.
  unsigned long long getInstanceID() const;

  /// Takes the notifier; it is told at once when a repository exists already. It is deleted
  /// after it has been told. Of several that throw, the first one's exception is raised when
  /// all have been told.
  static void registerCreateNotifier(CreateNotifier* notifier);
  /// Deletes the waiting notifiers without telling them.
  static void unregisterAllNotifiers();

  /// Marks this instance closed in the default repository, if that is open.
  void setInstanceClosed();
  /// From now on everything is written under the identity of rapid-accelerator processes.
  void setIsRapidAccelProcess();
  /// Deletes the shared file and goes on with an empty one. Private files are not touched.
  void deleteDMR();
  /// A 1-by-1 structure of the tables of object queries of all managers: "MainThreadLog", those
  /// made by the thread that loaded the library, and "AllThreadsLog".
  host::HostArray getQueryLog();
  void purgeQueryLog();
  /// Closes all repositories and removes the private files; to be called before the process
  /// ends. The next getObjectManager opens anew.
  void disconnectAll();

 private:
  struct Entry {
    std::unique_ptr<ObjectManager> manager;
    std::atomic<bool> ready = false;
    /// Whether it is being opened; true only while the repository lock is held.
    bool opening = false;
  };

  VelaInstance();

  bool isDefault(const std::string& schemaPath) const;
  ObjectManager& helperGetObjectManager(const std::string& schemaPath,
                                        const std::string& packageName, bool isDefault);
  Entry& entryFor(const std::string& schemaPath, bool isDefault);
  static void open(Entry& entry, const std::string& schemaPath, const std::string& packageName);
  std::vector<Entry*> readyEntries();
  static bool isSharedWanted();
  bool isSharedUsable() const;

  const std::string defaultSchemaPath_;
  const bool persistentFileWritable_;
  std::atomic<bool> created_ = false;
  mutable std::mutex lock_;  ///< guards the table and the identity
  unsigned long long instanceID_;
  std::map<std::string, Entry> managers_;
};

}  // namespace vela
