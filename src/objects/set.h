// A run: one simulation's, import's or comparison's signals with their description.
#pragma once

#include <boost/ptr_container/ptr_vector.hpp>
#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kodd/entryvalue.h"
#include "objects/bulkproperties.h"
#include "objects/metadata.h"
#include "objects/orm.h"

namespace vela {

class Signal;

/// One run. Its stored state is an object of class "DataSet" and one of class "OutputMetaData";
/// getters read and setters write it on every call.
///
/// Failures are raised as ExceptionWithCauses. Threads: used by one thread at a time.
class Set : public ORM {
 public:
  /// Who owns a run. // Stored; never renumber.
  enum class Application {
    VELA = 0,
    VELAComparison = 1,
    AllVELA = 2,  ///< in queries: VELA or VELAComparison
    QRVRun = 3,
    QRVComparisonRun = 4,
    CustomApp = 5,
    AllApplications = 6  ///< in queries: any
  };
  static const std::string& getStringFromApp(Application application);
  /// Ignores the case of ASCII letters; VELA for any text that names none. Accepts "qrv",
  /// "qrvcomparison" and "custom" where getStringFromApp gives longer texts.
  static Application getAppFromString(const std::string& text);

  /// Which signals of a run a query returns.
  enum class SignalQueryType {
    top = 0,
    leaf = 1,
    all = 2,
    checked = 3,
    logged = 4,
    streamed = 5,
    leafStreamed = 6,
    leafLogged = 7,
    leafImported = 8
  };
  /// Ignores the case of ASCII letters; `all` for any text that names none.
  static SignalQueryType getQueryTypeFromString(const std::string& text);

  /// Whose runs a list holds.
  enum class Sessions { own, all };

  /// A new run, stored in one unit of work.
  Set(ObjectManager& manager, bool assignRunNumber);
  /// The same in the default repository.
  explicit Set(bool assignRunNumber);
  /// Wraps a stored "DataSet".
  explicit Set(std::unique_ptr<ObjectRef> object) : ORM(std::move(object)) {}

  /// The run ID.
  int getID() const;
  int getCheckSum() const override { return getID(); }

  std::wstring getName() const;
  void setName(const std::wstring& name);
  std::wstring getDescription() const;
  void setDescription(const std::wstring& description);
  std::wstring getTag() const;
  void setTag(const std::wstring& tag);
  std::wstring getModel() const;
  void setModel(const std::wstring& model);
  std::string getProject() const;
  void setProject(const std::string& project);
  std::string getRebuildAction() const;
  void setRebuildAction(const std::string& action);
  std::string getKOVersion() const;
  void setKOVersion(const std::string& version);
  std::string getSimMode() const;
  void setSimMode(const std::string& mode);
  double getSimTime() const;
  void setSimTime(double seconds);
  double getStartTime() const;
  void setStartTime(double seconds);
  double getStopTime() const;
  void setStopTime(double seconds);
  double getTotalTime() const;
  void setTotalTime(double seconds);
  double getUpdateTime() const;
  void setUpdateTime(double seconds);
  /// When the run was created: seconds since 1970-01-01 UTC.
  double getDate() const;
  void setDate(double seconds);
  /// The date in local time, "YYYY-MM-DD HH:MM:SS"; empty when no calendar can show it.
  std::wstring getDateString() const;
  int getOrderIndex() const;
  void setOrderIndex(int index);
  Application getApplication() const;
  void setApplication(Application application);
  /// 0 when there is none or it is gone. The setters refuse an ID that is no run; 0 clears.
  int getBaselineSetID() const;
  void setBaselineSetID(int runID);
  int getCompareToSetID() const;
  void setCompareToSetID(int runID);
  bool getRunHasEnumSignals() const;
  void setRunHasEnumSignals(bool has);
  bool getWasVisualizeOnly() const;
  void setWasVisualizeOnly(bool was);
  bool isActivelyStreaming() const;
  void setIsActivelyStreaming(bool streaming);
  bool areSignalHashesCached() const;
  void setSignalHashesCached(bool cached);
  void setInstanceID(long long id);
  void setStepperInterval(int interval);
  void setStepperNumSteps(int steps);

