// The properties of a signal that are read and written one by one.
#include <cstring>
#include <utility>

#include "host/arrays.h"
#include "objects/checksum.h"
#include "objects/find.h"
#include "objects/sampletypes.h"
#include "objects/settings.h"
#include "objects/signal.h"
#include "objects/signalstate.h"
#include "objects/strings.h"
#include "objects/textlist.h"
#include "objects/units.h"
#include "text/utf8.h"

namespace vela {
namespace {

template <class T>
std::vector<char> bytesOfList(const std::vector<T>& values) {
  const auto* first = reinterpret_cast<const char*>(values.data());
  return {first, first + values.size() * sizeof(T)};
}

/// The whole elements at the start of a blob.
template <class T>
std::vector<T> listIn(const std::vector<char>& bytes) {
  std::vector<T> values(bytes.size() / sizeof(T));
  if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
  return values;
}

std::vector<char> blobOf(const ObjectRef& object, const std::string& property) {
  std::vector<char> bytes;
  object.getProperty(property, bytes);
  return bytes;
}

/// The part behind the last "/" that stands alone; a doubled one belongs to a name.
std::wstring nameIn(const std::wstring& path) {
  std::size_t start = 0;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] != L'/') continue;
    if (i + 1 < path.size() && path[i + 1] == L'/') {
      ++i;
    } else {
      start = i + 1;
    }
  }
  return path.substr(start);
}

}  // namespace

void Signal::beginBulkPropertyUpdate() {
  bulk_.begin(getObjectReference());
}

void Signal::commitBulkPropertyUpdate() {
  const Pending pending = std::exchange(pending_, {});
  if (pending.isEmpty()) return bulk_.commit(getObjectReference());
  manager().inTransaction([&] {
    if (pending.units) set(strings::UnitsChecksum, unitNumber(manager(), *pending.units));
    // The source that is in place then is the one that is written to.
    bulk_.commit(getObjectReference());
    if (pending.blockPath) writeBlockPath(*pending.blockPath);
    if (pending.sid) writeSID(*pending.sid);
  });
}

std::wstring Signal::getName() const {
  return getObjectReference().getPropertyUString(strings::Name);
}

void Signal::setName(const std::wstring& value) {
  set(strings::Name, value);
}

std::wstring Signal::getSignalName() const {
  return getName();
}

int Signal::getPortIndex() const {
  return getObjectReference().getPropertyInt32(strings::PortIndex);
}

void Signal::setPortIndex(const int& value) {
  set(strings::PortIndex, value);
}

std::unique_ptr<ObjectRef> Signal::findSignalSource() const {
  bool found = false;
  const int id = getSignalSourceID();
  return id == 0 ? nullptr : manager().findObject(id, strings::SignalSource, found);
}

std::unique_ptr<ObjectRef> Signal::signalSourceForWriting() {
  std::unique_ptr<ObjectRef> source = findSignalSource();
  if (source) return source;
  source = manager().createObject(strings::SignalSource, true);
  setSignalSourceID(source->getObjectID());
  return source;
}

std::vector<std::wstring> Signal::getBlockPath() const {
  std::vector<std::wstring> path;
  manager().inReadUnit([&] {
    const auto source = findSignalSource();
    if (source) path = decodeTexts(blobOf(*source, strings::BlockPath));
  });
  return path;
}

void Signal::setBlockPath(const std::vector<std::wstring>& path) {
  if (bulk_.isOpen()) {
    pending_.blockPath = path;
    return;
  }
  writeBlockPath(path);
}

void Signal::writeBlockPath(const std::vector<std::wstring>& path) {
  // A signal without a source has an empty path already.
  if (path.empty() && !findSignalSource()) return;
  const std::vector<char> bytes = encodeTexts(path);
  const long long hash = CheckSum().add({bytes.data(), bytes.size()}).value();
  manager().inTransaction([&] {
    const auto source = signalSourceForWriting();
    source->setPropertyConstBlob(strings::BlockPath, {bytes.data(), bytes.size()});
    source->setPropertyInt64(strings::BlockPathHash, hash);
  });
}

