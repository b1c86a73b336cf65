// What the tests of saving share: a repository with something of everything, and its content as
// text.
#pragma once

#include <boost/uuid/uuid_io.hpp>
#include <map>
#include <set>

#include "datafile/datafile.h"
#include "host/arrays.h"
#include "kodd/hostarraycodec.h"
#include "objects/find.h"
#include "objects/set.h"
#include "saving/savedobjects.h"
#include "saving/saving.h"
#include "tests/objects/signaltest.h"

namespace vela::test {

/// The content of a repository as far as it is saved, an object or a block of samples a line.
/// Objects are told by class and place in creation order, so that two repositories with the
/// same content read the same.
class Content {
 public:
  explicit Content(ObjectManager& manager) : manager_(manager) {
    for (const std::string& className : saving::savedClasses()) {
      int place = 0;
      for (const int id : findIDs(manager, className, {})) {
        if (isCounter(className, id)) continue;
        names_[id] = className + "#" + std::to_string(++place);
        order_.push_back(id);
      }
    }
  }

  std::vector<std::string> lines() {
    std::vector<std::string> lines;
    for (const int id : order_) {
      lines.push_back(line(id));
      if (names_[id].starts_with("Signal#")) addSamples(id, lines);
    }
    return lines;
  }

 private:
  /// The record that counts an instance's runs belongs to no run.
  bool isCounter(const std::string& className, int id) {
    if (className != strings::RunNumberByRunID) return false;
    bool found = false;
    return manager_.findObject(id, className, found)->getPropertyInt32(strings::FK_SetID) == 0;
  }

  std::string line(int id) {
    bool found = false;
    const auto object = manager_.findObject(id, found);
    std::string text = names_[id] + ":";
    std::vector<std::string> properties;
    object->getClassRef().getPropertyNames(properties);
    for (const std::string& name : properties) {
      const kodd::PropertyRef property = object->getClassRef().findProperty(name);
      const bool isOfCopy = name == strings::OLDID || name == strings::InstanceID;
      if (property.kind() == kodd::PropertyKind::collection || isOfCopy) continue;
      text += " " + name + "=" + value(*object, property);
    }
    return text;
  }

  std::string value(const ObjectRef& object, const kodd::PropertyRef& property) {
    if (property.kind() == kodd::PropertyKind::link || property.typeIsClass()) {
      int id = 0;
      kodiag::util::diagnostics diag;
      object.getObjRef().getPropertyValue(property, id, diag);
      return names_.contains(id) ? names_[id] : "none";
    }
    kodd::EntryValue entry;
    object.getProperty(property.name(), entry);
    return kodd::encodeHostArray(kodd::convertEntryValueToHostArray(entry));
  }

  void addSamples(int id, std::vector<std::string>& lines) {
    const auto signal = Signal::getSignalFromID(manager_, id);
    for (const ChunkRow& row : manager_.prepared<ChunkRows>().all(id)) {
      lines.push_back("chunk " + std::to_string(row.number) + " of " +
                      std::to_string(row.points));
    }
    std::vector<double> times;
    std::vector<char> values;
    std::vector<unsigned> epochs;
    signal->readRange(-DBL_MAX, DBL_MAX, times, values, &epochs);
    const std::vector<char> timeBytes = bytesOf(times);
    const std::vector<char> epochBytes = bytesOf(epochs);
    lines.push_back("times " + std::string(timeBytes.begin(), timeBytes.end()) + " values " +
                    std::string(values.begin(), values.end()) + " epochs " +
                    std::string(epochBytes.begin(), epochBytes.end()));
  }

  ObjectManager& manager_;
  std::map<int, std::string> names_;
  std::vector<int> order_;
};

inline std::vector<std::string> contentOf(ObjectManager& manager) {
  std::vector<std::string> lines;
  manager.inReadUnit([&] { lines = Content(manager).lines(); });
  return lines;
}

class SavingTest : public SignalTest {
 protected:
  std::wstring file() const { return wide(folder_ / "saved.dat"); }
  std::string path() const { return (folder_ / "saved.dat").string(); }

  std::unique_ptr<ObjectManager> emptyRepository(const char* name) {
    auto manager = std::make_unique<ObjectManager>(wide(folder_ / name));
    manager->initializeObjectManager("", "");
    return manager;
  }

  boost::shared_ptr<Signal> signalOf(Set& run, const wchar_t* name) {
    auto signal = boost::make_shared<Signal>(*manager_);
    signal->setName(name);
    run.addElement(*signal);
    return signal;
  }

  /// Runs and signals of every kind, all of this instance.
  void fill() {
    manager_->inTransaction([&] {
      fillDescribedRun();
      fillDataTypes();
      fillFamilies();
      fillComparison();
      fillStream();
    });
  }

