// One stored signal: its properties, its place in the tree and its samples.
#pragma once

#include <boost/ptr_container/ptr_vector.hpp>
#include <boost/shared_ptr.hpp>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "fixedpoint/fixedpoint.h"
#include "kodd/entryvalue.h"
#include "objectmanager/objectmanager.h"
#include "objectmanager/objectref.h"
#include "objects/bulkproperties.h"
#include "objects/metadata.h"
#include "objects/orm.h"
#include "objects/signalenums.h"

namespace host {
class HostArray;
}

namespace vela {

class Set;
struct SampleBlock;

/// What a range of samples spans. Without samples `isValid` is false and the rest 0; samples
/// that carry no numbers leave it false too. NaN is skipped; all NaN gives NaN, valid.
struct SignalDataRange {
  double firstTime = 0;
  double lastTime = 0;
  double minValue = 0;
  double maxValue = 0;
  bool isValid = false;
};

/// The samples of a range. The times are 0 without samples.
struct SampleSpan {
  std::size_t samples = 0;
  double firstTime = 0;
  double lastTime = 0;
};

/// How much a range read delivers.
struct SampleExtent : SampleSpan {
  std::size_t valueBytes = 0;  ///< of all samples together
  bool hasEpochs = false;      ///< whether every chunk of the range carries epoch indices
};

/// Where a range read puts its samples: room for `samples` times and epochs and for
/// `valueBytes` bytes of values. A null pointer leaves that part out.
struct SampleTarget {
  double* times = nullptr;
  char* values = nullptr;
  unsigned* epochs = nullptr;
};

/// Handle to one stored signal.
///
/// It caches nothing: every getter reads the stored property, every setter writes it, so two
/// handles on a signal always agree. Setters between beginBulkPropertyUpdate and
/// commitBulkPropertyUpdate keep a copy of their value in the handle and write at the commit;
/// getters see the old values until then.
///
/// Samples are (time, value) pairs whose times never decrease, kept in numbered chunks. A leaf
/// of a composite signal has none of its own: it reads its elements out of the records of the
/// signal named by getHierarchicalSignalRootID().
///
/// Times are seconds. Failures of the store are raised as ExceptionWithCauses. Threads: the one
/// that owns the manager. Borrows the manager, which must outlive the handle.
class Signal : public Element, public SignalEnums {
 public:
  class DataRangeIterator;

  /// An empty handle.
  Signal();
  /// Creates a stored signal: "zoh", "union", the manager's instance ID, the next default
  /// colour, a solid line, data type "Null".
  explicit Signal(ObjectManager& manager);
  /// Binds to an existing signal.
  explicit Signal(std::unique_ptr<ObjectRef> object);
  ~Signal() override;
  Signal(Signal&&) noexcept = default;
  Signal& operator=(Signal&&) noexcept = default;

  std::string getElementType() const override;
  int getCheckSum() const override;
  int getID() const;

  // --- Lookups. A signal that is missing, or an ID of another class, is no error. ---

  /// Empty when there is no such signal.
  static std::unique_ptr<Signal> getSignalFromID(ObjectManager& manager, int id);
  static bool lookupSignal(int id, boost::shared_ptr<Signal>& out, ObjectManager& manager);
  /// Only signals of runs that are visible and not marked for deletion.
  static bool lookupVisibleSignal(int id, boost::shared_ptr<Signal>& out,
                                  ObjectManager& manager);
  /// The first signal of the run with that block path and port; empty when there is none.
  static boost::shared_ptr<Signal> getSignalFromPath(ObjectManager& manager, int runID,
                                                     const std::vector<std::wstring>& blockPath,
                                                     int portIndex);
  /// The first signal that satisfies every constraint; empty when there is none.
  static boost::shared_ptr<Signal> getSignalByProperties(
      ObjectManager& manager, const std::vector<ObjectManager::Constraint>& constraints);
  /// Appends the signals of this instance shown in some plot.
  static void getAllCheckedSignals(ObjectManager& manager, boost::ptr_vector<ObjectRef>& out);
  /// The same, IDs, for one plot (1..32) and one run; run 0 stands for all of this instance.
  static void getCheckedSignalsInPlot(std::vector<int>& ids, int plotIndex, int runID,
                                      ObjectManager& manager);
  /// Leaf signals of the visible runs of this instance, by ID.
  static void getVisibleLeafSignals(std::unordered_map<int, boost::shared_ptr<Signal>>& signals,
                                    ObjectManager& manager);
  static void getLeavesForInstrumentedSignal(ObjectManager& manager, int runID,
                                             const long long& uuid,
                                             boost::ptr_vector<ObjectRef>& out);