  // These pairs do not meet: the setter writes the run or the termination of the run, the
  // getter reads what the simulation reported in the output metadata.
  std::string getModelChecksum() const;
  void setModelChecksum(const std::string& checksum);
  int getSimTerminationError() const;
  void setSimTerminationError(int error);
  std::wstring getSimTerminationErrorText() const;
  void setSimTerminationErrorText(const std::wstring& text);
  std::string getSimTerminationType() const;
  void setSimTerminationType(const std::string& type);

  /// Setters between these two are written together, at the commit; getters see the old values
  /// until then.
  void beginBulkPropertyUpdate();
  void commitBulkPropertyUpdate();

  metadata::Value getMetaData(const std::string& name) const;
  void setMetaData(const std::string& name, const kodd::EntryValue& value);

  /// 0 when the run has none.
  int getRunNumber() const;
  void setRunNumber(int number);
  /// The highest number issued to runs of the manager's instance, 0 before the first.
  static int getHighestRunNumber(ObjectManager& manager);
  static void setHighestRunNumber(ObjectManager& manager, int number);

  /// The template of the names of new runs; stored from the preferences when there is none yet.
  static std::wstring getRunNameTemplate(ObjectManager& manager);
  static void setRunNameTemplate(const std::wstring& text, ObjectManager& manager);
  /// Takes the template of the preferences again.
  static void restoreRunNameTemplate(ObjectManager& manager);
  /// Stores the template unless there is one, and whether this instance's new runs go to the
  /// top.
  static void initializeDefaultRunNameTemplateAndShowAtTopFlag(const std::wstring& text,
                                                               bool showAtTop,
                                                               ObjectManager& manager);
  /// Whether new runs of this instance go to the top of the lists.
  static bool getShowRunAtTop(ObjectManager& manager);
  static void setShowRunAtTop(bool atTop, ObjectManager& manager);
  /// Template and show-at-top flag; built-in ones where the host has no preferences.
  static std::pair<std::wstring, bool> getDefaultRunNameTemplateAndShowAtTopFlagFromPrefs();

  /// The name with its tokens replaced: <run_index>, <baseline>, <compare_to>, <model_name>,
  /// <time_stamp>, <sim_mode>. At most 65,536 characters; runs that refer to each other in a
  /// circle or more than 16 deep leave the inner reference empty.
  std::wstring getRunDisplayName() const;

  /// Appends the run's signals of that kind, in creation order.
  void getAllSignals(SignalQueryType type, boost::ptr_vector<ObjectRef>& signals) const;
  void getLeafSignalsWithParent(boost::ptr_vector<ObjectRef>& signals) const;
  void getLeafSignalsWithoutParent(boost::ptr_vector<ObjectRef>& signals) const;
  std::vector<int> getSignalIDs(SignalQueryType type) const;
  int getNumberOfLeafSignals() const;
  /// ID of a leaf by its position in creation order, from 0; 0 beyond the last.
  int getSignalByIndex(int index) const;
  /// Appends the objects of that class that belong to the run, in creation order.
  void getAllElements(const std::string& className,
                      boost::ptr_vector<ObjectRef>& elements) const;
  int getNumberOfElements(const std::string& className) const;
  /// By position in creation order, from 0; empty beyond the last. "Signal" is the one class.
  std::unique_ptr<Element> getElement(int index, const std::string& className) const;
  /// Makes an element, with all its descendants, part of this run.
  void addElement(const Element& element);
  /// Takes an element of this run, with all its descendants, out of it; does nothing to others.
  void removeElement(const Element& element);
  /// Adds a comparison signal named like `baseline`, with copies of the two inputs, with data,
  /// and the difference and tolerance signals made from `difference` and `tolerance`; a null
  /// one stands for 0 over the range of `compareTo`. The four given signals stay as they are.
  /// One unit of work.
  ///
  /// \param alignedBy  how the two were paired
  /// \returns the ID of the comparison signal; those of its baseline, compare-to, difference
  /// and
  ///          tolerance signals
  std::pair<int, std::vector<int>> addComparisonSignal(bool isWithinTol,
                                                       const std::wstring& alignedBy,
                                                       Signal& baseline, Signal& compareTo,
                                                       Signal* difference, Signal* tolerance);
  /// Takes every signal off all plots.
  void uncheckAllSignals();
  /// Marks every signal as no longer streaming.
  void setRunSignalsToInactive();