  void fillDescribedRun() {
    Set run(*manager_, true);
    run.setName(L"\u00fcber <run_index>");
    run.setDescription(L"d");
    run.setModel(L"m");
    run.setSimMode("normal");
    run.setStopTime(-0.0);
    run.setMetaData("text", std::wstring(L"\U0001F600"));
    run.setMetaData("number", 2.5);
    const host::HostArray array =
        host::HostArray::cell({host::HostArray::scalar(1), host::HostArray::text("x")});
    run.setMetaData("array", kodd::EntryValue(&array));
    const auto harness = create(strings::TestHarnessData);
    harness->setPropertyStdString(strings::NameLower, "harness");
    boost::ptr_vector<ObjectRef> outputs;
    manager_->findObjects(strings::OutputMetaData, {}, outputs,
                          {{strings::DataSet, &run.getObjectReference()}});
    outputs.front().setPropertyObject(strings::TestHarnessDataID, *harness);

    const auto speed = signalOf(run, L"speed");
    speed->setUnits(L"m/s");
    speed->setBlockPath({L"m/a", L"b"});
    speed->setChecked({1, 32});
    speed->setMetaData("blob", kodd::EntryValue(kodd::const_BlobDescriptor("a\0b", 3)));
    append(*speed, {0, 1, 1, 2}, {1, -0.0, kNaN, kInfinity}, {7, 7, 8, 8});
    Signal::setMinimumChunkNumBytes(1 << 16);
    for (const double time : {3., 4., 5., 6., 7.}) append(*speed, {time});
    Signal::setMinimumChunkNumBytes(0);
    speed->rollback(6.5);
    signalOf(run, L"empty");
    const auto timeless = signalOf(run, L"timeless");
    timeless->addData(3, "abc", 0, nullptr, 0, 0, 0);
  }

  void fillDataTypes() {
    Set run(*manager_, true);
    for (const builtInDTypeId type :
         {dtypeSingle, dtypeInt8, dtypeUInt8, dtypeInt16, dtypeUInt16, dtypeInt32, dtypeUInt32,
          dtypeBoolean, dtypeInt64, dtypeUInt64, dtypeNull}) {
      const auto signal = signalOf(run, L"typed");
      const long long values[] = {1, 0, 1};
      const double times[] = {0, 1, 2};
      if (type != dtypeNull) signal->addData(values, times, type, nullptr, 3, 0, nullptr);
    }
    using Util = DataTypeUtil;
    std::vector<long long> handles(5);
    Util::createEnumDataType("Gear", {{-1, "reverse"}, {1, "low"}}, "int32", *manager_,
                             handles[0]);
    Util::createFixedPointDataType_BinaryPointScaling(0, 1, 16, 3, *manager_, handles[1]);
    Util::createFixedPointDataType_SlopeBiasScaling(0, 1, 16, 1.5, -3, 0.25, *manager_,
                                                    handles[2]);
    Util::createFixedPointDataType_UnspecifiedScaling(0, 1, 16, *manager_, handles[3]);
    Util::createAliasedDataType("Speed", dtypeSingle, *manager_, handles[4]);
    for (const long long handle : handles) {
      const auto signal = signalOf(run, L"defined");
      setType(*signal, handle);
      const double bytes[] = {0, 1};
      signal->addData(handle == handles[0] ? 8 : 16, bytes, 16, bytes, 0, 1, 2);
    }
  }

  void fillFamilies() {
    Set run(*manager_, true);
    const auto complex = signalOf(run, L"z");
    for (const wchar_t* part : {L"re", L"im"}) {
      const auto child = signalOf(run, part);
      child->setParent(complex);
      append(*child, {0, 1}, {3, 4});
      if (part[0] == L'i') child->markAsImagPart();
    }
    const auto matrix = signalOf(run, L"matrix");
    matrix->setDimensions({2, 1});
    for (unsigned i = 1; i <= 2; ++i) {
      const auto element = signalOf(run, L"element");
      element->setParent(matrix);
      element->markSignalAsChannel({i, 1});
      append(*element, {0.5}, {1.0 * i});
    }
    const auto bus = signalOf(run, L"bus");
    Signal leaf = leafOf(*bus, 4, 12, 8, dtypeInt32);
    run.addElement(leaf);
    auto below = boost::make_shared<Signal>(std::move(leaf));
    below->setParent(bus);
    const int records[] = {1, 2, 3, 4, 5, 6};
    const double times[] = {0, 1};
    bus->addData(24, records, 16, times, 0, 1, 2);
  }

  void fillComparison() {
    Set run(*manager_, false);
    run.setApplication(Set::Application::VELAComparison);
    const std::vector<int> others = Set::getAllVisibleRunIDs(*manager_);
    run.setBaselineSetID(others.front());
    run.setCompareToSetID(others.back());
    const auto comparison = signalOf(run, L"c");
    comparison->setSourceType(Signal::Comparison);
    boost::shared_ptr<Signal> previous = comparison;
    for (const auto type :
         {Signal::Baseline, Signal::CompareTo, Signal::Difference, Signal::Tolerance}) {
      const auto child = signalOf(run, L"part");
      child->setParent(comparison);
      child->setSourceType(type);
      append(*child, {0, 1}, {0, 0});
      // Names a signal that was made later.
      previous->getObjectReference().setPropertyObject(strings::SourceSignal,
                                                       child->getObjectReference());
      previous = child;
    }
  }

  void fillStream() {
    Signal channel(*manager_);
    channel.setName(L"channel");
    append(channel, {0, 1}, {5, 6});
    const auto stream = create(strings::YarrowRuns);
    stream->setPropertyStdString(strings::Name, "stream-1");
    const auto member = create(strings::YarrowSignals);
    member->setPropertyStdString(strings::Name, "stream-1");
    member->setPropertyInt32(strings::FK_SignalID, channel.getID());
    const auto note = create(strings::YarrowMetaData);
    note->setPropertyStdString(strings::StreamUUID, "stream-1");
    note->setPropertyStdString(strings::Name, "key");
  }
};

}  // namespace vela::test
