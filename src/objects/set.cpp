#include "objects/set.h"

#include <iterator>
#include <type_traits>

#include "objectmanager/objectmanager.h"
#include "objects/runnames.h"
#include "objects/settings.h"
#include "objects/strings.h"
#include "velainstance.h"

namespace vela {
namespace {

std::string lowerAscii(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

template <class Value, std::size_t n>
Value valueOf(const std::string& text, const std::pair<const char*, Value> (&table)[n],
              Value otherwise) {
  const std::string wanted = lowerAscii(text);
  for (const auto& [name, value] : table) {
    if (wanted == name) return value;
  }
  return otherwise;
}

template <class T>
T readProperty(const ObjectRef& object, const std::string& property) {
  if constexpr (std::is_same_v<T, int>) {
    return object.getPropertyInt32(property);
  } else if constexpr (std::is_same_v<T, bool>) {
    return object.getPropertyInt32(property) != 0;
  } else if constexpr (std::is_same_v<T, double>) {
    return object.getPropertyReal64(property);
  } else if constexpr (std::is_same_v<T, std::string>) {
    return object.getPropertyStdString(property);
  } else {
    static_assert(std::is_same_v<T, std::wstring>);
    return object.getPropertyUString(property);
  }
}

}  // namespace

const std::string& Set::getStringFromApp(Application application) {
  static const std::string names[] = {"vela",           "VELAComparison",   "AllVELA",
                                      "QRVRun",         "QRVComparisonRun", "CustomApp",
                                      "AllApplications"};
  const auto index = static_cast<std::size_t>(application);
  return names[index < std::size(names) ? index : 0];
}

Set::Application Set::getAppFromString(const std::string& text) {
  static constexpr std::pair<const char*, Application> names[] = {
      {"allapplications", Application::AllApplications}, {"qrv", Application::QRVRun},
      {"qrvcomparison", Application::QRVComparisonRun},  {"custom", Application::CustomApp},
      {"velacomparison", Application::VELAComparison},   {"allvela", Application::AllVELA}};
  return valueOf(text, names, Application::VELA);
}

Set::SignalQueryType Set::getQueryTypeFromString(const std::string& text) {
  static constexpr std::pair<const char*, SignalQueryType> names[] = {
      {"top", SignalQueryType::top},
      {"leaf", SignalQueryType::leaf},
      {"checked", SignalQueryType::checked},
      {"logged", SignalQueryType::logged},
      {"streamed", SignalQueryType::streamed},
      {"leaf streamed", SignalQueryType::leafStreamed},
      {"leaf logged", SignalQueryType::leafLogged},
      {"leaf imported", SignalQueryType::leafImported}};
  return valueOf(text, names, SignalQueryType::all);
}

Set::Set(ObjectManager& manager, bool assignRunNumber) {
  manager_ = &manager;
  manager.inTransaction([&] { init(assignRunNumber); });
}

Set::Set(bool assignRunNumber)
    : Set(VelaInstance::getInstance().getObjectManager({}, {}), assignRunNumber) {}

int Set::getID() const {
  return getObjectReference().getObjectID();
}

// --- Output metadata: found on first use, created when something is first written to it.

ObjectRef* Set::findOutput() const {
  const bool isCertain = !outputMayVanish_ || outputUpdate_.isOpen();
  if (!output_ || !isCertain) {
    output_.reset();
    boost::ptr_vector<ObjectRef> found;
    manager().findObjects(strings::OutputMetaData, {}, found,
                          {{strings::DataSet, &getObjectReference()}});
    if (!found.empty()) output_.reset(found.release(found.begin()).release());
  }
  return output_.get();
}

template <class T>
T Set::readOutput(const std::string& property) const {
  const ObjectRef* output = findOutput();
  return output ? readProperty<T>(*output, property) : T();
}

template <class T>
void Set::writeOutput(const std::string& property, const T& value) {
  if (findOutput()) return outputUpdate_.set(*output_, property, value);
  manager().inTransaction([&] {
    std::vector<ObjectManager::InitialProperty> owner = {
        {strings::DataSet, &getObjectReference().getObjRef(),
         ObjectConstructorPropType::objectRef}};
    const auto output = manager().createObject(strings::OutputMetaData, owner, true);
    output->setPropertyWithBulkSupport(property, &value);
  });
  // A surrounding unit of work that fails takes the object back.
  outputMayVanish_ = true;
}

template <class T>
void Set::writeRun(const std::string& property, const T& value) {
  runUpdate_.set(getObjectReference(), property, value);
}

int Set::readRunReference(const std::string& property) const {
  std::unique_ptr<ObjectRef> run;
  getObjectReference().getPropertyObject(property, run, strings::DataSet);
  return run ? run->getObjectID() : 0;
}

void Set::writeRunReference(const std::string& property, int runID) {
  if (runID == 0) return writeRun(property, kodd::ObjectRef());
  bool found = false;
  const auto run = manager().findObject(runID, strings::DataSet, found);
  if (!found) {
    kodiag::raise({"KODD:kodd", "NoSuchObject"},
                  {{"ObjectID", std::to_string(runID)}, {"ClassName", strings::DataSet}});
  }
  writeRun(property, run->getObjRef());
}

// --- Properties

std::wstring Set::getName() const {
  return readProperty<std::wstring>(getObjectReference(), strings::UName);
}
void Set::setName(const std::wstring& name) {
  writeRun(strings::UName, name);
}

std::wstring Set::getDescription() const {
  return readOutput<std::wstring>(strings::Description);
}
void Set::setDescription(const std::wstring& description) {
  writeOutput(strings::Description, description);
}

std::wstring Set::getTag() const {
  return readOutput<std::wstring>(strings::Tag);
}
void Set::setTag(const std::wstring& tag) {
  writeOutput(strings::Tag, tag);
}

std::wstring Set::getModel() const {
  return readOutput<std::wstring>(strings::Model);
}
void Set::setModel(const std::wstring& model) {
  writeOutput(strings::Model, model);
}

std::string Set::getProject() const {
  return readOutput<std::string>(strings::Project);
}
void Set::setProject(const std::string& project) {
  writeOutput(strings::Project, project);
}

std::string Set::getRebuildAction() const {
  return readOutput<std::string>(strings::RebuildAction);
}
void Set::setRebuildAction(const std::string& action) {
  writeOutput(strings::RebuildAction, action);
}

std::string Set::getKOVersion() const {
  return readOutput<std::string>(strings::KOVersion);
}
void Set::setKOVersion(const std::string& version) {
  writeOutput(strings::KOVersion, version);
}

std::string Set::getSimMode() const {
  return readOutput<std::string>(strings::SimMode);
}
void Set::setSimMode(const std::string& mode) {
  writeOutput(strings::SimMode, mode);
}

double Set::getSimTime() const {
  return readOutput<double>(strings::SimTime);
}
void Set::setSimTime(double seconds) {
  requireTime("simulation time", seconds);
  writeOutput(strings::SimTime, seconds);
}

double Set::getStartTime() const {
  return readOutput<double>(strings::StartTime);
}
void Set::setStartTime(double seconds) {
  requireTime("start time", seconds);
  writeOutput(strings::StartTime, seconds);
}

double Set::getStopTime() const {
  return readOutput<double>(strings::StopTime);
}
void Set::setStopTime(double seconds) {
  requireTime("stop time", seconds);
  writeOutput(strings::StopTime, seconds);
}

double Set::getTotalTime() const {
  return readOutput<double>(strings::TotalTime);
}
void Set::setTotalTime(double seconds) {
  requireTime("total time", seconds);
  writeOutput(strings::TotalTime, seconds);
}

double Set::getUpdateTime() const {
  return readOutput<double>(strings::UpdateTime);
}
void Set::setUpdateTime(double seconds) {
  requireTime("update time", seconds);
  writeOutput(strings::UpdateTime, seconds);
}

double Set::getDate() const {
  return readProperty<double>(getObjectReference(), strings::Date);
}
void Set::setDate(double seconds) {
  writeRun(strings::Date, seconds);
}

std::wstring Set::getDateString() const {
  return dateText(getDate());
}

int Set::getOrderIndex() const {
  return readProperty<int>(getObjectReference(), strings::OrderIndex);
}
void Set::setOrderIndex(int index) {
  writeRun(strings::OrderIndex, index);
}

Set::Application Set::getApplication() const {
  return static_cast<Application>(
      readProperty<int>(getObjectReference(), strings::Application));
}
void Set::setApplication(Application application) {
  writeRun(strings::Application, static_cast<int>(application));
}

int Set::getBaselineSetID() const {
  return readRunReference(strings::BaselineSetID);
}
void Set::setBaselineSetID(int runID) {
  writeRunReference(strings::BaselineSetID, runID);
}

int Set::getCompareToSetID() const {
  return readRunReference(strings::CompareToSetID);
}
void Set::setCompareToSetID(int runID) {
  writeRunReference(strings::CompareToSetID, runID);
}

bool Set::getRunHasEnumSignals() const {
  return readProperty<bool>(getObjectReference(), strings::RunHasEnumSignals);
}
void Set::setRunHasEnumSignals(bool has) {
  writeRun(strings::RunHasEnumSignals, int{has});
}

bool Set::getWasVisualizeOnly() const {
  return readProperty<bool>(getObjectReference(), strings::WasVisualizeOnly);
}
void Set::setWasVisualizeOnly(bool was) {
  writeRun(strings::WasVisualizeOnly, int{was});
}

bool Set::isActivelyStreaming() const {
  return readProperty<bool>(getObjectReference(), strings::IsActivelyStreaming);
}
void Set::setIsActivelyStreaming(bool streaming) {
  writeRun(strings::IsActivelyStreaming, int{streaming});
}

bool Set::areSignalHashesCached() const {
  return readProperty<bool>(getObjectReference(), strings::SignalHashesAreCached);
}
void Set::setSignalHashesCached(bool cached) {
  writeRun(strings::SignalHashesAreCached, int{cached});
}

void Set::setInstanceID(long long id) {
  writeRun(strings::InstanceID, id);
}
void Set::setStepperInterval(int interval) {
  writeRun(strings::StepperInterval, interval);
}
void Set::setStepperNumSteps(int steps) {
  writeRun(strings::StepperNumSteps, steps);
}

std::string Set::getModelChecksum() const {
  return readOutput<std::string>(strings::ModelCheckSum);
}
void Set::setModelChecksum(const std::string& checksum) {
  writeRun(strings::ModelChecksum, checksum);
}

int Set::getSimTerminationError() const {
  return readOutput<int>(strings::SimTerminationError);
}
void Set::setSimTerminationError(int error) {
  writeOutput(strings::TerminationError, error);
}

std::wstring Set::getSimTerminationErrorText() const {
  return readOutput<std::wstring>(strings::SimTerminationErrorText);
}
void Set::setSimTerminationErrorText(const std::wstring& text) {
  writeOutput(strings::TerminationErrorText, text);
}

std::string Set::getSimTerminationType() const {
  return readOutput<std::string>(strings::SimTerminationType);
}
void Set::setSimTerminationType(const std::string& type) {
  writeOutput(strings::TerminationType, type);
}

void Set::beginBulkPropertyUpdate() {
  runUpdate_.begin(getObjectReference());
  if (findOutput()) outputUpdate_.begin(*output_);
}

void Set::commitBulkPropertyUpdate() {
  manager().inTransaction([&] {
    runUpdate_.commit(getObjectReference());
    if (output_) outputUpdate_.commit(*output_);
  });
}

metadata::Value Set::getMetaData(const std::string& name) const {
  return metadata::get(manager(), liveID(), name);
}

void Set::setMetaData(const std::string& name, const kodd::EntryValue& value) {
  manager().inTransaction(
      [&] { metadata::set(manager(), liveID(), strings::DataSet, name, value); });
}

}  // namespace vela
