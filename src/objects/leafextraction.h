// Takes the elements of one leaf out of the records of its composite signal.
#pragma once

#include <cstddef>
#include <optional>

#include "fixedpoint/fixedpoint.h"
#include "objects/signalstate.h"

namespace vela {

/// Where a leaf's element lies in a record, and what it becomes.
class LeafExtraction {
 public:
  /// \param fixedPoint  type of the element, which then becomes a double
  /// \throws "nexstore:nex:InvalidData" when the element does not lie within the record
  LeafExtraction(const SignalState& leaf, const std::optional<fxpDataTypeProp>& fixedPoint);

  std::size_t recordBytes() const { return recordBytes_; }
  /// Bytes of one element as delivered.
  std::size_t elementBytes() const { return fixedPoint_ ? sizeof(double) : storedBytes_; }
  /// \param records  `count` whole records
  /// \param out      room for `count` elements
  void extract(const char* records, std::size_t count, char* out) const;

 private:
  std::size_t recordBytes_;
  std::size_t offset_;
  std::size_t storedBytes_;
  std::optional<fxpDataTypeProp> fixedPoint_;
};

}  // namespace vela
