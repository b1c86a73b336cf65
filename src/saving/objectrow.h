// The stored properties of one object after another, as fields of a structure and back.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/arrays.h"
#include "objectmanager/objectmanager.h"

namespace vela::saving {

/// One object of a class in memory: every stored property but "OLDID", read, written and
/// converted together.
///
/// A field is named as its property, a reference "FK_" and its property unless that starts so.
/// Whole numbers are int32 or int64, numbers double, texts text, bytes a uint8 column, array
/// values themselves; a reference is a record {ID, Type, data} with empty data, or in old files
/// the bare ID. A link is its ID.
class ObjectRow {
 public:
  ObjectRow(ObjectManager& manager, const std::string& className);
  ObjectRow(ObjectRow&&) noexcept = default;
  ~ObjectRow();

  const std::string& className() const;

  /// \returns whether there is such an object
  bool read(int id);
  /// Makes an object of the values, with that "OLDID". \returns its ID
  int create(int oldID);

  const std::vector<std::string>& fieldNames() const { return fieldNames_; }
  /// One value a field, in their order. Objects that are not kept are named by none.
  ///
  /// \param bareReferences  references are IDs, not records
  std::vector<host::HostArray> fields(const std::function<bool(int)>& isKept,
                                      bool bareReferences) const;

  /// Every value as it is in a new object.
  void clear();
  /// Takes the value of a field over. \returns what is wrong with it, empty when nothing
  ///
  /// \param bareReferences  as in fields()
  std::string assign(const std::string& field, const host::HostArray& value,
                     bool bareReferences);

  // Values by property. Of the numbers, links and references are ints.
  int integer(const std::string& property) const;
  long long longInteger(const std::string& property) const;
  const std::string& text(const std::string& property) const;
  const std::wstring& wideText(const std::string& property) const;
  void set(const std::string& property, int value);
  void set(const std::string& property, long long value);
  void set(const std::string& property, const std::string& value);

  struct Link {
    kodd::PropertyRef property;
    int* target;  ///< the ID, 0 for none; lives as long as the row
  };
  /// The links and references.
  const std::vector<Link>& links() { return links_; }

  /// Constraints that exactly the objects with the same values satisfy.
  std::vector<ObjectManager::Constraint> sameValues() const;

 private:
  struct Slot;

  Slot& slot(const std::string& property) const;
  void bind(Slot& slot);
  void writeArrays(int id);

  ObjectManager& manager_;
  kodd::ClassRef class_;
  int id_ = 0;
  int oldID_ = 0;
  std::vector<std::unique_ptr<Slot>> slots_;
  std::vector<std::string> fieldNames_;
  std::vector<Link> links_;
  kodd::ObjectQuery reader_;
  kodd::ObjectConstructor creator_;
};

}  // namespace vela::saving