  // --- Hierarchy ---

  boost::shared_ptr<Signal> getParent(bool& found) const;
  /// Puts this signal below `parent`, out of the one it was below, and into its run if it has
  /// none. \throws "nexstore:nex:InvalidData" when that is null, this signal or below it
  void setParent(boost::shared_ptr<Signal> parent);
  void getChildren(boost::ptr_vector<ObjectRef>& out) const;
  void removeFromMyParent();
  /// Whether no signal has it as its parent; true for an ID that names no signal.
  static bool isLeafSignal(ObjectManager& manager, int id);
  /// Whether this is a leaf of a composite signal.
  bool isInHierarchy() const;
  /// The signal whose chunks hold this leaf's samples; 0 when it has its own.
  int getHierarchicalSignalRootID() const;
  boost::shared_ptr<Signal> getSourceSignal() const;
  /// The run this signal belongs to; empty when it has none.
  boost::shared_ptr<Set> getRun() const;

  /// Deletes the signal and everything below it, with their samples, metadata, observers and
  /// the sources nobody else uses. The samples of a composite leaf belong to its root and stay.
  void remove();
  /// The same, collected until commitBulkRemove; without a bracket at once.
  void bulkRemove();
  /// Brackets may nest; the outermost commit deletes. A unit of work that fails closes those
  /// that were opened in it.
  static void beginBulkRemove(ObjectManager& manager);
  static void commitBulkRemove(ObjectManager& manager);

  /// Copies the signal and everything below it, with samples and metadata, into a run, in one
  /// unit of work. A leaf whose composite root is not among them gets samples of its own.
  std::unique_ptr<Signal> clone(const Set& run) const;

  // --- Copies and comparisons ---

  /// What a deep copy brings along. // Handed to clients; never renumber.
  enum class CopyMode : int { Properties = 0, WithData = 1 };
  /// A signal of no run and no parent, described like this one, with a signal source of its own
  /// and this one as its "SourceSignal". It keeps the colour and takes none of the default
  /// ones; it is on no plot. A composite leaf's copy keeps its samples itself.
  boost::shared_ptr<Signal> createDeepCopy(CopyMode mode);
  /// Moves the samples of `source` into `target`, in time order, the target's first at equal
  /// times, and removes `source`; likewise for every signal below them. One unit of work. Epoch
  /// indices are kept when both have them.
  /// \throws "nexstore:nex:InvalidData" unless both trees have the same shape, data types and
  ///         layout and hold all the samples they show, and nobody else reads those of
  ///         `source`; "nexstore:nex:DeleteStreamingSignal" when `source` is being written
  static void mergeSignals(const boost::shared_ptr<Signal>& target,
                           const boost::shared_ptr<Signal>& source);
  bool isEnum() const;

  /// A signal described like `compareTo` that shows a difference: a copy of the samples of
  /// `diffData`, or, when that is null, 0 over the range of `compareTo`. `name` goes into its
  /// name. Belongs to no run yet. The tolerance signal likewise. A complex, matrix or bus
  /// signal has a part in the result for each of its own, unless the data are one signal.
  /// \throws "nexstore:nex:InvalidData" when the data have other parts than `compareTo`
  static boost::shared_ptr<Signal> createDifferenceSignal(Signal* diffData, Signal* baseline,
                                                          Signal* compareTo,
                                                          const std::wstring& name,
                                                          ObjectManager& manager);
  static boost::shared_ptr<Signal> createToleranceSignal(Signal* tolData, Signal* baseline,
                                                         Signal* compareTo,
                                                         const std::wstring& name,
                                                         ObjectManager& manager);
  /// Stores the verdict in this comparison signal and replaces its difference and tolerance
  /// signals, which keep the plots of all they replace; one unit of work. The data may be the
  /// signals that are replaced.
  /// \throws "nexstore:nex:InvalidData" when this is no comparison or lacks one of its inputs
  void updateComparisonSignal(bool isWithinTol, Signal* diffData, Signal* tolData);
  /// The newest visible signal that was copied from this one; empty when there is none.
  std::unique_ptr<Signal> findCopiedSignal() const;
  /// The signal of the run with this one's identifier, name, block path, port, channel,
  /// imaginary part and bus leaf, the first of several; empty when there is none. Keeps hashes
  /// of the run's signals for the next search.
  boost::shared_ptr<Signal> findMatchingSignal(Set& run) const;
  /// The comparison signal this instance shows; false without one.
  static bool getPlottedComparisonSignal(boost::shared_ptr<Signal>& signal,
                                         ObjectManager& manager);
  /// Makes it the comparison signal this instance shows, or, with `plotted` false, no longer
  /// shows. Nothing is taken off its plots.
  /// \throws "nexstore:nex:InvalidData" when the ID names no comparison signal to be shown
  static void setPlottedComparisonSignal(int id, bool plotted, ObjectManager& manager);

