#include "comparison/series.h"

#include <algorithm>

#include "comparison/number.h"
#include "kodiag/message.h"

namespace comparison {
namespace {

class MemoryReader : public BlockReader {
 public:
  MemoryReader(std::span<const double> times, std::span<const char> values,
               std::size_t elementBytes, std::size_t blockSamples)
      : times_(times),
        values_(values),
        elementBytes_(elementBytes),
        blockSamples_(blockSamples) {}

  bool next(Block& block) override {
    if (times_.empty() && values_.empty()) return false;
    const std::size_t samples = std::min(blockSamples_, times_.size());
    // Values left over travel with the last block, for the reader to find them out.
    const std::size_t bytes = samples == times_.size()
                                  ? values_.size()
                                  : std::min(samples * elementBytes_, values_.size());
    block = {times_.first(samples), values_.first(bytes)};
    times_ = times_.subspan(samples);
    values_ = values_.subspan(bytes);
    return true;
  }

 private:
  std::span<const double> times_;
  std::span<const char> values_;
  std::size_t elementBytes_;
  std::size_t blockSamples_;
};

}  // namespace

std::size_t bytesOf(ScalarType type) {
  switch (type) {
    case ScalarType::boolean:
    case ScalarType::int8:
    case ScalarType::uint8:
      return 1;
    case ScalarType::int16:
    case ScalarType::uint16:
      return 2;
    case ScalarType::int32:
    case ScalarType::uint32:
    case ScalarType::single:
      return 4;
    case ScalarType::int64:
    case ScalarType::uint64:
    case ScalarType::real:
      break;
  }
  return 8;
}

double precisionOf(ScalarType type, double value) {
  constexpr double kDoublesPerSingle = 0x1p29;
  constexpr double kSmallestSingle = 0x1p-149;
  if (type == ScalarType::real) return ulp(value);
  if (type == ScalarType::single)
    return std::max(ulp(value) * kDoublesPerSingle, kSmallestSingle);
  return 0;
}

Interpolation interpolationFromText(std::string_view text) {
  if (text == "zoh") return Interpolation::zeroOrderHold;
  if (text == "linear") return Interpolation::linear;
  kodiag::raise({"nexstore:nex", "InvalidSetting"}, {{"Setting", "interpolation method"},
                                                     {"Value", std::string(text)},
                                                     {"Allowed", "\"zoh\" or \"linear\""}});
}

Interpolation Series::effectiveInterpolation() const {
  return type == ScalarType::boolean || isEnumeration ? Interpolation::zeroOrderHold
                                                      : interpolation;
}

Series seriesInMemory(ScalarType type, std::span<const double> times,
                      std::span<const char> values, std::size_t blockSamples) {
  Series series;
  series.type = type;
  series.open = [=] {
    return std::make_unique<MemoryReader>(times, values, bytesOf(type), blockSamples);
  };
  return series;
}

}  // namespace comparison
