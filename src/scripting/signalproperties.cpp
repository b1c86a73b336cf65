// What is stored with a signal: metadata, shape, sources, names.
#include "kodd/hostarraycodec.h"
#include "objects/classdef.h"
#include "objects/sampletypes.h"
#include "scripting/families.h"
#include "scripting/method.h"
#include "scripting/signalinputs.h"
#include "text/utf8.h"

namespace vela::scripting {
namespace {

using host::HostArray;

Any<"value"> getSignalMetaData(Reading, SignalByID signal, Ascii<"key"> key) {
  return {kodd::convertEntryValueToHostArray(signal->getMetaData(key).value)};
}

// Kept as an array even when it is a single number, so that it comes back as it was.
void setSignalMetaData(Repository, SignalByID signal, Ascii<"key"> key, Any<"value"> value) {
  signal->setMetaData(key, &value.value);
}

HostArray listOf(const std::vector<unsigned>& counts) {
  return toHostArray(std::vector<int>(counts.begin(), counts.end()));
}

HostArray sampleDimsOf(const Signal& signal) {
  return listOf(signal.getDimensions());
}

void setSampleDims(Signal& signal, const HostArray& dims) {
  signal.setDimensions(countsIn(dims, "setSignalSampleDims"));
}

HostArray channelOf(const Signal& signal) {
  return listOf(signal.getChannel());
}

HostArray complexityAndLeafPathOf(const Signal& signal) {
  return HostArray::structure(
      {{"IsComplex", HostArray::scalar(signal.getComplexity() == complexity::complex)},
       {"IsImagPart", HostArray::scalar(signal.getIsImagPartOfComplex())},
       {"LeafBusPath", HostArray::text(signal.getLeafBusSignal())}});
}

std::wstring dataTypeLabelOf(const Signal& signal) {
  const auto type = signal.getDataType();
  const auto enumeration =
      type ? enumerationOf(type->getObjectManager(), type->getObjectID()) : nullptr;
  return text::toWide(enumeration ? enumeration->getName() : signal.getDataTypeLabel());
}

/// Samples of at most one dimension lie across one of time.
int timeDimensionOf(const Signal& signal) {
  const std::size_t dimensions = signal.getDimensions().size();
  return dimensions <= 1 ? 1 : static_cast<int>(dimensions) + 1;
}

Any<"path"> getSignalBlockSource(Reading, SignalByID signal, Flag<"asCell"> asCell) {
  if (!asCell) return {toHostArray(signal->getDisplayBlockPath())};
  std::vector<HostArray> elements;
  for (std::wstring& element : signal->getBlockPath()) {
    elements.push_back(HostArray::text(std::move(element)));
  }
  return {HostArray::cell(std::move(elements))};
}

void setBlockSource(Signal& signal, const std::wstring& path) {
  signal.setBlockPath(pathOf(path));
}

HostArray exportPropertiesOf(const Signal& signal) {
  return *signal.getExportProperties();
}

struct VelaRepositoryGetSignalMetaData
    : Method<"getSignalMetaData",
             "The value kept with a signal under a key; an empty array when there is none.",
             &getSignalMetaData> {};
struct VelaRepositorySetSignalMetaData
    : Method<"setSignalMetaData",
             "Keep any value with a signal under a key, in place of an earlier one.",
             &setSignalMetaData, "nexstore:nex:InvalidData"> {};
struct VelaRepositoryGetSignalSampleDims
    : SignalGetter<"getSignalSampleDims", &sampleDimsOf, Any<"dims">,
                   "Dimensions of one sample of a signal."> {};
struct VelaRepositorySetSignalSampleDims
    : Method<"setSignalSampleDims", "Set the dimensions of one sample of a signal.",
             &set<SignalByID, &setSampleDims, Int32s<"dims">>,
             "nexstore:nex:InvalidDimensions"> {};
struct VelaRepositoryGetSignalChannel
    : SignalGetter<"getSignalChannel", &channelOf, Any<"channel">,
                   "Subscripts, from 1, of the element of its parent that a signal is."> {};
struct VelaRepositoryGetSignalComplexityAndLeafPath
    : SignalGetter<"getSignalComplexityAndLeafPath", &complexityAndLeafPathOf, Any<"info">,
                   "Whether a signal is complex or an imaginary part, and which leaf of a bus "
                   "it is."> {};
struct VelaRepositoryGetSignalDataTypeLabel
    : SignalGetter<"getSignalDataTypeLabel", &dataTypeLabelOf, Wide<"label">,
                   "Name of the type of a signal's samples, or of their enumeration."> {};
struct VelaRepositoryGetSignalTimeDim
    : SignalGetter<"getSignalTimeDim", &timeDimensionOf, Int32<"dim">,
                   "Dimension along which a signal's samples follow each other in time."> {};

struct VelaRepositoryGetSignalBlockSource
    : Method<"getSignalBlockSource",
             "Path to the block a signal comes from: its elements with true, else one text.",
             &getSignalBlockSource> {};
struct VelaRepositorySetSignalBlockSource
    : SignalSetter<"setSignalBlockSource", &setBlockSource, Wide<"path">,
                   "Set the path to the block a signal comes from."> {};
struct VelaRepositoryGetSignalHierarchyReference
    : SignalGetter<"getSignalHierarchyReference", &Signal::getHierarchyReference, Wide<"text">,
                   "Where a signal stands in a hierarchy of its own."> {};
struct VelaRepositorySetSignalHierarchyReference
    : SignalSetter<"setSignalHierarchyReference", &Signal::setHierarchyReference, Wide<"text">,
                   "Set where a signal stands in a hierarchy of its own."> {};
struct VelaRepositorySetLeafBusSignal
    : SignalSetter<"setLeafBusSignal", &Signal::setLeafBusSignal, Wide<"path">,
                   "Set which leaf of a bus a signal is."> {};
struct VelaRepositoryGetSignalTimeSource
    : SignalGetter<"getSignalTimeSource", &Signal::getTimeSource, Wide<"text">,
                   "Where a signal's times come from."> {};
struct VelaRepositoryGetSignalRootSource
    : SignalGetter<"getSignalRootSource", &Signal::getRootSource, Wide<"text">,
                   "What a signal is part of."> {};
struct VelaRepositoryGetRootDataSource
    : SignalGetter<"getRootDataSource", &Signal::getRootDataSource, Wide<"text">,
                   "What the data of a signal are part of."> {};
struct VelaRepositoryGetSignalDataSource
    : SignalGetter<"getSignalDataSource", &Signal::getDataSource, Wide<"text">,
                   "Where a signal's values come from."> {};
struct VelaRepositorySetSignalDataSource
    : SignalSetter<"setSignalDataSource", &Signal::setDataSource, Wide<"text">,
                   "Set where a signal's values come from."> {};
struct VelaRepositoryGetSignalModelSource
    : SignalGetter<"getSignalModelSource", &Signal::getModel, Wide<"model">,
                   "Name of a signal's model."> {};
struct VelaRepositoryGetSignalExportProps
    : SignalGetter<"getSignalExportProps", &exportPropertiesOf, Any<"props">,
                   "What goes along with a signal that is exported."> {};

struct VelaRepositoryGetSignalLabel
    : SignalGetter<"getSignalLabel", &Signal::getName, Wide<"label">, "Name of a signal."> {};
struct VelaRepositorySetSignalLabel
    : SignalSetter<"setSignalLabel", &Signal::setName, Wide<"label">, "Give a signal a name."> {
};
struct VelaRepositoryGetSignalName
    : SignalGetter<"getSignalName", &Signal::getSignalName, Wide<"name">, "Name of a signal."> {
};
struct VelaRepositoryGetSignalSID
    : SignalGetter<"getSignalSID", &Signal::getSID, Wide<"sid">,
                   "Identifier of the block a signal comes from."> {};
struct VelaRepositoryGetUnit
    : SignalGetter<"getUnit", &Signal::getUnits, Wide<"unit">, "Unit of a signal."> {};
struct VelaRepositorySetUnit
    : SignalSetter<"setUnit", &Signal::setUnits, Wide<"unit">, "Set the unit of a signal."> {};
struct VelaRepositoryGetSignalPortIndex
    : SignalGetter<"getSignalPortIndex", &Signal::getPortIndex, Int32<"index">,
                   "Port of its block that a signal comes from."> {};

}  // namespace

void addSignalPropertyMethods(Methods& methods) {
  methods
      .add<VelaRepositoryGetSignalMetaData, VelaRepositorySetSignalMetaData,
           VelaRepositoryGetSignalSampleDims, VelaRepositorySetSignalSampleDims,
           VelaRepositoryGetSignalChannel, VelaRepositoryGetSignalComplexityAndLeafPath,
           VelaRepositoryGetSignalDataTypeLabel, VelaRepositoryGetSignalTimeDim,
           VelaRepositoryGetSignalBlockSource, VelaRepositorySetSignalBlockSource,
           VelaRepositoryGetSignalHierarchyReference, VelaRepositorySetSignalHierarchyReference,
           VelaRepositorySetLeafBusSignal, VelaRepositoryGetSignalTimeSource,
           VelaRepositoryGetSignalRootSource, VelaRepositoryGetRootDataSource,
           VelaRepositoryGetSignalDataSource, VelaRepositorySetSignalDataSource,
           VelaRepositoryGetSignalModelSource, VelaRepositoryGetSignalExportProps,
           VelaRepositoryGetSignalLabel, VelaRepositorySetSignalLabel,
           VelaRepositoryGetSignalName, VelaRepositoryGetSignalSID, VelaRepositoryGetUnit,
           VelaRepositorySetUnit, VelaRepositoryGetSignalPortIndex>();
}

}  // namespace vela::scripting
