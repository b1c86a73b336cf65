#include "objects/leafextraction.h"

#include <cstring>
#include <string>

#include "kodiag/message.h"

namespace vela {

LeafExtraction::LeafExtraction(const SignalState& leaf,
                               const std::optional<fxpDataTypeProp>& fixedPoint)
    : fixedPoint_(fixedPoint) {
  const bool withinRecord = leaf.recordBytes > 0 && leaf.elementBytes >= 0 &&
                            leaf.elementOffset >= 0 &&
                            leaf.elementOffset <= leaf.recordBytes - leaf.elementBytes;
  const bool fitsType =
      !fixedPoint || fixedPoint->containerBytes == static_cast<std::size_t>(leaf.elementBytes);
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

void LeafExtraction::extract(const char* records, std::size_t count, char* out) const {
  const char* element = records + offset_;
  for (std::size_t i = 0; i < count; ++i, element += recordBytes_, out += elementBytes()) {
    if (fixedPoint_) {
      double value = 0;
      fixedpoint::toReal(*fixedPoint_, element, 1, &value);
      std::memcpy(out, &value, sizeof value);
    } else {
      std::memcpy(out, element, storedBytes_);
    }
  }
}

}  // namespace vela
