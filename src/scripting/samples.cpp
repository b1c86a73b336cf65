#include "scripting/samples.h"

#include <algorithm>
#include <complex>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <optional>
#include <utility>

#include "objects/set.h"
#include "objects/strings.h"
#include "scripting/conversion.h"
#include "scripting/errors.h"
#include "scripting/sampleclass.h"
#include "text/numbers.h"

namespace vela::scripting {
namespace {

using host::ArrayClass;
using host::Complexity;
using host::Dimensions;
using host::HostArray;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

[[noreturn]] void refuse(const char* key, const std::string& operation,
                         const std::string& reason) {
  throwScriptingError({"nexstore:nex", key}, {{"Operation", operation}, {"Reason", reason}});
}

std::size_t productOf(const std::vector<std::size_t>& dims) {
  return std::accumulate(dims.begin(), dims.end(), std::size_t{1}, std::multiplies<>());
}

std::string shapeText(const std::vector<std::size_t>& dims) {
  std::string text;
  for (const std::size_t dim : dims) text += (text.empty() ? "" : ", ") + std::to_string(dim);
  return "(" + text + ")";
}

/// Dimensions of 1 alone make a scalar.
std::vector<std::size_t> withoutOnes(const std::vector<std::size_t>& dims) {
  return productOf(dims) == 1 ? std::vector<std::size_t>() : dims;
}

/// Room for samples, not cleared: whoever makes it fills it.
class Memory {
 public:
  explicit Memory(std::size_t bytes)
      : words_(std::make_shared_for_overwrite<double[]>((bytes + 7) / 8)), bytes_(bytes) {}

  char* data() const { return reinterpret_cast<char*>(words_.get()); }
  std::size_t bytes() const { return bytes_; }
  HostArray array(ArrayClass cls, Dimensions dimensions, Complexity complexity) && {
    const auto* const first = reinterpret_cast<const std::byte*>(words_.get());
    return HostArray::sharing(cls, std::move(dimensions),
                              std::shared_ptr<const std::byte>(std::move(words_), first),
                              bytes_, complexity);
  }
  HostArray list(ArrayClass cls) && {
    const std::size_t count = bytes_ / host::elementBytes(cls);
    return std::move(*this).array(cls, {count, 1}, Complexity::real).withRank(1);
  }

