// An enumeration type stored in the repository.
#pragma once

#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "objects/orm.h"

namespace vela {

/// Enumerators in declaration order: value and label.
using EnumerationDefinition = std::vector<std::pair<int, std::string>>;

/// A stored enumeration: its name and enumerators. Stored once per instance and shared by every
/// signal that uses it.
class ClassDef : public ORM {
 public:
  explicit ClassDef(std::unique_ptr<ObjectRef> object) : ORM(std::move(object)) {}
  /// Adopts this instance's definition with the same contents, or stores a new one with its
  /// data type object.
  ///
  /// \param storageType  one of the names DataTypeUtil::createEnumDataType accepts
  ClassDef(const std::string& name, const EnumerationDefinition& definition,
           const std::string& storageType, ObjectManager& manager);
  /// The same in the default repository.
  ClassDef(const std::string& name, const EnumerationDefinition& definition,
           const std::string& storageType);

  int getID() const;
  std::string getName() const;
  int getCheckSum() const override;
  /// In declaration order.
  EnumerationDefinition getOrderedEnumerationDefinition() const;
  /// The storage type it was made with, which only the checksum tells; empty when none fits it.
  std::string getStorageType() const;
  /// By value; of several enumerators with one value, the first declared.
  std::unordered_map<int, std::string> getEnumerationDefinition() const;

  /// CRC-32 over the bytes of the name, of the storage type, and of each enumerator's value
  /// (little-endian) and label, in order.
  static int checkSumOf(const std::string& name, const EnumerationDefinition& definition,
                        const std::string& storageType);

 private:
  void init(const std::string& name, const EnumerationDefinition& definition,
            const std::string& storageType);
  bool adoptStored(const std::string& name, const EnumerationDefinition& definition,
                   int checkSum);
  void store(const std::string& name, const EnumerationDefinition& definition, int checkSum);
};

}  // namespace vela
