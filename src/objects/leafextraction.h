// Takes the elements of one leaf out of the records of its composite signal.
#pragma once

#include <cstddef>
#include <optional>

#include "fixedpoint/fixedpoint.h"
#include "objects/elementnumbers.h"
#include "objects/signalstate.h"

namespace vela {

/// Where a leaf's element lies in a record, and what it becomes: a double when it is of a
/// fixed-point type, an int32 when it is of an enumeration.
class LeafExtraction {
 public:
  /// \throws "nexstore:nex:InvalidData" when the element does not lie within the record
  LeafExtraction(ObjectManager& manager, const SignalState& leaf);

  std::size_t recordBytes() const { return recordBytes_; }
  /// Bytes of one element as delivered.
  std::size_t elementBytes() const;
  /// \param records  `count` whole records
  /// \param out      room for `count` elements
  void extract(const char* records, std::size_t count, char* out) const;

 private:
  std::size_t recordBytes_;
  std::size_t offset_;
  std::size_t storedBytes_;
  std::optional<fxpDataTypeProp> fixedPoint_;
  NumberKind member_ = NumberKind::none;  ///< how members shorter than int32 are stored
};

}  // namespace vela