 private:
  std::shared_ptr<double[]> words_;
  std::size_t bytes_;
};

/// Whatever is not 0 is true, also where it was not us who stored it.
void makeLogical(char* bytes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) bytes[i] = static_cast<char>(bytes[i] != 0);
}

// --- Writing

/// `count` elements from `first` on, without a copy.
HostArray sliceOf(const HostArray& numbers, std::size_t first, std::size_t count) {
  const std::size_t elementBytes = host::elementBytes(numbers.arrayClass());
  const auto held = std::make_shared<const HostArray>(numbers);
  return HostArray::sharing(numbers.arrayClass(), {count, 1},
                            {held, held->bytes().data() + first * elementBytes},
                            count * elementBytes)
      .withRank(1);
}

template <class T>
HostArray partsOf(std::span<const std::complex<T>> values, bool isImaginary) {
  std::vector<T> parts;
  parts.reserve(values.size());
  for (const std::complex<T>& value : values) {
    parts.push_back(isImaginary ? value.imag() : value.real());
  }
  return HostArray::list(std::move(parts));
}

void requireShape(const Streams& streams, const GivenValues& values,
                  const std::string& operation) {
  const std::vector<std::size_t> expected = withoutOnes(streams.dims);
  const std::vector<std::size_t> given = withoutOnes(values.dims());
  // Without samples there is no shape to be wrong.
  if (given != expected && values.samples() > 0) {
    refuse("InvalidDimensions", operation,
           "samples of the signal have the shape " + shapeText(expected) + ", those given " +
               shapeText(given));
  }
  if (values.isComplex() && !streams.isComplex) {
    refuse("InvalidData", operation, "the signal takes no complex samples");
  }
}

HostArray streamIn(const GivenValues& values, const Streams& streams, std::size_t index) {
  return streams.isComplex ? values.part(index / 2, index % 2 == 1) : values.element(index);
}

void requireMembers(const host::EnumerationType& type, const HostArray& samples,
                    const std::string& operation) {
  std::vector<std::int32_t> members;
  for (const auto& member : type.members) members.push_back(member.second);
  std::ranges::sort(members);
  for (const std::int32_t sample : samples.values<std::int32_t>()) {
    if (!std::ranges::binary_search(members, sample)) {
      refuse("InvalidData", operation,
             std::to_string(sample) + " is no value of the enumeration " + type.className);
    }
  }
}

/// The numbers that a signal of that class stores for those given.
HostArray fitted(const HostArray& numbers, const HostArray& given, const SampleClass& cls,
                 const std::string& operation) {
  const bool sameEnumeration =
      given.isEnumeration() && cls.enumeration && given.enumerationType() == *cls.enumeration;
  if (given.isEnumeration() && !sameEnumeration) {
    refuse("InvalidData", operation,
           "members of the enumeration " + given.enumerationType().className +
               " are no samples of " + cls.describe());
  }
  const HostArray stored = converted(numbers, cls.numbers, operation);
  if (cls.enumeration && !sameEnumeration) requireMembers(*cls.enumeration, stored, operation);
  return stored;
}

/// Makes samples of the given kind those of a signal without a type.
void adoptType(Signal& signal, const GivenValues& values, const std::string& operation) {
  if (signal.getObjectReference().getPropertyInt32(strings::LastChunkIndex) != 0) {
    refuse("InvalidData", operation,
           "signal " + std::to_string(signal.getID()) + " keeps records, not samples");
  }
  signal.setDataType(
      *dataTypeFor(signal.getObjectReference().getObjectManager(), values.array()));
  const boost::shared_ptr<Set> run = signal.getRun();
  if (run && values.array().isEnumeration()) run->setRunHasEnumSignals(true);
}

/// The numbers as the signal stores them.
HostArray storedFor(Signal& signal, SampleClasses& classes, const HostArray& numbers,
                    const GivenValues& values, const std::string& operation) {
  const SampleClass& cls = classes.of(signal);
  if (cls.isKnown) return fitted(numbers, values.array(), cls, operation);
  if (values.samples() > 0) adoptType(signal, values, operation);
  return numbers;
}

void add(Signal& signal, std::span<const double> times, const HostArray& stored,
         const std::vector<unsigned>& epochs, const std::string& operation) {
  if (times.size() > std::numeric_limits<unsigned>::max()) {
    refuse("InvalidDimensions", operation,
           std::to_string(times.size()) + " samples are too many for one call");
  }
  signal.addData(stored.bytes().data(), times.data(), builtInTypeOf(stored.arrayClass()),
                 nullptr, static_cast<unsigned>(times.size()), 0,
                 epochs.empty() ? nullptr : epochs.data());
}

// --- Reading

struct StoredSamples {
  Memory times{0};
  Memory values{0};
};

StoredSamples readStored(const Signal& signal, double start, double end, bool wantTimes) {
  StoredSamples stored;
  signal.readRange(start, end, [&](const SampleExtent& extent) {
    stored.times = Memory(wantTimes ? extent.samples * sizeof(double) : 0);
    stored.values = Memory(extent.valueBytes);
    return SampleTarget{wantTimes ? reinterpret_cast<double*>(stored.times.data()) : nullptr,
                        stored.values.data(), nullptr};
  });
  return stored;
}

[[noreturn]] void refuseBytes(const Signal& signal, std::size_t bytes, const SampleClass& cls,
                              const std::string& operation) {
  refuse("InvalidData", operation,
         std::to_string(bytes) + " stored bytes of signal " + std::to_string(signal.getID()) +
             " are no samples of " + cls.describe());
}

/// A list of the signal's class.
HostArray listOf(const Signal& signal, Memory values, const SampleClass& cls,
                 const std::string& operation) {
  if (values.bytes() % host::elementBytes(cls.numbers) != 0) {
    refuseBytes(signal, values.bytes(), cls, operation);
  }
  // A signal without samples has no type to show; an empty list is one of doubles.
  if (!cls.isKnown && values.bytes() == 0) return HostArray::list(std::vector<double>());
  if (cls.numbers == ArrayClass::logical) makeLogical(values.data(), values.bytes());
  return cls.arrayOf(std::move(values).list(cls.numbers));
}

/// Reads the samples of several signals that belong together into one array.
class Assembly {
 public:
  Assembly(const Streams& streams, double start, double end, const std::string& operation)
      : streams_(streams), start_(start), end_(end), operation_(operation) {}

  Samples read() {
    const Signal& first = *streams_.leaves.front();
    type_ = first.getObjectReference().getPropertyInt32(strings::DataTypeID);
    cls_ = classes_.of(first);
    HostArray values = streams_.isComplex ? complexValues() : realValues();
    return {std::move(times_).list(ArrayClass::real64), std::move(values)};
  }

