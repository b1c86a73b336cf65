// What is stored with a run.
#include "kodd/hostarraycodec.h"
#include "objects/find.h"
#include "objects/strings.h"
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

Any<"data"> getRunData(Reading, Run run) {
  return {kodd::convertEntryValueToHostArray(run->getMetaData(strings::RunData).value)};
}

// Kept as an array even when it is a single number, so that it comes back as it was.
void setRunData(Repository, Run run, Any<"data"> data) {
  run->setMetaData(strings::RunData, &data.value);
}

void setRunStartAndStopTime(Repository repository, Run run, Real<"start"> start,
                            Real<"stop"> stop) {
  repository.manager.inTransaction([&] {
    run->setStartTime(start);
    run->setStopTime(stop);
  });
}

bool hasSignal(ObjectManager& manager, const Set& run,
               const ObjectManager::Constraint& constraint) {
  return findFirstID(manager, strings::Signal,
                     {equals(strings::FK_SetID, run.getID()), constraint}) != 0;
}

Flag<"flag"> runHasEnumSignals(Reading repository, IDNamed<"runID"> id) {
  boost::shared_ptr<Set> run;
  return {Set::lookupSet(id.id, run, repository.manager) && run->getRunHasEnumSignals()};
}

Flag<"flag"> runHasCustomHierarchy(Reading repository, Run run) {
  return {hasSignal(repository.manager, *run,
                    differs(strings::HierarchyReference, std::wstring()))};
}

Flag<"flag"> runHasDataHierarchy(Reading repository, Run run) {
  return {hasSignal(repository.manager, *run, differs(strings::HasDataHierarchy, 0))};
}

const std::string& applicationText(const Set& run) {
  return Set::getStringFromApp(run.getApplication());
}

struct VelaRepositoryGetRunData
    : Method<"getRunData", "The value kept with setRunData; an empty array when there is none.",
             &getRunData> {};
struct VelaRepositorySetRunData
    : Method<"setRunData", "Keep any value with a run, in place of an earlier one.",
             &setRunData, "nexstore:nex:InvalidData"> {};
struct VelaRepositoryGetRunApp
    : RunGetter<"getRunApp", &Set::getApplication, Int32<"application">,
                "Number of the application that owns a run."> {};
struct VelaRepositoryGetRunAppAsString
    : RunGetter<"getRunAppAsString", &applicationText, Any<"application">,
                "Name of the application that owns a run."> {};
struct VelaRepositoryGetRunName : RunGetter<"getRunName", &Set::getName, Wide<"name">,
                                            "Name of a run as it is stored, with its tokens."> {
};
struct VelaRepositorySetRunName
    : RunSetter<"setRunName", &Set::setName, Wide<"name">, "Give a run a name."> {};
struct VelaRepositoryGetRunDisplayName
    : RunGetter<"getRunDisplayName", &Set::getRunDisplayName, Wide<"name">,
                "Name of a run with its tokens replaced."> {};
struct VelaRepositoryGetRunDescription : RunGetter<"getRunDescription", &Set::getDescription,
                                                   Wide<"text">, "Description of a run."> {};
struct VelaRepositorySetRunDescription
    : RunSetter<"setRunDescription", &Set::setDescription, Wide<"text">, "Describe a run."> {};
struct VelaRepositoryGetRunTag
    : RunGetter<"getRunTag", &Set::getTag, Wide<"tag">, "Tag of a run."> {};
struct VelaRepositorySetRunTag
    : RunSetter<"setRunTag", &Set::setTag, Wide<"tag">, "Tag a run."> {};
struct VelaRepositoryGetRunModel
    : RunGetter<"getRunModel", &Set::getModel, Wide<"model">, "Name of a run's model."> {};
struct VelaRepositorySetRunModel
    : RunSetter<"setRunModel", &Set::setModel, Wide<"model">, "Name the model of a run."> {};
struct VelaRepositoryGetRunSimMode
    : RunGetter<"getRunSimMode", &Set::getSimMode, Any<"mode">, "Simulation mode of a run."> {};
struct VelaRepositorySetRunSimMode : RunSetter<"setRunSimMode", &Set::setSimMode, Ascii<"mode">,
                                               "Set the simulation mode of a run."> {};
struct VelaRepositoryGetRunStartTime
    : RunGetter<"getRunStartTime", &Set::getStartTime, Real<"time">,
                "Simulation time at which a run starts."> {};
