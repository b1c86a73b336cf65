// Which objects a save writes.
#pragma once

#include <string>
#include <unordered_set>
#include <vector>

#include "objectmanager/objectmanager.h"
#include "objects/set.h"

namespace vela::saving {

/// The classes whose objects are saved, in the order in which they are made again: what is
/// named comes before what names it, as far as classes tell.
const std::vector<std::string>& savedClasses();

/// The runs of an instance, or all, that are not marked for deletion, with everything that
/// belongs to them, and the signals and streams without a run. To be made in a read unit.
class SavedObjects {
 public:
  SavedObjects(ObjectManager& manager, Set::Sessions sessions);

  /// IDs in the order of creation; of data types, those that others stand for come first.
  const std::vector<int>& ofClass(const std::string& className) const;
  bool contains(int id) const { return all_.contains(id); }
  std::size_t count() const { return all_.size(); }

 private:
  bool isOurs(long long instanceID) const;
  void add(const std::string& className, int id);
  void addIfStored(const std::string& className, int id);
  void findRuns();
  void findRunRecords();
  void findSignals();
  void findDataType(int id);
  void findUnits();
  void findStreams();
  void findMetaData();
  void findEnumerators();

  ObjectManager& manager_;
  Set::Sessions sessions_;
  std::vector<std::vector<int>> byClass_;
  std::unordered_set<int> all_;
  std::unordered_set<long long> units_;
};

}  // namespace vela::saving
