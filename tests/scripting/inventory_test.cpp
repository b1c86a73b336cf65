// The names and declared types of all methods.
#include <algorithm>
#include <set>

#include "kodiag/catalog.h"
#include "scriptingtest.h"

namespace vela {
namespace {

using testing::UnorderedElementsAreArray;

// "R" stands for an input "vela.Repository"; "?" marks what may be left out, "..." that more
// inputs are taken.
const char* const kInventory[] = {
    "Repository(any?, logical scalar?) -> vela.Repository",
    "createObject(R, asciiString) -> int32 scalar",
    "removeObject(R, int32 scalar)",
    "setProperty(R, int32 scalar, any?, ...)",
    "getProperty(R, int32 scalar, asciiString, logical scalar?) -> any",
    "addChild(R, int32 scalar, int32 scalar)",
    "removeChild(R, int32 scalar, int32 scalar)",
    "getChildren(R, int32 scalar, asciiString) -> any",
    "findObjects(R, asciiString, any?, ...) -> any",
    "getSource(R) -> any",
    "getLock(R) -> any",
    "setLock(R, any)",
    "beginTransaction(R)",
    "commitTransaction(R)",
    "rollbackTransaction(R)",
    "safeTransaction(R, any, ...) -> any",
    "load(R, unicodeString, asciiString?)",
    "save(R, unicodeString, asciiString?)",
    "getQueryLog() -> any",
    "purgeQueryLog()",
    "enableDBTrace()",
    "enableDBProfile()",
    "getTracerResults() -> any",
    "resetTracer()",
    "throwCorruptDatabase(any?)",
    "hasBeenCreated() -> logical scalar",
    "sessionRequiresRaccelImport() -> logical scalar",
    "setPersistentDMRFeature(int32 scalar, any?, ...) -> int32 scalar",
    "clearRepositoryFile()",
    "createRun(R, unicodeString) -> int32 scalar",
    "createEmptyRun(R, unicodeString, any) -> int32 scalar",
    "createViewRun(R, unicodeString) -> int32 scalar",
    "createComparisonRun(R, unicodeString, int32 scalar, int32 scalar) -> int32 scalar",
    "copyRun(R, any, asciiString) -> int32 scalar",
    "getRunData(R, any) -> any",
    "setRunData(R, any, any)",
    "removeRun(R, any)",
    "deleteAllRuns(R, asciiString?)",
    "deleteRunsAndSignals(R, int32 vector, logical scalar)",
    "purgeDeletedRuns(R)",
    "hasDataFromPriorSession(R, asciiString?) -> logical scalar",
    "discardDataFromPriorSession(R)",
    "importDataFromPriorSession(R)",
    "importCompletedRapidAccelRuns(R) -> int32 vector",
    "addSignal(R, any, any)",
    "getSignalCount(R, any) -> int32 scalar",
    "getRunCount(R) -> int32 scalar",
    "getRunID(R, int32 scalar) -> any",
    "getRunIDByIndex(R, int32 scalar) -> int32 scalar",
    "getAllRunIDs(R, asciiString?) -> any",
    "getAllSignalIDs(R, any, asciiString?) -> any",
    "getRunApp(R, any) -> int32 scalar",
    "getRunAppAsString(R, any) -> any",
    "getRunName(R, any) -> unicodeString",
    "setRunName(R, any, unicodeString)",
    "getRunDisplayName(R, any) -> unicodeString",
    "getRunDescription(R, any) -> unicodeString",
    "setRunDescription(R, any, unicodeString)",
    "getRunTag(R, any) -> unicodeString",
    "setRunTag(R, any, unicodeString)",
    "getRunModel(R, any) -> unicodeString",
    "setRunModel(R, any, unicodeString)",
    "getRunSimMode(R, any) -> any",
    "setRunSimMode(R, any, asciiString)",
    "getRunNumber(R, any) -> int32 scalar",
    "setRunNumber(R, any, int32 scalar)",
    "getRunIndex(R, any) -> int32 scalar",
    "setRunIndex(R, any, int32 scalar)",
    "getRunStartTime(R, any) -> double scalar",
    "setRunStartTime(R, any, double scalar)",
    "getRunStopTime(R, any) -> double scalar",
    "setRunStartAndStopTime(R, any, double scalar, double scalar)",
    "getDateCreated(R, any) -> any",
    "setDateCreated(R, any, double scalar)",
    "getDateCreatedString(R, any) -> any",
    "getVersion(R, any) -> any",
    "getRunWasVisualizeOnly(R, any) -> logical scalar",
    "setRunWasVisualizeOnly(R, any, logical scalar)",
    "getOverwrite(R, any) -> any",
    "setOverwrite(R, any, logical scalar)",
    "getOverWriteSetID(R) -> int32 scalar",
    "getPriorOverwriteRunID(R) -> int32 scalar",
    "uncheckOverwrittenSignals(R) -> int32 scalar",
    "uncheckAllSignalsInRun(R, any)",
    "getBaselineRunID(R, any) -> int32 scalar",
    "getCompareToRunID(R, any) -> int32 scalar",
    "getCurrentStreamingRunID(R, asciiString) -> int32 scalar",
    "getRunIsActivelyStreaming(R, any) -> logical scalar",
    "isValidRunID(R, any) -> any",
    "getRunNameTemplate(R) -> unicodeString",
    "setRunNameTemplate(R, unicodeString)",
    "restoreRunNameTemplate(R)",
    "getHighestRunNumber(R) -> int32 scalar",
    "setHighestRunNumber(R, int32 scalar)",
    "getShowRunAtTop(R) -> logical scalar",
    "setShowRunAtTop(R, logical scalar)",
    "addPausedModel(R, double scalar, any)",
    "removePausedModel(R, double scalar)",
    "getRunIDFromModel(R, double scalar) -> int32 scalar",
    "updatePausedModelRunID(R, any, any)",
    "getRunHarnessModelMetaData(R, any) -> any",
    "setRunHarnessModelMetaData(R, any, any)",
    "getUniqueRunAndSignalIDs(R, int32 vector, int32 vector) -> int32 vector, int32 vector, "
    "any",
    "getCheckedSignalsFromDbIDs(R, int32 vector) -> int32 vector",
    "runHasEnumSignals(R, any) -> logical scalar",
    "runHasCustomHierarchy(R, any) -> logical scalar",
    "runHasDataHierarchy(R, any) -> logical scalar",
    "createSignal(R, int32 scalar) -> int32 scalar",
    "createDoubleScalarSignal(R, int32 scalar) -> int32 scalar",
    "add(R, any, any, unicodeString, unicodeString, unicodeString, any, unicodeString, "
    "unicodeString, unicodeString, any, any, any, any, any, any, any, any, int32 scalar, any?, "
    "any?, ...) -> int32 scalar",
    "appendSignalData(R, any, any, any)",
    "getSignalDataValues(R, any, logical scalar?, double scalar?, double scalar?, any?) -> any",
    "setSignalDataValues(R, any, any)",
    "getHierarchicalSignalData(R, any) -> any",
    "getLeafDataFromStructuredData(R, any, any, double scalar) -> any",
    "getNumberOfChunks(R, any) -> int32 scalar",
    "rollback(R, any, double scalar)",
    "remove(R, any)",
    "mergeSignals(R, any, any)",
    "setParent(R, any, any)",
    "getSignalParent(R, any) -> int32 scalar",
    "getSignalChildren(R, any) -> any",
    "getSignalSource(R, any) -> int32 scalar",
    "findCopiedCompareSignal(R, any) -> int32 scalar",
    "findAlignedSignalFromRun(R, any, any) -> int32 scalar",
    "addSignalComparison(R, any, logical scalar, unicodeString, any, any, any, any) -> int32 "
    "scalar, int32 vector",
    "updateSignalComparison(R, any, any, any, logical scalar)",
    "getIsWithinTol(R, any) -> logical scalar",
    "getSignalAbsTol(R, any) -> double scalar",
    "setSignalAbsTol(R, any, double scalar)",
    "getSignalRelTol(R, any) -> double scalar",
    "setSignalRelTol(R, any, double scalar)",
    "getSignalAlignedBy(R, any) -> unicodeString",
    "getSignalSyncMethod(R, any) -> any",
    "setSignalSyncMethod(R, any, any)",
    "getSignalInterpMethod(R, any) -> any",
    "setSignalInterpMethod(R, any, any)",
    "getSignalLineColor(R, any) -> any",
    "setSignalLineColor(R, any, any)",
    "getSignalLineDashed(R, any) -> any",
    "setSignalLineDashed(R, any, asciiString)",
    "getSignalMarker(R, any) -> any",
    "setSignalMarker(R, any, asciiString)",
    "getSignalSourceType(R, any) -> any",
    "setSignalSourceType(R, any, asciiString)",
    "getSignalMetaData(R, any, asciiString) -> any",
    "setSignalMetaData(R, any, asciiString, any)",
    "getSignalChecked(R, any) -> uint8 vector",
    "setSignalChecked(R, any, uint8 vector)",
    "getSignalSampleDims(R, any) -> any",
    "setSignalSampleDims(R, any, int32 vector)",
    "getSignalChannel(R, any) -> any",
    "getSignalComplexityAndLeafPath(R, any) -> any",
    "getSignalBlockSource(R, any, logical scalar) -> any",
    "setSignalBlockSource(R, any, unicodeString)",
    "getSignalHierarchyReference(R, any) -> unicodeString",
    "setSignalHierarchyReference(R, any, unicodeString)",
    "setLeafBusSignal(R, any, unicodeString)",
    "getSignalTimeSource(R, any) -> unicodeString",
    "getSignalRootSource(R, any) -> unicodeString",
    "getRootDataSource(R, any) -> unicodeString",
    "getSignalDataSource(R, any) -> unicodeString",
    "setSignalDataSource(R, any, unicodeString)",
    "getSignalModelSource(R, any) -> unicodeString",
    "getSignalExportProps(R, any) -> any",
    "getSignalLabel(R, any) -> unicodeString",
    "setSignalLabel(R, any, unicodeString)",
    "getSignalName(R, any) -> unicodeString",
    "getSignalSID(R, any) -> unicodeString",
    "getUnit(R, any) -> unicodeString",
    "setUnit(R, any, unicodeString)",
    "getSignalDataTypeLabel(R, any) -> unicodeString",
    "getSignalPortIndex(R, any) -> int32 scalar",
    "getSignalRunID(R, any) -> int32 scalar",
    "getSignalTimeDim(R, any) -> int32 scalar",
    "getSignalIDByDataSource(R, unicodeString) -> int32 scalar",
    "getSignalIDByIndex(R, any, int32 scalar) -> int32 scalar",
    "getAllCheckedSignals(R, asciiString?) -> any",
    "getLeavesForInstrumentedSignal(R, any, int64 scalar) -> any",
    "getHierarchicalSignalRootID(R, any) -> int32 scalar",
    "signalIsInHierarchy(R, any) -> logical scalar",
    "signalIsEmpty(R, any) -> logical scalar",
    "isEnum(R, any) -> any",
    "isValidSignal(R, any) -> any",
    "isSignalCountZero(R) -> any",
    "isSignalStreamed(R, int32 scalar, any, int32 scalar) -> logical scalar",
    "getSignalIsActivelyStreaming(R, any) -> logical scalar",
    "clearMinMaxDirectReadOkayFlag(R, any)",
    "resetSignalColors(R)",
};

void append(std::string& list, const std::string& item) {
  if (list.back() != '(') list += ", ";
  list += item;
}

std::string textOf(const host::COSMethodInfo& method) {
  std::string text = method.name() + "(";
  for (const host::Parameter& input : method.signature().inputs()) {
    append(text, (input.type == "vela.Repository" ? "R" : input.type) +
                     (input.isOptional ? "?" : ""));
  }
  if (method.signature().acceptsMoreInputs()) append(text, "...");
  text += ")";
  std::string separator = " -> ";
  for (const host::Parameter& output : method.signature().outputs()) {
    text += std::exchange(separator, ", ") + output.type;
  }
  return text;
}

TEST(ScriptingInventoryTest, DeclaresEveryMethodWithItsTypes) {
  std::vector<std::string> declared;
  for (const auto& method : test::ScriptObject::classInfo().methodInfos()) {
    declared.push_back(textOf(*method));
  }
  EXPECT_THAT(declared, UnorderedElementsAreArray(kInventory));
}

TEST(ScriptingInventoryTest, DescribesWhatPeopleSee) {
  const host::COSClassInfo& cls = test::ScriptObject::classInfo();
  EXPECT_EQ(cls.shortDescription(), "Korvo VELA Data container");
  EXPECT_EQ(cls.longDescription(), "Korvo VELA Data Container");
  EXPECT_TRUE(cls.mayBeConstructed());
  EXPECT_FALSE(cls.hasProperty("Name"));
  EXPECT_FALSE(cls.isSealed());
  const std::vector<std::string> known = kodiag::catalogIDs();
  for (const auto& method : cls.methodInfos()) {
    SCOPED_TRACE(method->name());
    EXPECT_TRUE(method->documentation().ends_with('.'));
    EXPECT_FALSE(method->signature().acceptsMoreOutputs());
    for (const std::string& id : method->raisedIDs()) {
      EXPECT_TRUE(std::ranges::binary_search(known, id)) << id;
    }
    std::set<std::string> names;
    for (const host::Parameter& input : method->signature().inputs()) {
      EXPECT_TRUE(names.insert(input.name).second) << input.name;
    }
  }
}

}  // namespace
}  // namespace vela
