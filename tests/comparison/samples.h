// Series for tests: samples of any scalar type, spelled as numbers.
#pragma once

#include <cstdint>
#include <cstring>
#include <type_traits>
#include <variant>
#include <vector>

#include "comparison/series.h"

namespace comparison::test {

/// One element: any scalar fits one of these exactly.
using Element = std::variant<double, std::int64_t, std::uint64_t>;

/// Samples with what describes them; owns the bytes its series reads.
struct Samples {
  ScalarType type = ScalarType::real;
  bool isEnumeration = false;
  Interpolation interpolation = Interpolation::zeroOrderHold;
  std::string unit;
  std::vector<double> times;
  std::vector<Element> values;
  std::size_t blockSamples = 65536;

  Series series() const;

 private:
  mutable std::vector<char> bytes_;
};

template <class Stored>
Stored as(const Element& element) {
  return std::visit([](auto value) { return static_cast<Stored>(value); }, element);
}

template <class Stored>
void append(std::vector<char>& bytes, Stored value) {
  const auto* first = reinterpret_cast<const char*>(&value);
  bytes.insert(bytes.end(), first, first + sizeof value);
}

inline void append(std::vector<char>& bytes, ScalarType type, const Element& element) {
  switch (type) {
    case ScalarType::boolean:
    case ScalarType::uint8:
      return append(bytes, as<std::uint8_t>(element));
    case ScalarType::int8:
      return append(bytes, as<std::int8_t>(element));
    case ScalarType::int16:
      return append(bytes, as<std::int16_t>(element));
    case ScalarType::uint16:
      return append(bytes, as<std::uint16_t>(element));
    case ScalarType::int32:
      return append(bytes, as<std::int32_t>(element));
    case ScalarType::uint32:
      return append(bytes, as<std::uint32_t>(element));
    case ScalarType::int64:
      return append(bytes, as<std::int64_t>(element));
    case ScalarType::uint64:
      return append(bytes, as<std::uint64_t>(element));
    case ScalarType::single:
      return append(bytes, as<float>(element));
    case ScalarType::real:
      return append(bytes, as<double>(element));
  }
}

inline Series Samples::series() const {
  bytes_.clear();
  for (const Element& value : values) append(bytes_, type, value);
  Series result = seriesInMemory(type, times, bytes_, blockSamples);
  result.isEnumeration = isEnumeration;
  result.interpolation = interpolation;
  result.unit = unit;
  return result;
}

/// A copy of the rows.
struct AllRows {
  std::vector<double> times, difference, tolerance;
  std::vector<bool> passed;
  std::vector<std::size_t> blockSizes;

  auto sink() {
    return [this](const auto& rows) {
      times.insert(times.end(), rows.times.begin(), rows.times.end());
      difference.insert(difference.end(), rows.difference.begin(), rows.difference.end());
      tolerance.insert(tolerance.end(), rows.tolerance.begin(), rows.tolerance.end());
      passed.insert(passed.end(), rows.passed.begin(), rows.passed.end());
      blockSizes.push_back(rows.times.size());
    };
  }
};

}  // namespace comparison::test
