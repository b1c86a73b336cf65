// The bookkeeping of a signal's samples, read and written as one row.
#pragma once

#include "objectmanager/objectmanager.h"

namespace vela {

/// What the stored minimum and maximum of a signal are worth. // Stored; never renumber.
enum MinMaxState : int {
  kMinMaxStale = 0,
  kMinMaxCurrent = 1,
  kMinMaxChildrenChanged = 2,  ///< samples of a child changed since the flags were refreshed
  kMinMaxSharersCurrent = 3    ///< stale here, but current on signals that share the samples
};

struct SignalState {
  double newestTime = 0;
  int lastChunk = 0;          ///< number of the newest chunk; 0 without chunks
  int lastChunkBytes = 0;     ///< of its values
  int largestChunkBytes = 0;  ///< upper bound
  int minMaxState = kMinMaxStale;
  int hasDuplicateTimes = 0;

  int stepperEnabled = 0;
  int parent = 0;
  int run = 0;
  int dataType = 0;
  int sourceType = 0;
  int dataOwner = 0;  ///< signal whose chunks hold this leaf's records; 0 for its own
  int elementBytes = 0;
  int recordBytes = 0;
  int elementOffset = 0;
  double minValue = 0;
  double maxValue = 0;

  bool isCompositeLeaf() const { return dataOwner != 0; }
};

struct RunTiming {
  double startTime = 0;
  int stepperInterval = 0;
  int stepperNumSteps = 0;
};

/// The statements on that row, and those that keep the minimum and maximum of related signals
/// from being taken for current. Calls come one at a time, from within a unit of work.
class SignalStates : public PreparedSet {
 public:
  explicit SignalStates(ObjectManager& manager);

  /// \throws "KODD:kodd:InvalidObject" when the signal is gone or the handle stale
  SignalState read(const kodd::ObjectRef& signal);
  SignalState read(int signal);
  /// Writes what samples change: the first six members.
  void write(int signal, const SignalState& state);
  /// To be called, before write(), whenever samples change: no stored minimum or maximum that
  /// depends on them counts as current afterwards.
  void noteChangedSamples(int signal, SignalState& state);
  void writeMinMaxState(int signal, MinMaxState state);
  void writeMinMax(int signal, double min, double max);
  /// To be called when the samples of a signal come to mean something else.
  void forgetMinMax(int signal);
  /// Marks what signals sharing this one's samples, or below it, have stored as stale.
  void markRelativesStale(int signal);
  void writeDataType(int signal, int dataType);

  /// All 0 for a run that is not stored.
  RunTiming timingOf(int run);
  void allowStepBackToStart(int run);

 private:
  SignalState readRow(kodd::ObjectQuery& query, int id);
  kodd::Selection linkedTo(const std::string& property, int signal) const;
  void markStale(const kodd::Selection& signals);

  ObjectManager& manager_;
  kodd::ClassRef class_;

  kodd::ObjectRef handle_;
  int id_ = 0;
  SignalState row_;
  kodd::ObjectQuery byHandle_;
  kodd::ObjectQuery byID_;
  kodd::ObjectModifier bookkeeping_;
  int minMaxState_ = 0;
  kodd::ObjectModifier minMaxStateWriter_;
  kodd::ObjectQuery minMaxStateReader_;
  kodd::ObjectModifier minMaxWriter_;
  int dataType_ = 0;
  kodd::ObjectModifier dataTypeWriter_;

  int run_ = 0;
  RunTiming timing_;
  kodd::ObjectQuery stepper_;
  kodd::ObjectQuery runStart_;
  int remainingStepbacks_ = 1;
  kodd::ObjectModifier stepbackWriter_;
};

}  // namespace vela
