#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <string>

#include "fixedpoint/fixedpoint.h"
#include "kodiag/message.h"
#include "objects/datatypes.h"
#include "objects/elementnumbers.h"
#include "objects/samplereader.h"
#include "objects/sampletypes.h"
#include "objects/samplewriter.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "objects/strings.h"
#include "text/numbers.h"
#include "text/utf8.h"

namespace vela {
namespace {

[[noreturn]] void refuse(const Signal& signal, const std::string& operation,
                         const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", operation + " signal " + std::to_string(signal.getID()) + " \"" +
                                   text::toUtf8(signal.getName()) + "\""},
                 {"Reason", reason}});
}

std::string numberedTime(const SampleBlock& block, std::size_t point) {
  return "time " + std::to_string(point) + " (" + text::shortest(block.time(point)) + ")";
}

// Tells what is wrong with the times of a block that is known to be bad.
[[noreturn]] void refuseTimes(const Signal& signal, const SampleBlock& block) {
  for (std::size_t i = 0; i < block.points; ++i) {
    if (!std::isfinite(block.time(i))) {
      refuse(signal, "Adding samples to", numberedTime(block, i) + " is not a finite number");
    }
    if (i > 0 && block.time(i) < block.time(i - 1)) {
      refuse(signal, "Adding samples to",
             numberedTime(block, i) + " is earlier than the one before it (" +
                 text::shortest(block.time(i - 1)) + "); times are counted from 0");
    }
  }
  refuse(signal, "Adding samples to", "its times cannot be ordered");
}

/// \returns whether two neighbouring times are equal
/// \throws "nexstore:nex:InvalidData" when they are not finite or decrease
bool checkTimes(const Signal& signal, const SampleBlock& block) {
  bool ordered = std::isfinite(block.firstTime()) && std::isfinite(block.lastTime());
  bool duplicates = false;
  double previous = block.firstTime();
  for (std::size_t i = 1; i < block.points; ++i) {
    const double time = block.time(i);
    // Written so that NaN counts as disorder.
    ordered &= time >= previous;
    duplicates |= time == previous;
    previous = time;
  }
  if (!ordered) refuseTimes(signal, block);
  return duplicates;
}

/// The built-in type a signal takes on with its first samples; none when these say nothing or
/// it has a type already.
void adoptDataType(ObjectManager& manager, const kodd::ObjectRef& signal,
                   const SignalState& state, int dataTypeCode) {
  if (state.lastChunk != 0 || builtInElementBytes(dataTypeCode) == 0) return;
  if (typeLabelOf(manager, state.dataType) != strings::Null) return;
  long long type = 0;
  DataTypeUtil::getBuiltInDataTypeHandle(static_cast<builtInDTypeId>(dataTypeCode), manager,
                                         type);
  // IDs of stored objects are 32-bit numbers.
  manager.prepared<SignalStates>().writeDataType(signal.id(), static_cast<int>(type));
}

/// The numbers of a block as the signal's type keeps them; empty when they are such already or
/// the type is not one of numbers.
/// \throws "nexstore:nex:InvalidData" for a number that type cannot hold
std::vector<char> convertedNumbers(const Signal& signal, const SignalState& state,
                                   int dataTypeCode, const SampleBlock& block) {
  const NumberKind given = numberKindOf(dataTypeCode);
  // Without a type of its own the signal takes the numbers as they are; records have none.
  if (given == NumberKind::none || state.recordBytes != 0) return {};
  const std::string type =
      typeLabelOf(signal.getObjectReference().getObjectManager(), state.dataType);
  const NumberKind kept = numberKindOf(type);
  if (kept == NumberKind::none || kept == given) return {};
  std::vector<char> numbers(block.points * bytesOf(kept));
  const auto failed = convertExactly(given, block.values, block.points, kept, numbers.data());
  if (failed) {
    refuse(signal, "Adding samples to",
           "value " + std::to_string(*failed) + " does not fit its type \"" + type +
               "\"; values are counted from 0");
  }
  return numbers;
}