  // A run is visible when it is not hidden and not marked for deletion.
  static int getRunCount(ObjectManager& manager, Application application,
                         Sessions sessions = Sessions::own);
  /// By order index, then in creation order.
  static std::vector<boost::shared_ptr<Set>> getAllVisibleRuns(
      ObjectManager& manager, Application application = Application::AllApplications,
      Sessions sessions = Sessions::own);
  static std::vector<int> getAllVisibleRunIDs(
      ObjectManager& manager, Application application = Application::AllApplications,
      Sessions sessions = Sessions::own);

  /// What a list of runs shows of each.
  struct Summary {
    int id = 0;
    int number = 0;
    std::wstring displayName;
    double date = 0;  ///< seconds since 1970-01-01 UTC
    Application application = Application::VELA;
    int signalCount = 0;  ///< leaves
  };
  /// The visible runs in the order of getAllVisibleRuns, read in one state of the repository.
  static std::vector<Summary> getRunSummaries(
      ObjectManager& manager, Application application = Application::AllApplications,
      Sessions sessions = Sessions::own);

  /// \returns whether there is a run of that ID, visible or not; `run` is left alone otherwise
  static bool lookupSet(int runID, boost::shared_ptr<Set>& run, ObjectManager& manager);
  static bool lookupVisibleSet(int runID, boost::shared_ptr<Set>& run, ObjectManager& manager);
  /// The run of a model that is simulating now; empty (and 0) when there is none.
  static boost::shared_ptr<Set> getActiveSimulationSet(ObjectManager& manager,
                                                       const std::wstring& model,
                                                       int* runID = nullptr);

  // --- Removal. A run that is being written ("nexstore:nex:DeleteStreamingSignal") is refused
  // before anything is removed; a failure leaves everything as it was.

  /// Removes the run with its signals, their samples, and everything else that belongs to it,
  /// in one unit of work.
  void remove();
  /// The same for several runs at once; IDs without a run are ignored. \returns how many runs
  /// there were
  static int removeRuns(ObjectManager& manager, const std::vector<int>& runIDs);
  /// Marks the run for deletion, so that no list shows it and the next purge removes it.
  void lightweightRemove();
  /// The purge: removes this instance's runs that are marked for deletion, and its
  /// prior-overwritten run although that is not marked. \returns how many runs there were
  static int removeRunsMarkedForDelete(ObjectManager& manager);

  // --- The overwrite run: the run of this instance that its next simulation replaces.

  /// Makes this the overwrite run, or no longer so when it is.
  /// \throws "nexstore:nex:InvalidData" for a run of another instance
  void setOverWrite(bool overWrite);
  bool getOverWrite() const;
  /// 0 when there is none or it is gone.
  static int getOverWriteSetID(ObjectManager& manager);
  /// Keeps the overwrite run aside as the prior-overwritten one, since a new simulation
  /// replaces it; what was the prior-overwritten run until now is marked for deletion. Changes
  /// nothing when there is no overwrite run or it is aside already.
  /// \returns the ID of the run kept aside; 0 when there is none
  static int cacheOverwriteRun(ObjectManager& manager);
  /// Empty when there is none.
  static boost::shared_ptr<Set> getPriorOverwriteRun(ObjectManager& manager);
  /// Makes the prior-overwritten run an ordinary, visible one again, and the overwrite run of
  /// this instance. The run that had replaced it stays as an ordinary one.
  /// \returns its ID; 0, with nothing changed, when there is none
  static int undoOverwrite(ObjectManager& manager);

  // --- Runs of other instances. An instance is one process's use of the repository. Whoever
  // asks first for the closed ones marks those of dead processes closed; a living one never
  // counts as dead. Listing them marks nothing.