std::wstring Signal::getBlockName() const {
  const std::vector<std::wstring> path = getBlockPath();
  return path.empty() ? std::wstring() : nameIn(path.back());
}

std::wstring Signal::getDisplayBlockPath() const {
  std::wstring display;
  for (const std::wstring& element : getBlockPath()) {
    if (!display.empty()) display += L'|';
    display += element;
  }
  return display;
}

std::wstring Signal::getSID() const {
  std::wstring sid;
  manager().inReadUnit([&] {
    const auto source = findSignalSource();
    if (source) sid = source->getPropertyUString(strings::SID);
  });
  return sid;
}

void Signal::setSID(const std::wstring& sid) {
  if (bulk_.isOpen()) {
    pending_.sid = sid;
    return;
  }
  writeSID(sid);
}

void Signal::writeSID(const std::wstring& sid) {
  if (sid.empty() && !findSignalSource()) return;
  manager().inTransaction(
      [&] { signalSourceForWriting()->setPropertyUString(strings::SID, sid); });
}

int Signal::getSignalSourceID() const {
  return getObjectReference().getPropertyInt32(strings::SignalSourceID);
}

void Signal::setSignalSourceID(const int& value) {
  set(strings::SignalSourceID, value);
}

std::wstring Signal::getUnits() const {
  std::wstring label;
  manager().inReadUnit([&] {
    const long long number = getObjectReference().getPropertyInt64(strings::UnitsChecksum);
    if (number == 0) return;
    const auto unit = findFirst(manager(), strings::Unit, {equals(strings::Checksum, number)});
    if (unit) label = unit->getPropertyUString(strings::Label);
  });
  return label;
}

void Signal::setUnits(const std::wstring& units) {
  if (bulk_.isOpen()) {
    pending_.units = units;
    return;
  }
  manager().inTransaction([&] { set(strings::UnitsChecksum, unitNumber(manager(), units)); });
}

std::wstring Signal::getDataSource() const {
  return getObjectReference().getPropertyUString(strings::DataSource);
}

void Signal::setDataSource(const std::wstring& value) {
  set(strings::DataSource, value);
}

std::wstring Signal::getTimeSource() const {
  return getObjectReference().getPropertyUString(strings::TimeSource);
}

void Signal::setTimeSource(const std::wstring& value) {
  set(strings::TimeSource, value);
}

std::wstring Signal::getRootSource() const {
  return getObjectReference().getPropertyUString(strings::RootSource);
}

void Signal::setRootSource(const std::wstring& value) {
  set(strings::RootSource, value);
}

std::wstring Signal::getRootDataSource() const {
  return getObjectReference().getPropertyUString(strings::RootDataSource);
}

void Signal::setRootDataSource(const std::wstring& value) {
  set(strings::RootDataSource, value);
}

std::wstring Signal::getModel() const {
  return getObjectReference().getPropertyUString(strings::Model);
}

void Signal::setModel(const std::wstring& value) {
  set(strings::Model, value);
}

std::wstring Signal::getHierarchyReference() const {
  return getObjectReference().getPropertyUString(strings::HierarchyReference);
}

void Signal::setHierarchyReference(const std::wstring& value) {
  set(strings::HierarchyReference, value);
}

std::wstring Signal::getLeafBusSignal() const {
  return getObjectReference().getPropertyUString(strings::LeafBusSignal);
}

void Signal::setLeafBusSignal(const std::wstring& value) {
  set(strings::LeafBusSignal, value);
}

std::string Signal::getInterpMethod() const {
  return getObjectReference().getPropertyStdString(strings::InterpSetting);
}

void Signal::setInterpMethod(const std::string& value) {
  requireInterpMethod(value);
  set(strings::InterpSetting, value);
}