struct VelaRepositorySetRunStartTime
    : RunSetter<"setRunStartTime", &Set::setStartTime, Real<"time">,
                "Set the simulation time at which a run starts."> {};
struct VelaRepositoryGetRunStopTime
    : RunGetter<"getRunStopTime", &Set::getStopTime, Real<"time">,
                "Simulation time at which a run stops."> {};
struct VelaRepositorySetRunStartAndStopTime
    : Method<"setRunStartAndStopTime",
             "Set the simulation times at which a run starts and stops, both or none.",
             &setRunStartAndStopTime> {};
struct VelaRepositoryGetDateCreated
    : RunGetter<"getDateCreated", &Set::getDate, Any<"date">,
                "When a run was created, in seconds since 1970-01-01 UTC."> {};
struct VelaRepositorySetDateCreated
    : RunSetter<"setDateCreated", &Set::setDate, Real<"date">,
                "Set when a run was created, in seconds since 1970-01-01 UTC."> {};
struct VelaRepositoryGetDateCreatedString
    : RunGetter<"getDateCreatedString", &Set::getDateString, Any<"text">,
                "When a run was created, in local time."> {};
struct VelaRepositoryGetVersion : RunGetter<"getVersion", &Set::getKOVersion, Any<"version">,
                                            "Version of the program that made a run."> {};
struct VelaRepositoryGetRunWasVisualizeOnly
    : RunGetter<"getRunWasVisualizeOnly", &Set::getWasVisualizeOnly, Flag<"flag">,
                "Whether a run was only watched, not logged."> {};
struct VelaRepositorySetRunWasVisualizeOnly
    : RunSetter<"setRunWasVisualizeOnly", &Set::setWasVisualizeOnly, Flag<"flag">,
                "Set whether a run was only watched, not logged."> {};
struct VelaRepositoryGetBaselineRunID
    : RunGetter<"getBaselineRunID", &Set::getBaselineSetID, Int32<"runID">,
                "ID of the run a comparison starts from; 0 when there is none."> {};
struct VelaRepositoryGetCompareToRunID
    : RunGetter<"getCompareToRunID", &Set::getCompareToSetID, Int32<"runID">,
                "ID of the run a comparison compares to; 0 when there is none."> {};
struct VelaRepositoryGetRunIsActivelyStreaming
    : RunGetter<"getRunIsActivelyStreaming", &Set::isActivelyStreaming, Flag<"flag">,
                "Whether a run is being written by a simulation."> {};
struct VelaRepositoryRunHasEnumSignals
    : Method<"runHasEnumSignals",
             "Whether a run has signals of enumerations; false for an ID that names no run.",
             &runHasEnumSignals> {};
struct VelaRepositoryRunHasCustomHierarchy
    : Method<"runHasCustomHierarchy",
             "Whether some signal of a run has a hierarchy reference of its own.",
             &runHasCustomHierarchy> {};
struct VelaRepositoryRunHasDataHierarchy
    : Method<"runHasDataHierarchy", "Whether some signal of a run holds structured data.",
             &runHasDataHierarchy> {};

}  // namespace

void addRunPropertyMethods(Methods& methods) {
  methods.add<
      VelaRepositoryGetRunData, VelaRepositorySetRunData, VelaRepositoryGetRunApp,
      VelaRepositoryGetRunAppAsString, VelaRepositoryGetRunName, VelaRepositorySetRunName,
      VelaRepositoryGetRunDisplayName, VelaRepositoryGetRunDescription,
      VelaRepositorySetRunDescription, VelaRepositoryGetRunTag, VelaRepositorySetRunTag,
      VelaRepositoryGetRunModel, VelaRepositorySetRunModel, VelaRepositoryGetRunSimMode,
      VelaRepositorySetRunSimMode, VelaRepositoryGetRunStartTime, VelaRepositorySetRunStartTime,
      VelaRepositoryGetRunStopTime, VelaRepositorySetRunStartAndStopTime,
      VelaRepositoryGetDateCreated, VelaRepositorySetDateCreated,
      VelaRepositoryGetDateCreatedString, VelaRepositoryGetVersion,
      VelaRepositoryGetRunWasVisualizeOnly, VelaRepositorySetRunWasVisualizeOnly,
      VelaRepositoryGetBaselineRunID, VelaRepositoryGetCompareToRunID,
      VelaRepositoryGetRunIsActivelyStreaming, VelaRepositoryRunHasEnumSignals,
      VelaRepositoryRunHasCustomHierarchy, VelaRepositoryRunHasDataHierarchy>();
}

}  // namespace vela::scripting