  struct Instance {
    enum class State {
      alive,      ///< its process has the repository open
      closed,     ///< it said that it has finished
      crashed,    ///< its process is gone without having said so
      untracked,  ///< 0 and 1 (rapid-accelerator children), which keep no row
    };
    long long id = 0;
    State state = State::alive;
    bool isOwn = false;  ///< the manager's own
    bool isFarmWorker = false;
    int runs = 0;           ///< that are stored, of every application, hidden ones too
    int visibleRuns = 0;    ///< of those
    int streamingRuns = 0;  ///< of those, being written or cut off in it
  };
  /// Every instance that has a row or runs, in creation order of the rows, then by ID.
  static std::vector<Instance> getInstances(ObjectManager& manager);
  /// IDs of the closed instances, this one's too when it is closed, in creation order;
  /// `instanceIDs` is replaced.
  static void getClosedInstances(ObjectManager& manager, std::vector<long long>& instanceIDs);
  /// Appends the IDs of farm workers, open ones too, in creation order.
  static void appendFarmWorkerInstances(ObjectManager& manager,
                                        std::vector<long long>& instanceIDs);
  /// Whether a closed instance other than this one has visible runs of the application.
  static bool isDataFromClosedInstances(ObjectManager& manager, Application application);
  static int getRunCountFromClosedInstances(ObjectManager& manager, Application application);
  /// Makes the runs of closed instances and of farm workers runs of this instance, numbered and
  /// placed behind its own in their old order. Runs of applications other than VELA and
  /// VELAComparison stay, and so do runs a living process is writing.
  /// \returns IDs of the runs, in the order of their new numbers
  static std::vector<int> importClosedInstances(ObjectManager& manager);
  /// The same for the finished runs of rapid-accelerator children; `runIDs` is replaced.
  static void importCompletedRapidAccelRuns(ObjectManager& manager, std::vector<int>& runIDs);
  /// Removes the runs of closed instances other than this one, by the same choice of
  /// applications, and what else the instances keep.
  /// \param giveSpaceBack  also gives some of the space back to the disk at once, as the other
  ///                       removals do; without it the space waits for later writes or
  ///                       compact()
  /// \returns how many runs there were
  static int removeClosedInstances(ObjectManager& manager, bool giveSpaceBack);
  /// Whether no other process has the repository open and nothing in it is this instance's:
  /// neither a run that is not marked for deletion, nor a test suite or a stream. Runs of
  /// closed instances do not count.
  static bool repositoryIsEmpty(ObjectManager& manager);

  /// A copy with a number and a place of its own, in one unit of work: name, description,
  /// metadata, signals with their samples. References among the copied objects lead to the
  /// copies. The copy is never streaming nor marked, and carries no observers or plots.
  std::unique_ptr<Set> clone(Application application) const;

  /// Where the bytes of a repository are.
  struct Space {
    std::uint64_t fileBytes = 0;       ///< of the repository file
    std::uint64_t logBytes = 0;        ///< of the log beside it, which compacting empties
    std::uint64_t freeBytes = 0;       ///< in the file, unused; given back by compacting
    std::uint64_t purgeableBytes = 0;  ///< of samples and metadata that a purge would remove
    int purgeableRuns = 0;
  };
  static Space getSpace(ObjectManager& manager);

 private:
  void init(bool assignRunNumber);
  /// The output metadata; null when the run has none yet.
  ObjectRef* findOutput() const;
  template <class T>
  T readOutput(const std::string& property) const;
  template <class T>
  void writeOutput(const std::string& property, const T& value);
  template <class T>
  void writeRun(const std::string& property, const T& value);
  int readRunReference(const std::string& property) const;
  void writeRunReference(const std::string& property, int runID);

  mutable std::unique_ptr<ObjectRef> output_;
  /// Whether `output_` was made by this handle in a unit of work that may still fail.
  bool outputMayVanish_ = false;
  BulkProperties runUpdate_;
  BulkProperties outputUpdate_;
};

}  // namespace vela