std::string Signal::getTimeAlignmentMethod() const {
  return getObjectReference().getPropertyStdString(strings::TimeAlignmentMethod);
}

void Signal::setTimeAlignmentMethod(const std::string& value) {
  requireTimeAlignment(value);
  set(strings::TimeAlignmentMethod, value);
}

std::string Signal::getSamplingMode() const {
  return getObjectReference().getPropertyStdString(strings::SamplingMode);
}

void Signal::setSamplingMode(const std::string& value) {
  set(strings::SamplingMode, value);
}

sampleTimeContinuity Signal::getSampleTimeContinuity() const {
  return static_cast<sampleTimeContinuity>(
      getObjectReference().getPropertyInt32(strings::SampleTimeContinuity));
}

void Signal::setSampleTimeContinuity(const sampleTimeContinuity& value) {
  set(strings::SampleTimeContinuity, static_cast<int>(value));
}

complexity Signal::getComplexity() const {
  return static_cast<complexity>(getObjectReference().getPropertyInt32(strings::Complexity));
}

void Signal::setComplexity(const complexity& value) {
  set(strings::Complexity, static_cast<int>(value));
}

dimsMode Signal::getDimMode() const {
  return static_cast<dimsMode>(getObjectReference().getPropertyInt32(strings::DimensionMode));
}

void Signal::setDimMode(const dimsMode& value) {
  set(strings::DimensionMode, static_cast<int>(value));
}

std::vector<unsigned> Signal::getSubscripts(const std::string& property) const {
  return listIn<unsigned>(blobOf(getObjectReference(), property));
}

void Signal::setSubscripts(const std::string& property, const std::vector<unsigned>& values) {
  bulk_.setBlob(getObjectReference(), property, bytesOfList(values));
}

std::vector<unsigned> Signal::getDimensions() const {
  return getSubscripts(strings::Dimensions);
}

void Signal::setDimensions(const std::vector<unsigned>& dimensions) {
  setSubscripts(strings::Dimensions, dimensions);
}

std::vector<unsigned> Signal::getChannel() const {
  return getSubscripts(strings::Channel);
}

void Signal::setChannel(const std::vector<unsigned>& channel) {
  setSubscripts(strings::Channel, channel);
}

void Signal::markSignalAsChannel(const std::vector<unsigned>& channel) {
  setChannel(channel);
}

std::vector<unsigned char> Signal::getChecked() const {
  return getPlotIndicesFromInt(getObjectReference().getPropertyInt32(strings::Checked));
}

void Signal::setChecked(const std::vector<unsigned char>& plots) {
  set(strings::Checked, getIntFromPlotIndices(plots));
}

ColorTuple Signal::getColor() const {
  const std::vector<double> parts =
      listIn<double>(blobOf(getObjectReference(), strings::Color));
  return parts.size() == 3 ? ColorTuple(parts[0], parts[1], parts[2]) : ColorTuple(0, 0, 0);
}

void Signal::setColor(const ColorTuple& color) {
  const std::vector<double> parts = {color.get<0>(), color.get<1>(), color.get<2>()};
  bulk_.setBlob(getObjectReference(), strings::Color, bytesOfList(parts));
}

Signal::LineStyle Signal::getLineStyle() const {
  return static_cast<LineStyle>(getObjectReference().getPropertyInt32(strings::LineStyle));
}

void Signal::setLineStyle(const LineStyle& value) {
  set(strings::LineStyle, static_cast<int>(value));
}

Signal::Marker Signal::getMarker() const {
  return static_cast<Marker>(getObjectReference().getPropertyInt32(strings::Marker));
}

void Signal::setMarker(const Marker& value) {
  set(strings::Marker, static_cast<int>(value));
}

Signal::SourceType Signal::getSourceType() const {
  return static_cast<SourceType>(getObjectReference().getPropertyInt32(strings::SourceType));
}