  // --- Properties ---

  void beginBulkPropertyUpdate();
  void commitBulkPropertyUpdate();

  std::wstring getName() const;
  void setName(const std::wstring& name);
  std::wstring getSignalName() const;
  int getPortIndex() const;
  void setPortIndex(const int& index);
  /// The path to the block, outermost model first. Shared by the whole family of the signal.
  std::vector<std::wstring> getBlockPath() const;
  void setBlockPath(const std::vector<std::wstring>& path);
  /// The part of the last path element behind its last single "/".
  std::wstring getBlockName() const;
  /// The path elements, joined by "|".
  std::wstring getDisplayBlockPath() const;
  std::wstring getSID() const;
  void setSID(const std::wstring& sid);
  int getSignalSourceID() const;
  void setSignalSourceID(const int& id);
  std::wstring getUnits() const;
  void setUnits(const std::wstring& units);
  std::wstring getDataSource() const;
  void setDataSource(const std::wstring& source);
  std::wstring getTimeSource() const;
  void setTimeSource(const std::wstring& source);
  std::wstring getRootSource() const;
  void setRootSource(const std::wstring& source);
  std::wstring getRootDataSource() const;
  void setRootDataSource(const std::wstring& source);
  std::wstring getModel() const;
  void setModel(const std::wstring& model);
  std::wstring getHierarchyReference() const;
  void setHierarchyReference(const std::wstring& reference);
  std::wstring getLeafBusSignal() const;
  void setLeafBusSignal(const std::wstring& leaf);
  std::string getInterpMethod() const;
  void setInterpMethod(const std::string& method);
  std::string getTimeAlignmentMethod() const;
  void setTimeAlignmentMethod(const std::string& method);
  std::string getSamplingMode() const;
  void setSamplingMode(const std::string& mode);
  sampleTimeContinuity getSampleTimeContinuity() const;
  void setSampleTimeContinuity(const sampleTimeContinuity& continuity);
  complexity getComplexity() const;
  void setComplexity(const complexity& value);
  dimsMode getDimMode() const;
  void setDimMode(const dimsMode& mode);
  std::vector<unsigned> getDimensions() const;
  void setDimensions(const std::vector<unsigned>& dimensions);
  /// 1-based subscripts of this element in its parent.
  std::vector<unsigned> getChannel() const;
  void setChannel(const std::vector<unsigned>& channel);
  void markSignalAsChannel(const std::vector<unsigned>& channel);
  /// 1-based plots, ascending, at most 32. \throws "nexstore:nex:InvalidData" for others
  std::vector<unsigned char> getChecked() const;
  void setChecked(const std::vector<unsigned char>& plots);
  ColorTuple getColor() const;
  void setColor(const ColorTuple& color);
  LineStyle getLineStyle() const;
  void setLineStyle(const LineStyle& style);
  Marker getMarker() const;
  void setMarker(const Marker& marker);
  SourceType getSourceType() const;
  void setSourceType(const SourceType& type);
  double getFixedIncr() const;
  void setFixedIncr(const double& increment);
  /// Of the signal that owns the samples.
  bool getHasDuplicateTimes() const;
  void setHasDuplicateTimes(bool value);
  bool getIsImagPartOfComplex() const;
  void setIsImagPartOfComplex(const bool& value);
  void markAsImagPart();
  long long getInstrumentedSignalUUID() const;
  void setInstrumentedSignalUUID(const long long& uuid);
  void setInstanceID(const long long& id);
  void setSignalID(const int& id);
  bool getSignalSupportsThinning() const;
  void setSignalSupportsThinning(const bool& value);
  void setIsSimStepperEnabled(const bool& value);
  bool getIsActivelyStreaming() const;
  void setIsActivelyStreaming(const bool& value);
  void setObservedElemSize(const int& bytes);
  /// Makes this a leaf of a composite signal: element bytes, record bytes, byte offset of the
  /// element in a record, ID of the signal that owns the records. Null leaves one as it is.
  /// \throws "nexstore:nex:InvalidData" when the element does not lie within the record
  void setLeafInfoForCompositeSignal(const int* observedElemSize, const int* compositeDataSize,
                                     const int* compositeSigByteOffset,
                                     const int* idOfSignalWhoHasMyData);
  /// Empty when the signal has none.
  std::unique_ptr<ObjectRef> getDataType() const;
  void setDataType(ObjectRef& type);
  /// What the samples are: the classification of the data type, or the name of its built-in
  /// type.
  std::string getDataTypeLabel() const;
  /// Empty unless the data type is a fixed-point type.
  std::unique_ptr<fxpDataTypeProp> getFxpProps() const;