 private:
  /// Every signal's samples lie in one piece, one signal behind the other.
  HostArray realValues() {
    const std::size_t elementBytes = host::elementBytes(cls_.numbers);
    Memory all(0);
    for (std::size_t k = 0; k < streams_.leaves.size(); ++k) {
      const StoredSamples stored = readLeaf(k);
      if (k == 0) all = Memory(stored.values.bytes() * streams_.leaves.size());
      std::memcpy(all.data() + k * samples_ * elementBytes, stored.values.data(),
                  stored.values.bytes());
    }
    if (cls_.numbers == ArrayClass::logical) makeLogical(all.data(), all.bytes());
    return cls_.arrayOf(ranked(std::move(all).array(cls_.numbers, shape(), Complexity::real)));
  }

  HostArray complexValues() {
    return cls_.numbers == ArrayClass::real32 ? complexOf<float>() : complexOf<double>();
  }

  template <class T>
  HostArray complexOf() {
    Memory all(0);
    for (std::size_t k = 0; k < streams_.leaves.size(); ++k) {
      StoredSamples stored = readLeaf(k);
      if (k == 0) all = Memory(samples_ * sizeof(T) * streams_.leaves.size());
      T* const parts = reinterpret_cast<T*>(all.data()) + k / 2 * 2 * samples_ + k % 2;
      const HostArray numbers = std::move(stored.values).list(cls_.numbers);
      numbers.visitNumbers([&](const auto& values) {
        for (std::size_t i = 0; i < values.size(); ++i) {
          parts[2 * i] = static_cast<T>(values[i]);
        }
      });
    }
    return ranked(std::move(all).array(host::arrayClassOf<T>(), shape(), Complexity::complex));
  }

  StoredSamples readLeaf(std::size_t index) {
    const Signal& leaf = *streams_.leaves[index];
    if (leaf.getObjectReference().getPropertyInt32(strings::DataTypeID) != type_) {
      refuseLeaf(leaf, "type");
    }
    StoredSamples stored = readStored(leaf, start_, end_, true);
    if (index == 0) {
      times_ = stored.times;
      samples_ = times_.bytes() / sizeof(double);
    } else if (times_.bytes() != stored.times.bytes() ||
               std::memcmp(times_.data(), stored.times.data(), times_.bytes()) != 0) {
      refuseLeaf(leaf, "times");
    }
    if (stored.values.bytes() != samples_ * host::elementBytes(cls_.numbers)) {
      refuseBytes(leaf, stored.values.bytes(), cls_, operation_);
    }
    if (cls_.numbers == ArrayClass::logical) {
      makeLogical(stored.values.data(), stored.values.bytes());
    }
    return stored;
  }

  [[noreturn]] void refuseLeaf(const Signal& leaf, const char* what) {
    refuse("InvalidData", operation_,
           "signals " + std::to_string(streams_.leaves.front()->getID()) + " and " +
               std::to_string(leaf.getID()) + ", parts of one, differ in their " + what);
  }

  Dimensions shape() const {
    Dimensions dimensions = {samples_};
    dimensions.insert(dimensions.end(), streams_.dims.begin(), streams_.dims.end());
    if (dimensions.size() == 1) dimensions.push_back(1);
    return dimensions;
  }
  HostArray ranked(HostArray array) const {
    return std::move(array).withRank(static_cast<unsigned>(streams_.dims.size()) + 1);
  }

  const Streams& streams_;
  double start_;
  double end_;
  const std::string& operation_;
  SampleClasses classes_;
  SampleClass cls_;
  int type_ = 0;
  Memory times_{0};
  std::size_t samples_ = 0;
};

}  // namespace

HostArray timesIn(const HostArray& times, const std::string& operation) {
  if (!times.isNumeric() || times.isComplex()) {
    refuse("InvalidData", operation, "times are real numbers, not " + times.describe());
  }
  if (std::ranges::count_if(times.dimensions(), [](std::size_t n) { return n != 1; }) > 1 &&
      !times.isEmpty()) {
    refuse("InvalidDimensions", operation,
           "times lie along one axis, unlike " + times.describe());
  }
  return converted(times, ArrayClass::real64, operation);
}

GivenValues::GivenValues(const HostArray& values, const std::string& operation)
    : values_(values) {
  requireSamples(values, operation);
  if (values.rank() <= 1) {
    samples_ = values.size();
    return;
  }
  const Dimensions& dimensions = values.dimensions();
  if (dimensions == Dimensions{0, 0}) return;
  samples_ = dimensions.front();
  dims_.assign(dimensions.begin() + 1, dimensions.end());
}

bool GivenValues::isComplex() const {
  return numbersIn(values_).isComplex();
}