void Signal::setSourceType(const SourceType& value) {
  set(strings::SourceType, static_cast<int>(value));
}

double Signal::getFixedIncr() const {
  return getObjectReference().getPropertyReal64(strings::FixedIncr);
}

void Signal::setFixedIncr(const double& value) {
  set(strings::FixedIncr, value);
}

bool Signal::getHasDuplicateTimes() const {
  bool has = false;
  manager().inReadUnit([&] {
    SignalStates& states = manager().prepared<SignalStates>();
    const SignalState state = states.read(getObjectReference().getObjRef());
    has =
        (state.isCompositeLeaf() ? states.read(state.dataOwner) : state).hasDuplicateTimes != 0;
  });
  return has;
}

void Signal::setHasDuplicateTimes(bool value) {
  set(strings::HasDuplicateTimes, int{value});
}

bool Signal::getIsImagPartOfComplex() const {
  return getObjectReference().getPropertyInt32(strings::IsImagPartOfComplex) != 0;
}

void Signal::setIsImagPartOfComplex(const bool& value) {
  set(strings::IsImagPartOfComplex, int{value});
}

void Signal::markAsImagPart() {
  setIsImagPartOfComplex(true);
}

long long Signal::getInstrumentedSignalUUID() const {
  return getObjectReference().getPropertyInt64(strings::InstrumentedSignalUUID);
}

void Signal::setInstrumentedSignalUUID(const long long& uuid) {
  set(strings::InstrumentedSignalUUID, uuid);
}

void Signal::setInstanceID(const long long& id) {
  set(strings::InstanceID, id);
}

void Signal::setSignalID(const int& value) {
  set(strings::SignalID, value);
}

bool Signal::getSignalSupportsThinning() const {
  return getObjectReference().getPropertyInt32(strings::SupportsThinning) != 0;
}

void Signal::setSignalSupportsThinning(const bool& value) {
  set(strings::SupportsThinning, int{value});
}

void Signal::setIsSimStepperEnabled(const bool& value) {
  set(strings::SimStepperEnabled, int{value});
}

bool Signal::getIsActivelyStreaming() const {
  return getObjectReference().getPropertyInt32(strings::IsActivelyStreaming) != 0;
}

void Signal::setIsActivelyStreaming(const bool& value) {
  set(strings::IsActivelyStreaming, int{value});
}

void Signal::setObservedElemSize(const int& value) {
  set(strings::ObservedElemSize, value);
}

void Signal::setLeafInfoForCompositeSignal(const int* observedElemSize,
                                           const int* compositeDataSize,
                                           const int* compositeSigByteOffset,
                                           const int* idOfSignalWhoHasMyData) {
  const ObjectRef& object = getObjectReference();
  const auto valueOf = [&](const int* given, const std::string& property) {
    return given ? *given : object.getPropertyInt32(property);
  };
  const long long element = valueOf(observedElemSize, strings::ObservedElemSize);
  const long long record = valueOf(compositeDataSize, strings::CompositeDataSize);
  const long long offset = valueOf(compositeSigByteOffset, strings::CompositeSigByteOffset);
  if (element < 0 || record < 0 || offset < 0 || (record > 0 && offset + element > record)) {
    kodiag::raise({"nexstore:nex", "InvalidData"},
                  {{"Operation", "Making signal " + std::to_string(getID()) + " a leaf"},
                   {"Reason", "an element of " + std::to_string(element) + " bytes at " +
                                  std::to_string(offset) + " does not lie within a record of " +
                                  std::to_string(record) + " bytes"}});
  }
  const auto write = [&](const int* given, const std::string& property) {
    if (given) set(property, *given);
  };
  write(observedElemSize, strings::ObservedElemSize);
  write(compositeDataSize, strings::CompositeDataSize);
  write(compositeSigByteOffset, strings::CompositeSigByteOffset);
  write(idOfSignalWhoHasMyData, strings::IdOfSignalWhoHasMyData);
}