  double getAbsTol() const;
  void setAbsTol(const double& tolerance);
  double getRelTol() const;
  void setRelTol(const double& tolerance);
  bool getIsWithinTol() const;
  void setIsWithinTol(const bool& value);
  std::wstring getAlignedBy() const;
  void setAlignedBy(const std::wstring& key);

  long long getObserverUUID() const;
  /// Undefined when there is no such entry.
  metadata::Value getMetaData(const std::string& name) const;
  void setMetaData(const std::string& name, const kodd::EntryValue& value);
  /// Empty when there is no such entry or it is no blob.
  std::vector<char> getBlobMetaData(const std::string& name) const;

  /// A 1-by-1 structure "Name", "PortIndex", "BlockPath", "Interp", "Units",
  /// "HasDuplicateTimes".
  std::unique_ptr<host::HostArray> getExportProperties() const;

  // --- Writing samples. All or nothing; bad input is refused before anything is written. ---

  /// Appends samples. Stored samples at or after an earlier first time are dropped first; an
  /// equal time is kept beside the stored one.
  ///
  /// \param values        numPoints elements of the built-in type `dataTypeCode`, packed
  /// \param times         numPoints seconds, finite, not decreasing
  /// \param fixedPoint    not null: the values are stored integers of that type and are kept as
  ///                      real-world doubles
  /// \param elementBytes  bytes of an element when the code is not a built-in one
  /// \param epochIdx      numPoints indices, or null
  /// \throws "nexstore:nex:InvalidData" naming signal and index; for a composite leaf too
  void addData(const void* values, const double* times, int dataTypeCode,
               const fxpDataTypeProp* fixedPoint, unsigned numPoints, unsigned elementBytes,
               const unsigned* epochIdx);
  /// The same for packed blobs, without epochs. `firstTime` and `lastTime` must be those of
  /// `times`, `timeBytes` 8 per point. Values without points make a chunk without times.
  void addData(unsigned valueBytes, const void* values, unsigned timeBytes, const void* times,
               double firstTime, double lastTime, unsigned numPoints);
  /// Makes the signal constant: type "double", "linear", one sample at each end.
  void createConstValueData(const double& startTime, const double& endTime,
                            const double& value);
  /// Drops the samples at and after `time`; for a composite leaf those of its root.
  void rollback(double time);
  /// Drops every sample at exactly one of these times; others are ignored.
  void deleteData(const std::vector<double>& times);
  /// Drops every sample; does nothing on a composite leaf.
  void removeAllChunks();
  /// Replaces the target's samples by a copy of these; a composite leaf's are copied extracted.
  void copyChunksTo(const boost::shared_ptr<Signal>& target);
  /// Notes two equal neighbouring times on the signal.
  void calculateHasDuplicateTimes(const double* times, unsigned count);