/// Copies every chunk of a signal, and the bookkeeping that goes with them. A composite leaf's
/// samples are copied extracted.
///
/// \returns the layout of the copied values
SignalState copyChunks(ObjectManager& manager, const kodd::ObjectRef& source,
                       SampleWriter& target) {
  SignalState state = manager.prepared<SignalStates>().read(source);
  const bool isLeaf = state.isCompositeLeaf();
  SampleReader reader(manager, source, isLeaf);
  std::vector<double> times;
  std::vector<unsigned> epochs;
  std::vector<char> values;
  for (const ChunkRow& row : manager.prepared<ChunkRows>().all(reader.owner())) {
    const ChunkSlice slice = reader.whole(row, SIZE_MAX);
    times.resize(slice.count);
    reader.readTimes(slice, times.data());
    values.resize(reader.valueBytes(slice));
    reader.readValues(slice, values.data());
    SampleBlock block;
    block.times = reinterpret_cast<const char*>(times.data());
    block.values = values.data();
    block.points = slice.count;
    block.valueBytes = values.size();
    if (reader.hasEpochs(slice)) {
      epochs.resize(slice.count);
      reader.readEpochs(slice, epochs.data());
      block.epochs = reinterpret_cast<const char*>(epochs.data());
    }
    target.addChunkNumbered(row.number, block);
  }
  const SignalState owner = manager.prepared<SignalStates>().read(reader.owner());
  target.takeOver(owner, !isLeaf);
  if (isLeaf) {
    state.elementBytes = static_cast<int>(reader.elementBytes());
    state.recordBytes = 0;
    state.elementOffset = 0;
  }
  return state;
}

/// A run that is stepped one step at a time may step back to its start once its samples have
/// left it.
void noteSteppedFrom(SignalStates& states, const SignalState& state, double firstTime) {
  if (state.stepperEnabled == 0) return;
  const RunTiming run = states.timingOf(state.run);
  if (run.stepperNumSteps == 1 && firstTime > run.startTime) {
    states.allowStepBackToStart(state.run);
  }
}

}  // namespace

void Signal::addData(const void* values, const double* times, int dataTypeCode,
                     const fxpDataTypeProp* fixedPoint, unsigned numPoints,
                     unsigned elementBytes, const unsigned* epochIdx) {
  if (numPoints == 0) return;
  SampleBlock block;
  block.times = reinterpret_cast<const char*>(times);
  block.values = static_cast<const char*>(values);
  block.epochs = reinterpret_cast<const char*>(epochIdx);
  block.points = numPoints;
  const bool duplicates = checkTimes(*this, block);

  if (fixedPoint) {
    converted_.resize(numPoints);
    fixedpoint::toReal(*fixedPoint, values, numPoints, converted_.data());
    block.values = reinterpret_cast<const char*>(converted_.data());
    dataTypeCode = dtypeDouble;
  }
  const std::size_t builtInBytes = builtInElementBytes(dataTypeCode);
  block.valueBytes = block.points * (builtInBytes > 0 ? builtInBytes : elementBytes);
  addBlock(block, duplicates, dataTypeCode);
}

void Signal::addData(unsigned valueBytes, const void* values, unsigned timeBytes,
                     const void* times, double firstTime, double lastTime, unsigned numPoints) {
  if (valueBytes == 0) return;
  SampleBlock block;
  block.times = static_cast<const char*>(times);
  block.values = static_cast<const char*>(values);
  block.points = numPoints;
  block.valueBytes = valueBytes;
  if (timeBytes != block.points * sizeof(double)) {
    refuse(*this, "Adding samples to",
           std::to_string(timeBytes) + " bytes of times do not make " +
               std::to_string(numPoints) + " times");
  }
  bool duplicates = false;
  if (numPoints > 0) {
    duplicates = checkTimes(*this, block);
    if (firstTime != block.firstTime() || lastTime != block.lastTime()) {
      refuse(*this, "Adding samples to", "first and last time are not those of the times");
    }
  }
  addBlock(block, duplicates, dtypeNull);
}

void Signal::addBlock(const SampleBlock& given, bool hasDuplicateTimes, int dataTypeCode) {
  if (given.valueBytes == 0) return;
  manager().inTransaction([&] {
    const kodd::ObjectRef& signal = getObjectReference().getObjRef();
    SampleWriter writer(manager(), signal);
    if (writer.state().isCompositeLeaf()) {
      refuse(*this, "Adding samples to",
             "its samples are kept by signal " + std::to_string(writer.owner()));
    }
    adoptDataType(manager(), signal, writer.state(), dataTypeCode);
    SampleBlock block = given;
    const std::vector<char> numbers =
        convertedNumbers(*this, writer.state(), dataTypeCode, block);
    if (!numbers.empty()) {
      block.values = numbers.data();
      block.valueBytes = numbers.size();
    }
    writer.append(block);
    if (hasDuplicateTimes) writer.noteDuplicateTimes();
    writer.finish();
    if (block.points > 0) {
      noteSteppedFrom(manager().prepared<SignalStates>(), writer.state(), block.firstTime());
    }
  });
}

