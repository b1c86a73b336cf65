// The samples of signals.
#include <algorithm>
#include <cmath>
#include <limits>
#include <string>

#include "datarangeiterator.h"
#include "objects/strings.h"
#include "scripting/errors.h"
#include "scripting/families.h"
#include "scripting/method.h"
#include "scripting/samples.h"
#include "scripting/streaming.h"

namespace vela::scripting {
namespace {

using host::HostArray;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

[[noreturn]] void refuse(const char* key, const char* operation, const std::string& reason) {
  throwScriptingError({"nexstore:nex", key}, {{"Operation", operation}, {"Reason", reason}});
}

HostArray structureOf(Samples samples) {
  return HostArray::structure(
      {{"Time", std::move(samples.times)}, {"Data", std::move(samples.values)}});
}

void appendSignalData(Repository repository, SignalByID signal, Any<"times"> times,
                      Any<"data"> data) {
  const std::string operation = "appendSignalData";
  const HostArray givenTimes = timesIn(times, operation);
  const GivenValues values(data, operation);
  repository.manager.inTransaction(
      [&] { appendSamples(streamsOf(signal.signal), givenTimes, values, operation); });
}

Any<"values"> getSignalDataValues(Reading, SignalByID signal,
                                  std::optional<Flag<"withTimes">> withTimes,
                                  std::optional<Real<"startTime">> startTime,
                                  std::optional<Real<"endTime">> endTime,
                                  std::optional<Any<"option">>) {
  const std::string operation = "getSignalDataValues";
  const double start = startTime ? *startTime : -kInfinity;
  const double end = endTime ? *endTime : kInfinity;
  if (std::isnan(start) || std::isnan(end)) {
    refuse("InvalidData", operation.c_str(), "the range needs numbers as its ends");
  }
  const Streams streams = streamsOf(signal.signal);
  if (withTimes && *withTimes)
    return {structureOf(readSamples(streams, start, end, operation))};
  return {readValues(streams, start, end, operation)};
}

void setSignalDataValues(Repository repository, SignalByID signal, Any<"values"> values) {
  const std::string operation = "setSignalDataValues";
  const GivenValues given(values, operation);
  repository.manager.inTransaction(
      [&] { replaceValues(streamsOf(signal.signal), given, operation); });
}

Any<"data"> getHierarchicalSignalData(Reading, SignalByID signal) {
  return {structureOf(readSamples(streamsOf(signal.signal), -kInfinity, kInfinity,
                                  "getHierarchicalSignalData"))};
}

/// Whether the signal's element lies within a record.
bool hasPlaceInRecord(const Signal& signal) {
  const ObjectRef& object = signal.getObjectReference();
  const long long element = object.getPropertyInt32(strings::ObservedElemSize);
  const long long record = object.getPropertyInt32(strings::CompositeDataSize);
  const long long offset = object.getPropertyInt32(strings::CompositeSigByteOffset);
  return element > 0 && offset >= 0 && offset + element <= record;
}

Any<"values"> getLeafDataFromStructuredData(Reading, SignalByID signal, Any<"records"> records,
                                            Real<"byteCount"> byteCount) {
  const char* const operation = "getLeafDataFromStructuredData";
  const HostArray& bytes = records;
  if (bytes.arrayClass() != host::ArrayClass::uint8 || bytes.isComplex()) {
    refuse("InvalidData", operation, "records are uint8, not " + bytes.describe());
  }
  if (!(byteCount >= 0)) refuse("InvalidData", operation, "the number of bytes is negative");
  if (!hasPlaceInRecord(*signal)) {
    refuse("InvalidDimensions", operation,
           "signal " + std::to_string(signal->getID()) + " has no place in a record");
  }
  constexpr std::size_t kMost = std::numeric_limits<unsigned>::max();
  std::size_t count = std::min(bytes.size(), kMost);
  // Compared this way round, since the number may be beyond any integer.
  if (byteCount < static_cast<double>(count)) count = static_cast<std::size_t>(byteCount);
  std::vector<char> elements;
  signal->deinterleaveStructuredData(reinterpret_cast<const char*>(bytes.bytes().data()),
                                     static_cast<unsigned>(count), elements);
  return {arrayOfStored(*signal, std::move(elements), operation)};
}

Int32<"count"> getNumberOfChunks(Reading, SignalByID signal) {
  const Signal::DataRangeIterator chunks(*signal, false, false);
  return {static_cast<std::int32_t>(chunks.getNumChunks())};
}

void rollback(Repository repository, SignalByID signal, Real<"time"> time) {
  repository.manager.inTransaction([&] { dropSamplesFrom(streamsOf(signal.signal), time); });
}

void removeSignal(Repository repository, SignalByID signal) {
  repository.manager.inTransaction([&] {
    requireNoneStreams(repository.manager, signal->getID());
    signal->remove();
  });
}

void mergeSignals(Repository, SignalNamed<"targetID"> target, SignalNamed<"sourceID"> source) {
  Signal::mergeSignals(target.signal, source.signal);
}

struct VelaRepositoryAppendSignalData
    : Method<"appendSignalData",
             "Append samples: times, and values whose first axis is time. Stored samples at or "
             "after an earlier first time are dropped; a new signal takes on the type of the "
             "values.",
             &appendSignalData, "nexstore:nex:InvalidData", "nexstore:nex:InvalidDimensions",
             "nexstore:nex:IntegerExpected"> {};
struct VelaRepositoryGetSignalDataValues
    : Method<"getSignalDataValues",
             "The values of the samples from startTime to endTime, both included; with true, a "
             "structure \"Time\", \"Data\". The option has no effect.",
             &getSignalDataValues, "nexstore:nex:InvalidData"> {};
struct VelaRepositorySetSignalDataValues
    : Method<"setSignalDataValues",
             "Replace the values of all samples and keep their times; one value for each time.",
             &setSignalDataValues, "nexstore:nex:InvalidData", "nexstore:nex:InvalidDimensions",
             "nexstore:nex:IntegerExpected"> {};
struct VelaRepositoryGetHierarchicalSignalData
    : Method<"getHierarchicalSignalData",
             "All samples as a structure \"Time\", \"Data\", of a matrix or complex signal "
             "those of its parts as one array whose first axis is time.",
             &getHierarchicalSignalData, "nexstore:nex:InvalidData"> {};
struct VelaRepositoryGetLeafDataFromStructuredData
    : Method<"getLeafDataFromStructuredData",
             "The elements of a leaf signal, taken out of the first bytes of records (uint8).",
             &getLeafDataFromStructuredData, "nexstore:nex:InvalidData",
             "nexstore:nex:InvalidDimensions"> {};
struct VelaRepositoryGetNumberOfChunks
    : Method<"getNumberOfChunks", "Number of chunks that a signal's samples are kept in.",
             &getNumberOfChunks> {};
struct VelaRepositoryRollback : Method<"rollback", "Drop the samples at and after a time.",
                                       &rollback, "nexstore:nex:InvalidData"> {};
struct VelaRepositoryRemove
    : Method<"remove",
             "Remove a signal and everything below it; none when one of them is being written.",
             &removeSignal, "nexstore:nex:DeleteStreamingSignal"> {};
struct VelaRepositoryMergeSignals
    : Method<"mergeSignals",
             "Move the samples of the second signal and of everything below it into the first, "
             "in time order, and remove the second; both must have one shape and type.",
             &mergeSignals, "nexstore:nex:InvalidData", "nexstore:nex:DeleteStreamingSignal"> {
};

}  // namespace

void addSignalDataMethods(Methods& methods) {
  methods.add<VelaRepositoryAppendSignalData, VelaRepositoryGetSignalDataValues,
              VelaRepositorySetSignalDataValues, VelaRepositoryGetHierarchicalSignalData,
              VelaRepositoryGetLeafDataFromStructuredData, VelaRepositoryGetNumberOfChunks,
              VelaRepositoryRollback, VelaRepositoryRemove, VelaRepositoryMergeSignals>();
}

}  // namespace vela::scripting
