#include "objects/leafextraction.h"

#include <cstdint>
#include <cstring>
#include <string>

#include "kodiag/message.h"
#include "objects/classdef.h"
#include "objects/sampletypes.h"

namespace vela {
namespace {

/// `none` for other types than enumerations and for members of 4 bytes, which need no widening.
NumberKind memberKind(ObjectManager& manager, const SignalState& leaf) {
  if (leaf.elementBytes != sizeof(std::int8_t) && leaf.elementBytes != sizeof(std::int16_t))
    return NumberKind::none;
  const auto enumeration = enumerationOf(manager, leaf.dataType);
  if (!enumeration) return NumberKind::none;
  const NumberKind stored = numberKindOf(enumeration->getStorageType());
  if (bytesOf(stored) == static_cast<std::size_t>(leaf.elementBytes)) return stored;
  return leaf.elementBytes == sizeof(std::int8_t) ? NumberKind::int8 : NumberKind::int16;
}

}  // namespace

LeafExtraction::LeafExtraction(ObjectManager& manager, const SignalState& leaf)
    : fixedPoint_(fixedPointTypeOf(manager, leaf.dataType)),
      member_(memberKind(manager, leaf)) {
  const bool withinRecord = leaf.recordBytes > 0 && leaf.elementBytes >= 0 &&
                            leaf.elementOffset >= 0 &&
                            leaf.elementOffset <= leaf.recordBytes - leaf.elementBytes;
  const bool fitsType = !fixedPoint_ || fixedPoint_->containerBytes ==
                                            static_cast<std::size_t>(leaf.elementBytes);
  if (!withinRecord || !fitsType) {
    kodiag::raise(
        {"nexstore:nex", "InvalidData"},
        {{"Operation", "Taking a leaf's samples out of records"},
         {"Reason", "an element of " + std::to_string(leaf.elementBytes) + " bytes at " +
                        std::to_string(leaf.elementOffset) +
                        " does not lie within a record of " + std::to_string(leaf.recordBytes) +
                        " bytes" + (fitsType ? "" : ", or is not of its fixed-point type")}});
  }
  recordBytes_ = static_cast<std::size_t>(leaf.recordBytes);
  offset_ = static_cast<std::size_t>(leaf.elementOffset);
  storedBytes_ = static_cast<std::size_t>(leaf.elementBytes);
}

std::size_t LeafExtraction::elementBytes() const {
  if (fixedPoint_) return sizeof(double);
  return member_ == NumberKind::none ? storedBytes_ : sizeof(std::int32_t);
}

void LeafExtraction::extract(const char* records, std::size_t count, char* out) const {
  const char* element = records + offset_;
  for (std::size_t i = 0; i < count; ++i, element += recordBytes_, out += elementBytes()) {
    if (fixedPoint_) {
      double value = 0;
      fixedpoint::toReal(*fixedPoint_, element, 1, &value);
      std::memcpy(out, &value, sizeof value);
    } else if (member_ != NumberKind::none) {
      convertExactly(member_, element, 1, NumberKind::int32, out);
    } else {
      std::memcpy(out, element, storedBytes_);
    }
  }
}

}  // namespace vela