std::unique_ptr<ObjectRef> Signal::getDataType() const {
  std::unique_ptr<ObjectRef> type;
  getObjectReference().getPropertyObject(strings::DataTypeID, type, strings::DataType);
  if (type && type->isNull()) type.reset();
  return type;
}

void Signal::setDataType(ObjectRef& type) {
  set(strings::DataTypeID, type.getObjRef());
}

std::string Signal::getDataTypeLabel() const {
  std::string label;
  manager().inReadUnit([&] {
    const auto type = getDataType();
    if (type) label = typeLabelOf(manager(), type->getObjectID());
  });
  return label;
}

std::unique_ptr<fxpDataTypeProp> Signal::getFxpProps() const {
  std::unique_ptr<fxpDataTypeProp> properties;
  manager().inReadUnit([&] {
    const auto type = getDataType();
    const auto found = type ? fixedPointTypeOf(manager(), type->getObjectID()) : std::nullopt;
    if (found) properties = std::make_unique<fxpDataTypeProp>(*found);
  });
  return properties;
}

double Signal::getAbsTol() const {
  return getObjectReference().getPropertyReal64(strings::Abs);
}

void Signal::setAbsTol(const double& value) {
  requireTolerance("absolute tolerance", value);
  set(strings::Abs, value);
}

double Signal::getRelTol() const {
  return getObjectReference().getPropertyReal64(strings::Rel);
}

void Signal::setRelTol(const double& value) {
  requireTolerance("relative tolerance", value);
  set(strings::Rel, value);
}

bool Signal::getIsWithinTol() const {
  return getObjectReference().getPropertyInt32(strings::IsWithinTol) != 0;
}

void Signal::setIsWithinTol(const bool& value) {
  set(strings::IsWithinTol, int{value});
}

std::wstring Signal::getAlignedBy() const {
  return getObjectReference().getPropertyUString(strings::AlignedBy);
}

void Signal::setAlignedBy(const std::wstring& value) {
  set(strings::AlignedBy, value);
}

long long Signal::getObserverUUID() const {
  long long uuid = 0;
  manager().inReadUnit([&] {
    const auto observer =
        findFirst(manager(), strings::SignalObservers, {equals(strings::SignalID, liveID())});
    if (observer) uuid = observer->getPropertyInt64(strings::ClientUUID);
  });
  return uuid;
}

metadata::Value Signal::getMetaData(const std::string& name) const {
  return metadata::get(manager(), liveID(), name);
}

void Signal::setMetaData(const std::string& name, const kodd::EntryValue& value) {
  manager().inTransaction(
      [&] { metadata::set(manager(), liveID(), strings::Signal, name, value); });
}

std::vector<char> Signal::getBlobMetaData(const std::string& name) const {
  metadata::Value value = getMetaData(name);
  const bool isBlob = std::holds_alternative<kodd::const_BlobDescriptor>(value.value);
  return isBlob ? std::move(value.bytes) : std::vector<char>();
}

std::unique_ptr<host::HostArray> Signal::getExportProperties() const {
  using host::HostArray;
  HostArray::Fields fields;
  manager().inReadUnit([&] {
    std::vector<HostArray> path;
    for (std::wstring& element : getBlockPath()) {
      path.push_back(HostArray::text(std::move(element)));
    }
    const std::size_t elements = path.size();
    fields = {{"Name", HostArray::text(getName())},
              {"PortIndex", HostArray::scalar(getPortIndex())},
              {"BlockPath", HostArray::cell({elements, 1}, std::move(path))},
              {"Interp", HostArray::text(getInterpMethod())},
              {"Units", HostArray::text(getUnits())},
              {"HasDuplicateTimes", HostArray::scalar(int{getHasDuplicateTimes()})}};
  });
  return std::make_unique<HostArray>(HostArray::structure(std::move(fields)));
}

}  // namespace vela