GivenValues GivenValues::reshaped(const std::vector<unsigned>& dims) const {
  GivenValues other = *this;
  other.dims_.assign(dims.begin(), dims.end());
  return other;
}

HostArray GivenValues::element(std::size_t index) const {
  const HostArray& numbers = numbersIn(values_);
  if (numbers.size() == samples_) return numbers;
  return sliceOf(numbers, index * samples_, samples_);
}

HostArray GivenValues::part(std::size_t index, bool isImaginary) const {
  const HostArray& numbers = numbersIn(values_);
  if (!isComplex()) {
    return isImaginary ? HostArray::list(std::vector<double>(samples_)) : element(index);
  }
  const auto parts = [&](const auto& values) {
    return partsOf(values.subspan(index * samples_, samples_), isImaginary);
  };
  if (numbers.arrayClass() == ArrayClass::real32) return parts(numbers.complexValues<float>());
  return parts(numbers.complexValues<double>());
}

void requireOneForEachTime(const GivenValues& values, std::size_t times,
                           const std::string& operation) {
  if (values.samples() == times) return;
  refuse("InvalidDimensions", operation,
         std::to_string(times) + " times are given for " + std::to_string(values.samples()) +
             " samples; the first axis of the values is time");
}

void appendSamples(const Streams& streams, const HostArray& times, const GivenValues& values,
                   const std::string& operation) {
  requireOneForEachTime(values, times.size(), operation);
  requireShape(streams, values, operation);
  SampleClasses classes;
  for (std::size_t k = 0; k < streams.leaves.size() && values.samples() > 0; ++k) {
    Signal& leaf = *streams.leaves[k];
    const HostArray stored =
        storedFor(leaf, classes, streamIn(values, streams, k), values, operation);
    add(leaf, times.values<double>(), stored, {}, operation);
  }
}

void requireNotBeforeStored(const Streams& streams, const HostArray& times,
                            const std::string& operation) {
  if (times.isEmpty()) return;
  const double first = times.values<double>().front();
  for (const auto& leaf : streams.leaves) {
    const double newest = leaf->getLatestTimeValue();
    // Without samples the newest time is that of the run's start, which nothing has to follow.
    if (!(first < newest) || leaf->getExtent().samples == 0) continue;
    refuse("InvalidData", operation,
           "time " + text::shortest(first) + " is before " + text::shortest(newest) +
               ", the newest time of signal " + std::to_string(leaf->getID()) +
               "; rewind to drop what is stored from there on");
  }
}

void dropSamplesFrom(const Streams& streams, double time) {
  for (const auto& leaf : streams.leaves) leaf->rollback(time);
}

void replaceValues(const Streams& streams, const GivenValues& values,
                   const std::string& operation) {
  requireShape(streams, values, operation);
  SampleClasses classes;
  for (std::size_t k = 0; k < streams.leaves.size(); ++k) {
    Signal& leaf = *streams.leaves[k];
    std::vector<double> times;
    std::vector<char> former;
    std::vector<unsigned> epochs;
    leaf.readRange(-kInfinity, kInfinity, times, former, &epochs);
    requireOneForEachTime(values, times.size(), operation);
    if (times.empty()) continue;
    const HostArray stored =
        storedFor(leaf, classes, streamIn(values, streams, k), values, operation);
    leaf.removeAllChunks();
    add(leaf, times, stored, epochs, operation);
  }
}

Samples readSamples(const Streams& streams, double start, double end,
                    const std::string& operation) {
  if (!streams.isPlain()) return Assembly(streams, start, end, operation).read();
  const Signal& signal = *streams.leaves.front();
  StoredSamples stored = readStored(signal, start, end, true);
  SampleClasses classes;
  return {std::move(stored.times).list(ArrayClass::real64),
          listOf(signal, std::move(stored.values), classes.of(signal), operation)};
}

HostArray readValues(const Streams& streams, double start, double end,
                     const std::string& operation) {
  if (!streams.isPlain()) return readSamples(streams, start, end, operation).values;
  const Signal& signal = *streams.leaves.front();
  SampleClasses classes;
  return listOf(signal, readStored(signal, start, end, false).values, classes.of(signal),
                operation);
}

HostArray arrayOfStored(const Signal& signal, std::vector<char> bytes,
                        const std::string& operation) {
  SampleClasses classes;
  const SampleClass& cls = classes.of(signal);
  Memory memory(bytes.size());
  std::ranges::copy(bytes, memory.data());
  return listOf(signal, std::move(memory), cls, operation);
}

}  // namespace vela::scripting