  /// Appends go into the newest chunk as long as that holds fewer value bytes; 0, the default,
  /// makes every append a chunk of its own. Process-wide; negative counts as 0.
  static void setMinimumChunkNumBytes(const int& bytes);
  static int getMinimumChunkNumBytes();
  /// An append with more bytes of values or times is split into several chunks. Process-wide;
  /// at most, and by default, 2^29.
  static void setMaximumChunkNumBytes(std::size_t bytes);

  // --- Reading samples ---

  /// This signal's own chunks, by number.
  void getAllChunks(boost::ptr_vector<ObjectRef>& out) const;
  /// The chunks that overlap [minTime, maxTime], in reading order, of the signal that owns the
  /// samples. The finite extremes or infinities select every chunk, those without times too.
  void getChunksInRange(double minTime, double maxTime,
                        boost::ptr_vector<ObjectRef>& out) const;
  /// One whole chunk. `epochs` may be null; it is emptied when the chunk has none.
  ///
  /// \param classification  label of the element type; worked out and filled in when empty
  void getDataTimeForChunk(ObjectRef& chunk, std::vector<char>& values,
                           std::vector<double>& times, std::vector<unsigned>* epochs,
                           bool extractLeaf, std::string& classification) const;
  /// Samples in [t0, t1], both ends included, written where `allocate` says. It is called with
  /// the sizes before anything is written; should the chunks turn out to be of uneven make,
  /// once more, and what was written before is void. A composite leaf delivers its own
  /// elements.
  SampleExtent readRange(
      double t0, double t1,
      const std::function<SampleTarget(const SampleExtent&)>& allocate) const;
  /// The same into vectors, which are resized. `epochs` is left empty unless every chunk has
  /// them.
  void readRange(double t0, double t1, std::vector<double>& times, std::vector<char>& values,
                 std::vector<unsigned>* epochs = nullptr) const;
  /// Counts the samples in [t0, t1]; reads none but the first and last time.
  SampleSpan getExtent(double t0, double t1) const;
  SampleSpan getExtent() const;
  /// Takes this leaf's elements out of records; fixed-point ones become doubles.
  void deinterleaveStructuredData(const char* records, unsigned byteCount,
                                  std::vector<char>& out) const;

  SignalDataRange getDataRange(double t0, double t1) const;
  /// Of all samples; keeps minimum and maximum on the signal.
  SignalDataRange getDataRange();
  /// NaN outside the stored times. At a stored time its value, the least of several.
  double getLinearInterpYValue(double t) const;
  /// Of the signal that owns the samples; the run's start when it has none.
  double getLatestTimeValue() const;

  void cacheMinMaxValuesAtTimeOfNormalization();
  std::pair<double, double> getMinMaxValuesAtTimeOfNormalization() const;
  /// Marks the cached minimum and maximum of every signal below this one, and of every signal
  /// that shares its data, stale.
  void dirtyMinMaxDirectReadOkayFlagForAllChildrenInHierarchy();

 private:
  void addBlock(const SampleBlock& block, bool hasDuplicateTimes, int dataTypeCode);
  template <class T>
  void set(const std::string& property, const T& value) {
    bulk_.set(getObjectReference(), property, value);
  }
  std::vector<unsigned> getSubscripts(const std::string& property) const;
  void setSubscripts(const std::string& property, const std::vector<unsigned>& values);
  std::unique_ptr<ObjectRef> findSignalSource() const;
  std::unique_ptr<ObjectRef> signalSourceForWriting();
  void writeBlockPath(const std::vector<std::wstring>& path);
  void writeSID(const std::wstring& sid);

  BulkProperties bulk_;
  /// What an open bulk update has been given for other objects than the signal's own. These are
  /// looked up or made in the unit of work of the commit: a unit nobody uses may be removed at
  /// any time, and an update that is never committed leaves no source behind.
  struct Pending {
    std::optional<std::wstring> units;
    std::optional<std::vector<std::wstring>> blockPath;
    std::optional<std::wstring> sid;

    bool isEmpty() const { return !units && !blockPath && !sid; }
  };
  Pending pending_;
  /// Real-world values of fixed-point samples; kept so that appending them does not allocate.
  std::vector<double> converted_;
};

}  // namespace vela
