// What the tests of runs across sessions share: managers of several instances on one file, runs
// with all that can belong to them, and everything stored as text.
#pragma once

#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "objects/datatypes.h"
#include "objects/find.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "objects/strings.h"
#include "sqldb/database.h"
#include "tests/objectmanager/managertest.h"

namespace vela::test {

constexpr long long kOwn = 100;

class LifecycleTest : public ManagerTest {
 protected:
  LifecycleTest() { manager_->setInstanceID(kOwn); }

  std::unique_ptr<ObjectManager> openAs(long long instanceID) const {
    auto manager = std::make_unique<ObjectManager>(location());
    manager->setInstanceID(static_cast<unsigned long long>(instanceID));
    manager->initializeObjectManager("", "");
    return manager;
  }

  /// Runs of an instance that has closed since. \returns their IDs
  std::vector<int> closedInstance(long long instanceID, int runs) {
    const auto manager = openAs(instanceID);
    std::vector<int> ids;
    for (int i = 0; i < runs; ++i) ids.push_back(Set(*manager, true).getID());
    manager->setInstanceClosed();
    return ids;
  }

  Set run() { return Set(*manager_, true); }
  Set handle(int runID) {
    boost::shared_ptr<Set> found;
    EXPECT_TRUE(Set::lookupSet(runID, found, *manager_));
    return std::move(*found);
  }
  bool exists(int runID) {
    boost::shared_ptr<Set> found;
    return Set::lookupSet(runID, found, *manager_);
  }
  int flag(int runID, const std::string& property) {
    return handle(runID).getObjectReference().getPropertyInt32(property);
  }
  void setFlag(int runID, const std::string& property, int value) {
    handle(runID).getObjectReference().setPropertyInt32(property, value);
  }
  long long instanceOf(int runID) {
    return handle(runID).getObjectReference().getPropertyInt64(strings::InstanceID);
  }
  std::vector<int> numbersOf(const std::vector<int>& runs) {
    std::vector<int> numbers;
    for (const int id : runs) numbers.push_back(handle(id).getRunNumber());
    return numbers;
  }

  std::unique_ptr<ObjectRef> naming(const std::string& className, const std::string& property,
                                    ObjectRef& object) {
    auto referrer = create(className);
    referrer->setPropertyObject(property, object);
    return referrer;
  }

  static void append(Signal& signal, const std::vector<double>& times) {
    signal.addData(times.data(), times.data(), dtypeDouble, nullptr,
                   static_cast<unsigned>(times.size()), 0, nullptr);
  }
  static std::vector<double> times(const Signal& signal) {
    std::vector<double> times;
    std::vector<char> values;
    signal.readRange(-HUGE_VAL, HUGE_VAL, times, values);
    return times;
  }

  /// A run that has everything a run can have: a bus with two leaves that read its records, a
  /// signal with units, source, metadata and observers, two harnesses, and records that name
  /// it.
  Set fullRun() {
    Set set = run();
    set.setModel(L"model");
    set.setDescription(L"description");
    set.setMetaData(strings::RunData, std::string("data"));
    set.setRunHasEnumSignals(true);
    naming(strings::InputMetaData, strings::DataSet, set.getObjectReference());
    boost::ptr_vector<ObjectRef> outputs;
    manager_->findObjects(strings::OutputMetaData, {}, outputs);
    for (const std::string* property :
         {&strings::TestHarnessDataID, &strings::TestUnitDataID}) {
      const auto harness = create(strings::TestHarnessData);
      harness->setPropertyStdString(strings::NameLower, *property);
      outputs.back().setPropertyObject(*property, *harness);
    }

    boost::shared_ptr<Signal> bus(new Signal(*manager_));
    set.addElement(*bus);
    const double records[] = {1, 2, 3, 4, 5, 6};
    const double stamps[] = {0, 1, 2};
    bus->addData(sizeof records, records, sizeof stamps, stamps, 0, 2, 3);
    const int busID = bus->getID();
    for (int element = 0; element < 2; ++element) {
      const int bytes = 8;
      const int record = 16;
      const int offset = 8 * element;
      Signal leaf(*manager_);
      leaf.setName(L"leaf");
      leaf.setLeafInfoForCompositeSignal(&bytes, &record, &offset, &busID);
      leaf.setParent(bus);
    }

    Signal plain(*manager_);
    set.addElement(plain);
    plain.setName(L"plain");
    plain.setUnits(L"V");
    plain.setBlockPath({L"model", L"block"});
    plain.setMetaData("note", std::string("kept"));
    plain.setChecked({1, 3});
    plain.getObjectReference().setPropertyObject(strings::SourceSignal,
                                                 bus->getObjectReference());
    append(plain, {1, 2, 3});
    append(plain, {4, 5});
    create(strings::SignalObservers)->setPropertyInt32(strings::SignalID, plain.getID());
    create(strings::PlottedComparisonSignal)
        ->setPropertyInt32(strings::FK_SignalID, plain.getID());
    return set;
  }

  std::map<std::string, std::size_t> census() {
    std::map<std::string, std::size_t> counts;
    std::vector<std::string> names;
    std::string ignored;
    manager_->getPackageAndClass(strings::DataSet, ignored).getClassNames(names);
    for (const std::string& name : names) counts[name] = count(name);
    return counts;
  }

  sqldb::Database& database() { return *manager_->repository().getDB(); }

  /// Every stored value of every object.
  std::string contents() {
    std::vector<std::string> tables;
    {
      sqldb::Statement query = database().statement(
          "SELECT name FROM sqlite_schema WHERE type='table' AND name GLOB 't[0-9]*'");
      while (query.step()) tables.emplace_back(query.text(0));
    }
    std::string all;
    for (const std::string& table : tables) {
      const std::string row = database().queryText(
          "SELECT group_concat('quote('||name||')','||''|''||') FROM pragma_table_info('" +
          table + "')");
      all += table + "\n" +
             database().queryText("SELECT group_concat(r,char(10)) FROM (SELECT " + row +
                                  " AS r FROM " + table + " ORDER BY id)") +
             "\n";
    }
    return all;
  }

  std::vector<std::string> problems() {
    kodiag::util::diagnostics diag;
    std::vector<std::string> found = manager_->repository().integrityProblems(diag);
    diag.raiseIfAny();
    return found;
  }
};

}  // namespace vela::test
