// Copies objects of a damaged file into a repository, under new IDs.
#pragma once

#include <string>
#include <unordered_map>

#include "kodd/salvagereader.h"
#include "objectmanager/objectmanager.h"

namespace vela {

/// Creates objects with the values of salvaged ones. A reference is kept when the object it
/// names was copied before and is of the class it must be, and dropped otherwise. What belonged
/// to any instance belongs to the manager's.
///
/// Works inside a unit of work; failures of the repository are raised.
class SalvageCopier {
 public:
  explicit SalvageCopier(ObjectManager& manager) : manager_(manager) {}

  /// \returns the new ID
  int copy(const kodd::SalvagedObject& object);
  /// The same, but takes an equal object that is there already.
  int copyShared(const kodd::SalvagedObject& object);
  /// Sets the references to objects that were copied later than this one.
  void linkAgain(const kodd::SalvagedObject& object);

  /// The ID under which an object was copied, 0 when it was not.
  int newID(int oldID) const;
  /// The same for what a property names.
  int newID(const kodd::SalvagedObject& object, const std::string& property) const;

 private:
  struct Copy {
    int id;
    kodd::ClassRef cls;
  };

  int target(const kodd::SalvagedObject& object, const kodd::PropertyInfo& property) const;
  int findEqual(const kodd::SalvagedObject& object);

  ObjectManager& manager_;
  std::unordered_map<int, Copy> copies_;
};

}  // namespace vela