void Signal::createConstValueData(const double& startTime, const double& endTime,
                                  const double& value) {
  if (!(startTime <= endTime)) {
    refuse(*this, "Making constant",
           "its start " + text::shortest(startTime) + " is not before its end " +
               text::shortest(endTime));
  }
  const double times[] = {startTime, endTime};
  const double values[] = {value, value};
  manager().inTransaction([&] {
    SampleWriter writer(manager(), getObjectReference().getObjRef());
    // Samples of another type could not be told from the new ones.
    if (writer.state().lastChunk != 0 &&
        typeLabelOf(manager(), writer.state().dataType) != strings::Double) {
      removeAllChunks();
    }
    long long type = 0;
    DataTypeUtil::getBuiltInDataTypeHandle(dtypeDouble, manager(), type);
    manager().prepared<SignalStates>().writeDataType(getID(), static_cast<int>(type));
    getObjectReference().setPropertyStdString(strings::InterpSetting, strings::Linear);
    addData(sizeof values, values, sizeof times, times, startTime, endTime, 2);
  });
}

void Signal::rollback(double time) {
  if (std::isnan(time)) refuse(*this, "Rolling back", "the time is not a number");
  manager().inTransaction([&] {
    SampleWriter own(manager(), getObjectReference().getObjRef());
    if (!own.state().isCompositeLeaf()) {
      own.rollBackTo(time);
      own.finish();
      return;
    }
    SampleWriter owner(manager(), own.owner());
    owner.rollBackTo(time);
    owner.finish();
    manager().prepared<SignalStates>().writeMinMaxState(getID(), kMinMaxStale);
  });
}

void Signal::deleteData(const std::vector<double>& times) {
  std::vector<double> sorted;
  std::copy_if(times.begin(), times.end(), std::back_inserter(sorted),
               [](double time) { return !std::isnan(time); });
  std::sort(sorted.begin(), sorted.end());
  manager().inTransaction([&] {
    SampleWriter writer(manager(), getObjectReference().getObjRef());
    if (writer.state().isCompositeLeaf()) {
      refuse(*this, "Deleting samples of",
             "its samples are kept by signal " + std::to_string(writer.owner()));
    }
    writer.dropAt(sorted);
    writer.finish();
  });
}

void Signal::removeAllChunks() {
  manager().inTransaction([&] {
    SampleWriter writer(manager(), getObjectReference().getObjRef());
    if (writer.state().isCompositeLeaf()) return;
    writer.dropAll();
    writer.finish();
  });
}

void Signal::copyChunksTo(const boost::shared_ptr<Signal>& target) {
  const kodd::ObjectRef& source = getObjectReference().getObjRef();
  const kodd::ObjectRef& copy = target->getObjectReference().getObjRef();
  if (source == copy) return;
  target->manager().inTransaction([&] {
    manager().inReadUnit([&] {
      SampleWriter writer(target->manager(), copy);
      writer.dropAll();
      const SignalState layout = copyChunks(manager(), source, writer);
      ObjectRef& object = target->getObjectReference();
      object.setPropertyInt32(strings::ObservedElemSize, layout.elementBytes);
      object.setPropertyInt32(strings::CompositeDataSize, layout.recordBytes);
      object.setPropertyInt32(strings::CompositeSigByteOffset, layout.elementOffset);
      object.setPropertyInt32(strings::IdOfSignalWhoHasMyData, 0);
      writer.finish();
    });
  });
}

void Signal::calculateHasDuplicateTimes(const double* times, unsigned count) {
  const double* end = times + count;
  if (std::adjacent_find(times, end) != end) setHasDuplicateTimes(true);
}

void Signal::setMinimumChunkNumBytes(const int& bytes) {
  ChunkLimits::setMinimumBytes(bytes);
}

int Signal::getMinimumChunkNumBytes() {
  return ChunkLimits::minimumBytes();
}

void Signal::setMaximumChunkNumBytes(std::size_t bytes) {
  ChunkLimits::setMaximumBytes(bytes);
}

}  // namespace vela
