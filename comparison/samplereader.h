// Decodes and checks a series, sample by sample.
#pragma once

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "comparison/number.h"
#include "comparison/series.h"
#include "kodiag/message.h"

namespace comparison {

/// The samples of one pass over a series, as doubles or WideNumbers. Stands at a sample until
/// it is moved; `name` is for messages.
template <class Value>
class SampleReader {
 public:
  SampleReader(const Series& series, std::string name)
      : type_(series.type), name_(std::move(name)), blocks_(series.open()) {
    fill();
  }

  bool atEnd() const { return position_ == block_.times.size(); }
  double time() const { return block_.times[position_]; }
  const Value& value() const { return values_[position_]; }
  /// Whether the sample behind this one is at hand and at a later time.
  bool isAlone() const {
    return position_ + 1 < block_.times.size() && block_.times[position_ + 1] != time();
  }
  void move() {
    if (++position_ == block_.times.size()) fill();
  }

 private:
  void fill() {
    position_ = 0;
    do {
      block_ = {};
      if (!blocks_->next(block_)) {
        block_ = {};
        return;
      }
      check();
    } while (block_.times.empty());
    decode();
  }

  void check() {
    if (block_.values.size() != block_.times.size() * bytesOf(type_))
      refuse("the values behind sample " + std::to_string(samples_) + " do not fit the times");
    for (double time : block_.times) {
      if (!std::isfinite(time)) refuse("time " + std::to_string(samples_) + " is not finite");
      if (samples_ > 0 && time < lastTime_)
        refuse("time " + std::to_string(samples_) + " is before the one in front of it");
      lastTime_ = time;
      ++samples_;
    }
  }

  [[noreturn]] void refuse(const std::string& reason) const {
    kodiag::raise({"nexstore:nex", "InvalidData"},
                  {{"Operation", "compare"}, {"Reason", "in the " + name_ + ", " + reason}});
  }

  void decode() {
    values_.resize(block_.times.size());
    switch (type_) {
      case ScalarType::boolean:
        return decodeAs<bool>();
      case ScalarType::int8:
        return decodeAs<std::int8_t>();
      case ScalarType::uint8:
        return decodeAs<std::uint8_t>();
      case ScalarType::int16:
        return decodeAs<std::int16_t>();
      case ScalarType::uint16:
        return decodeAs<std::uint16_t>();
      case ScalarType::int32:
        return decodeAs<std::int32_t>();
      case ScalarType::uint32:
        return decodeAs<std::uint32_t>();
      case ScalarType::int64:
        return decodeAs<std::int64_t>();
      case ScalarType::uint64:
        return decodeAs<std::uint64_t>();
      case ScalarType::single:
        return decodeAs<float>();
      case ScalarType::real:
        return decodeAs<double>();
    }
  }

  template <class Stored>
  void decodeAs() {
    const char* bytes = block_.values.data();
    for (Value& value : values_) {
      if constexpr (std::is_same_v<Stored, bool>) {
        value = Value(*bytes != 0 ? 1. : 0.);
      } else {
        Stored stored;
        std::memcpy(&stored, bytes, sizeof stored);
        value = convert(stored);
      }
      bytes += sizeof(Stored);
    }
  }

  template <class Stored>
  static Value convert(Stored stored) {
    if constexpr (std::is_same_v<Value, WideNumber> && sizeof(Stored) == 8)
      return Value(stored);
    else
      return Value(static_cast<double>(stored));
  }

  ScalarType type_;
  std::string name_;
  std::unique_ptr<BlockReader> blocks_;
  Block block_;
  std::vector<Value> values_;
  std::size_t position_ = 0;
  std::size_t samples_ = 0;  ///< read so far
  double lastTime_ = 0;
};

}  // namespace comparison
