#include "objects/signalstate.h"

#include "kodiag/message.h"
#include "objectmanager/propertywatch.h"
#include "objects/raising.h"
#include "objects/selections.h"
#include "objects/strings.h"

namespace vela {
namespace {

using kodd::PropertyValueMatchRelation;

const bool isWatching = [] {
  watchProperties(
      strings::Signal,
      {&strings::DataTypeID, &strings::ObservedElemSize, &strings::CompositeDataSize,
       &strings::CompositeSigByteOffset, &strings::IdOfSignalWhoHasMyData},
      [](ObjectManager& manager, int signal) {
        manager.prepared<SignalStates>().forgetMinMax(signal);
      });
  return true;
}();

}  // namespace

SignalStates::SignalStates(ObjectManager& manager)
    : manager_(manager),
      class_(manager.getClass(strings::Signal)),
      byHandle_(manager.repository()),
      byID_(manager.repository()),
      bookkeeping_(class_, manager.repository()),
      minMaxStateWriter_(class_, manager.repository()),
      minMaxStateReader_(manager.repository()),
      minMaxWriter_(class_, manager.repository()),
      dataTypeWriter_(class_, manager.repository()),
      stepper_(manager.repository()),
      runStart_(manager.repository()),
      stepbackWriter_(manager.getClass(strings::DataSet), manager.repository()) {
  const auto property = [&](const std::string& name) {
    return manager.getPropertyRef(strings::Signal, name);
  };

  byHandle_.addObjectConstraint(class_, &handle_);
  byID_.addIDConstraint(class_, &id_);
  for (kodd::ObjectQuery* query : {&byHandle_, &byID_}) {
    query->addResultProperty(property(strings::SimTimeOfNewestPoint), &row_.newestTime);
    query->addResultProperty(property(strings::LastChunkIndex), &row_.lastChunk);
    query->addResultProperty(property(strings::NumBytesInLastChunk), &row_.lastChunkBytes);
    query->addResultProperty(property(strings::LargestChunkSize), &row_.largestChunkBytes);
    query->addResultProperty(property(strings::MinMaxDirectReadOkay), &row_.minMaxState);
    query->addResultProperty(property(strings::HasDuplicateTimes), &row_.hasDuplicateTimes);
    query->addResultProperty(property(strings::SimStepperEnabled), &row_.stepperEnabled);
    query->addResultProperty(property(strings::FK_Parent), &row_.parent);
    query->addResultProperty(property(strings::FK_SetID), &row_.run);
    query->addResultProperty(property(strings::DataTypeID), &row_.dataType);
    query->addResultProperty(property(strings::SourceType), &row_.sourceType);
    query->addResultProperty(property(strings::IdOfSignalWhoHasMyData), &row_.dataOwner);
    query->addResultProperty(property(strings::ObservedElemSize), &row_.elementBytes);
    query->addResultProperty(property(strings::CompositeDataSize), &row_.recordBytes);
    query->addResultProperty(property(strings::CompositeSigByteOffset), &row_.elementOffset);
    query->addResultProperty(property(strings::MinValue), &row_.minValue);
    query->addResultProperty(property(strings::MaxValue), &row_.maxValue);
  }

  bookkeeping_.setPropertyValueSource(property(strings::SimTimeOfNewestPoint),
                                      &row_.newestTime);
  bookkeeping_.setPropertyValueSource(property(strings::LastChunkIndex), &row_.lastChunk);
  bookkeeping_.setPropertyValueSource(property(strings::NumBytesInLastChunk),
                                      &row_.lastChunkBytes);
  bookkeeping_.setPropertyValueSource(property(strings::LargestChunkSize),
                                      &row_.largestChunkBytes);
  bookkeeping_.setPropertyValueSource(property(strings::MinMaxDirectReadOkay),
                                      &row_.minMaxState);
  bookkeeping_.setPropertyValueSource(property(strings::HasDuplicateTimes),
                                      &row_.hasDuplicateTimes);

  minMaxStateWriter_.setPropertyValueSource(property(strings::MinMaxDirectReadOkay),
                                            &minMaxState_);
  minMaxStateReader_.addIDConstraint(class_, &id_);
  minMaxStateReader_.addResultProperty(property(strings::MinMaxDirectReadOkay), &minMaxState_);
  minMaxWriter_.setPropertyValueSource(property(strings::MinMaxDirectReadOkay), &minMaxState_);
  minMaxWriter_.setPropertyValueSource(property(strings::MinValue), &row_.minValue);
  minMaxWriter_.setPropertyValueSource(property(strings::MaxValue), &row_.maxValue);
  dataTypeWriter_.setPropertyIDSource(property(strings::DataTypeID), &dataType_);

  const auto runProperty = [&](const std::string& name) {
    return manager.getPropertyRef(strings::DataSet, name);
  };
  stepper_.addIDConstraint(manager.getClass(strings::DataSet), &run_);
  stepper_.addResultProperty(runProperty(strings::StepperInterval), &timing_.stepperInterval);
  stepper_.addResultProperty(runProperty(strings::StepperNumSteps), &timing_.stepperNumSteps);
  runStart_.addConstraint(manager.getPropertyRef(strings::OutputMetaData, strings::DataSet),
                          PropertyValueMatchRelation::Equal, &run_);
  runStart_.addResultProperty(
      manager.getPropertyRef(strings::OutputMetaData, strings::StartTime), &timing_.startTime);
  stepbackWriter_.setPropertyValueSource(
      runProperty(strings::NumRemainingStepbacksToModelStartBeforeCompleteFlush),
      &remainingStepbacks_);
}

SignalState SignalStates::read(const kodd::ObjectRef& signal) {
  handle_ = signal;
  return readRow(byHandle_, signal.id());
}

SignalState SignalStates::read(int signal) {
  id_ = signal;
  return readRow(byID_, signal);
}

SignalState SignalStates::readRow(kodd::ObjectQuery& query, int id) {
  const bool found = raising([&](auto& diag) { return query.executeForOne(diag); });
  if (!found) {
    kodiag::raise({"KODD:kodd", "InvalidObject"},
                  {{"Operand", "Signal " + std::to_string(id)}, {"Reason", "it was removed"}});
  }
  return row_;
}

void SignalStates::write(int signal, const SignalState& state) {
  row_ = state;
  raising([&](auto& diag) { return bookkeeping_.modifyObjectID(signal, diag); });
}

void SignalStates::noteChangedSamples(int signal, SignalState& state) {
  if (state.parent != 0) {
    id_ = state.parent;
    const bool found =
        raising([&](auto& diag) { return minMaxStateReader_.executeForOne(diag); });
    if (found && minMaxState_ != kMinMaxChildrenChanged) {
      writeMinMaxState(state.parent, kMinMaxChildrenChanged);
    }
  }
  // Whoever keeps a minimum of samples that are not its own sees to it that their owner is not
  // in this state; whoever puts the owner into it clears what these keep.
  if (state.minMaxState != kMinMaxStale) {
    markStale(linkedTo(strings::IdOfSignalWhoHasMyData, signal));
    state.minMaxState = kMinMaxStale;
  }
}

void SignalStates::writeMinMaxState(int signal, MinMaxState state) {
  minMaxState_ = state;
  raising([&](auto& diag) { return minMaxStateWriter_.modifyObjectID(signal, diag); });
}

void SignalStates::writeMinMax(int signal, double min, double max) {
  minMaxState_ = kMinMaxCurrent;
  row_.minValue = min;
  row_.maxValue = max;
  raising([&](auto& diag) { return minMaxWriter_.modifyObjectID(signal, diag); });
}

void SignalStates::forgetMinMax(int signal) {
  // Others may have stored bounds of the same samples, and rely on their owner not being stale.
  if (read(signal).minMaxState == kMinMaxCurrent)
    writeMinMaxState(signal, kMinMaxSharersCurrent);
}

void SignalStates::markRelativesStale(int signal) {
  const kodd::Selection children = linkedTo(strings::FK_Parent, signal);
  // First, since their owners are told from others by not being stale yet.
  markStale(referring(manager_, strings::Signal, strings::IdOfSignalWhoHasMyData, children));
  markStale(children);
  markStale(linkedTo(strings::IdOfSignalWhoHasMyData, signal));
}

/// The signals with that link that are not stale.
kodd::Selection SignalStates::linkedTo(const std::string& property, int signal) const {
  return where(where(kodd::Selection(class_), property, signal), strings::MinMaxDirectReadOkay,
               int{kMinMaxStale}, PropertyValueMatchRelation::NotEqual);
}

void SignalStates::markStale(const kodd::Selection& signals) {
  minMaxState_ = kMinMaxStale;
  raising([&](auto& diag) { return minMaxStateWriter_.modifySelected(signals, diag); });
}

void SignalStates::writeDataType(int signal, int dataType) {
  dataType_ = dataType;
  raising([&](auto& diag) { return dataTypeWriter_.modifyObjectID(signal, diag); });
}

RunTiming SignalStates::timingOf(int run) {
  timing_ = {};
  run_ = run;
  if (run != 0) {
    raising([&](auto& diag) { return stepper_.executeForOne(diag); });
    raising([&](auto& diag) { return runStart_.executeForOne(diag); });
  }
  return timing_;
}

void SignalStates::allowStepBackToStart(int run) {
  raising([&](auto& diag) { return stepbackWriter_.modifyObjectID(run, diag); });
}

}  // namespace vela
