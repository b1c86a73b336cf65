// Samples as scripts give and get them: times, and values whose first axis is time.
#pragma once

#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <string>
#include <vector>

#include "host/arrays.h"
#include "objects/signal.h"
#include "scripting/streams.h"

namespace vela::scripting {

/// Times as a list of doubles, borrowed where they are such.
/// \throws "nexstore:nex:InvalidData" for other things than real numbers;
///         "nexstore:nex:InvalidDimensions" unless they lie along one axis
host::HostArray timesIn(const host::HostArray& times, const std::string& operation);

/// Values that a script gives, sound in themselves. Borrows the array's elements.
class GivenValues {
 public:
  /// \throws "nexstore:nex:InvalidData" for what cannot be samples
  GivenValues(const host::HostArray& values, const std::string& operation);

  const host::HostArray& array() const { return values_; }
  /// Number of samples: the length of the first axis.
  std::size_t samples() const { return samples_; }
  /// Of one sample; empty for scalars, and for the empty array that says nothing about them.
  const std::vector<std::size_t>& dims() const { return dims_; }
  bool isComplex() const;
  /// The same values where a sample has other dimensions of as many elements, which keep their
  /// order, first dimension fastest.
  GivenValues reshaped(const std::vector<unsigned>& dims) const;

  /// The numbers of one element of every sample, first dimension fastest, as a list.
  host::HostArray element(std::size_t index) const;
  /// Its real or imaginary parts; the latter are 0 for real values.
  host::HostArray part(std::size_t index, bool isImaginary) const;

 private:
  host::HostArray values_;
  std::size_t samples_ = 0;
  std::vector<std::size_t> dims_;
};

/// \throws "nexstore:nex:InvalidDimensions" unless there is one sample for each time
void requireOneForEachTime(const GivenValues& values, std::size_t times,
                           const std::string& operation);

/// Appends samples; a signal without a type takes on that of the values. Part of a unit of
/// work.
///
/// \param times  as timesIn() makes them
/// \throws "nexstore:nex:InvalidDimensions" when the samples have another shape than the
///         signal's; "nexstore:nex:InvalidData" for times out of order and values of another
///         kind; as converted()
void appendSamples(const Streams& streams, const host::HostArray& times,
                   const GivenValues& values, const std::string& operation);

/// \param times  as timesIn() makes them
/// \throws "nexstore:nex:InvalidData" when the first of them lies before the newest stored
/// time,
///         so that appending would drop samples
void requireNotBeforeStored(const Streams& streams, const host::HostArray& times,
                            const std::string& operation);

/// Drops the samples at and after a time. Part of a unit of work.
/// \throws "nexstore:nex:InvalidData" for NaN
void dropSamplesFrom(const Streams& streams, double time);

/// Puts the values in place of those that are stored. Part of a unit of work.
/// \throws as appendSamples(); "nexstore:nex:InvalidDimensions" for another number of samples
void replaceValues(const Streams& streams, const GivenValues& values,
                   const std::string& operation);

struct Samples {
  host::HostArray times;
  host::HostArray values;
};

/// The samples with start <= time <= end. Part of a read unit.
///
/// Values have the class of the signal's type, those of a matrix signal shape (n, ...).
/// \throws "nexstore:nex:InvalidData" when the parts of the signal have different times or
///         types, or stored bytes do not fit their type
Samples readSamples(const Streams& streams, double start, double end,
                    const std::string& operation);
/// The same without the times of a plain signal.
host::HostArray readValues(const Streams& streams, double start, double end,
                           const std::string& operation);

/// Stored bytes of one signal's samples as the array a script gets.
/// \throws "nexstore:nex:InvalidData" when they are no whole elements of its type
host::HostArray arrayOfStored(const Signal& signal, std::vector<char> bytes,
                              const std::string& operation);

}  // namespace vela::scripting
