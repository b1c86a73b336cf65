#include "objects/salvage.h"

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>

#include "objects/find.h"
#include "objects/salvagecopier.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "objects/strings.h"
#include "text/utf8.h"

namespace vela {
namespace {

using kodd::SalvagedObject;
using kodd::SalvageReader;

/// Beyond these, a run number or place in the list is damage, and would use the counters up.
constexpr int kLargestCounter = 1'000'000'000;

/// What signals share, in an order in which nothing refers to what comes later.
const std::vector<std::string>& descriptionClasses() {
  static const std::vector<std::string> names = {strings::TestHarnessData,
                                                 strings::ClassDefinition,
                                                 strings::FixedPointBinaryPointScaling,
                                                 strings::FixedPointSlopeBiasScaling,
                                                 strings::FixedPointUnspecifiedScaling,
                                                 strings::DataType,
                                                 strings::Unit,
                                                 strings::SignalSource};
  return names;
}

/// What is nothing without the object it belongs to, with the property that names that one.
const std::vector<std::pair<std::string, std::string>>& ownedClasses() {
  static const std::vector<std::pair<std::string, std::string>> names = {
      {strings::EnumerationValue, strings::ClassDefinition},
      {strings::OutputMetaData, strings::DataSet},
      {strings::InputMetaData, strings::DataSet},
      {strings::RunNumberByRunID, strings::FK_SetID},
      {strings::MetaData, strings::FK_ParentID}};
  return names;
}

int integer(const SalvagedObject& object, const std::string& property) {
  return static_cast<int>(object.integer(property));
}

std::wstring runNameOf(ObjectManager& manager, int runID) {
  boost::shared_ptr<Set> run;
  return Set::lookupSet(runID, run, manager) ? run->getRunDisplayName() : std::wstring();
}

/// Widens the span of list places the manager's instance knows of.
void noteOrderIndexes(ObjectManager& manager, const std::vector<SalvagedObject>& runs) {
  const auto record = findFirst(manager, strings::MinMaxOrderIndex,
                                {equals(strings::InstanceID, manager.getInstanceID())});
  if (!record) return;
  int least = record->getPropertyInt32(strings::MinIndex);
  int greatest = record->getPropertyInt32(strings::MaxIndex);
  for (const SalvagedObject& run : runs) {
    least = std::min(least, integer(run, strings::OrderIndex));
    greatest = std::max(greatest, integer(run, strings::OrderIndex));
  }
  record->setPropertyInt32(strings::MinIndex, least);
  record->setPropertyInt32(strings::MaxIndex, greatest);
}

}  // namespace

Salvage::Salvage(const std::string& file)
    : reader_(file, ObjectManager::getSchemaPath({})), chunks_(reader_) {
  for (const std::string& name : descriptionClasses()) read(name);
  read(strings::DataSet);
  read(strings::Signal);
  for (const auto& [name, owner] : ownedClasses()) read(name);
  breakCircles();
  if (chunks_.isIncomplete()) {
    losses_.push_back({{}, {}, 0, "part of the objects of class \"Chunk\" cannot be read"});
  }
  if (const std::size_t lost = chunks_.countOfOthers(objects(strings::Signal)); lost > 0) {
    losses_.push_back({{},
                       {},
                       static_cast<long long>(lost),
                       std::to_string(lost) + " chunks belong to signals that are lost"});
  }
}

void Salvage::read(const std::string& className) {
  const kodd::ClassRef cls = reader_.metamodel().findPackage("vela").findClass(className);
  SalvageReader::Objects found = reader_.readAll(cls, SalvageReader::Blobs::read);
  if (!found.complete) {
    losses_.push_back(
        {{}, {}, 0, "part of the objects of class \"" + className + "\" cannot be read"});
  }
  objects_[className] = std::move(found.objects);
}

/// Takes signals that are above themselves, or that lie in another run than the one above them,
/// to the top.
void Salvage::breakCircles() {
  std::unordered_map<int, SalvagedObject*> signals;
  for (SalvagedObject& signal : objects(strings::Signal)) signals[signal.id()] = &signal;
  const auto parentOf = [&](const SalvagedObject& signal) {
    const auto parent = signals.find(integer(signal, strings::FK_Parent));
    return parent == signals.end() ? nullptr : parent->second;
  };
  std::set<int> sound;  // whose way up ends
  for (auto& [id, signal] : signals) {
    std::set<int> way;
    for (SalvagedObject* at = signal; at && !sound.contains(at->id()); at = parentOf(*at)) {
      way.insert(at->id());
      const SalvagedObject* const parent = parentOf(*at);
      const bool fits = parent && !way.contains(parent->id()) &&
                        integer(*parent, strings::FK_SetID) == integer(*at, strings::FK_SetID);
      if (parent && !fits) at->set(strings::FK_Parent, 0);
    }
    sound.merge(way);
    // Records lie in the signal that is named, never one further on.
    const auto owner = signals.find(integer(*signal, strings::IdOfSignalWhoHasMyData));
    if (owner != signals.end() &&
        integer(*owner->second, strings::IdOfSignalWhoHasMyData) != 0) {
      signal->set(strings::IdOfSignalWhoHasMyData, 0);
    }
  }
}

bool Salvage::isEmpty() const {
  return objects_.at(strings::DataSet).empty() && objects_.at(strings::Signal).empty();
}

SalvageReport Salvage::storeInto(ObjectManager& manager, const Progress& progress) {
  SalvageReport report;
  manager.inTransaction([&] {
    SalvageCopier copier(manager);
    report.losses = losses_;
    copyDescriptions(copier);
    copyRuns(copier, manager);
    copySignals(copier, manager);
    copyOwned(copier, manager);
    copySamples(copier, manager, report, progress);
  });
  return report;
}

void Salvage::copyDescriptions(SalvageCopier& copier) {
  for (const std::string& name : descriptionClasses()) {
    // Path and test data belong to the signals and runs that name them, enumerations to the
    // session that made them.
    const bool isShared =
        name == strings::DataType || name == strings::Unit || name.starts_with("FixedPoint");
    for (const SalvagedObject& object : objects(name)) {
      if (isShared) {
        copier.copyShared(object);
      } else {
        copier.copy(object);
      }
    }
  }
}

void Salvage::copyRuns(SalvageCopier& copier, ObjectManager& manager) {
  for (SalvagedObject& run : objects(strings::DataSet)) {
    run.set(strings::IsActivelyStreaming, 0);
    run.set(strings::PriorOverwrittenRun, 0);
    run.set(strings::OrderIndex,
            std::clamp(integer(run, strings::OrderIndex), -kLargestCounter, kLargestCounter));
    copier.copy(run);
  }
  for (const SalvagedObject& run : objects(strings::DataSet)) copier.linkAgain(run);
  noteOrderIndexes(manager, objects(strings::DataSet));
}

void Salvage::copySignals(SalvageCopier& copier, ObjectManager& manager) {
  std::set<int> parents;
  for (const SalvagedObject& signal : objects(strings::Signal)) {
    parents.insert(integer(signal, strings::FK_Parent));
  }
  for (SalvagedObject& signal : objects(strings::Signal)) {
    signal.set(strings::IsActivelyStreaming, 0);
    signal.set(strings::HasChildren, parents.contains(signal.id()) ? 1 : 0);
    copier.copy(signal);
  }
  for (const SalvagedObject& signal : objects(strings::Signal)) {
    copier.linkAgain(signal);
    if (copier.newID(signal, strings::FK_SetID) != 0) continue;
    bool found = false;
    const auto copy = manager.findObject(copier.newID(signal.id()), strings::Signal, found);
    copy->setPropertyInt32(strings::FK_SetID, recoveredRun(manager));
  }
}

int Salvage::recoveredRun(ObjectManager& manager) {
  if (recoveredRun_ == 0) {
    Set run(manager, false);
    run.setName(L"Recovered");
    recoveredRun_ = run.getID();
  }
  return recoveredRun_;
}

void Salvage::copyOwned(SalvageCopier& copier, ObjectManager& manager) {
  int highestNumber = Set::getHighestRunNumber(manager);
  for (const auto& [name, owner] : ownedClasses()) {
    for (SalvagedObject& object : objects(name)) {
      if (copier.newID(object, owner) == 0) continue;
      if (name == strings::RunNumberByRunID) {
        const int number = std::clamp(integer(object, strings::RunNumber), 0, kLargestCounter);
        object.set(strings::RunNumber, number);
        highestNumber = std::max(highestNumber, number);
      }
      copier.copy(object);
    }
  }
  Set::setHighestRunNumber(manager, highestNumber);
}

void Salvage::copySamples(const SalvageCopier& copier, ObjectManager& manager,
                          SalvageReport& report, const Progress& progress) {
  std::map<int, SalvageReport::Run> runs;
  for (const SalvagedObject& run : objects(strings::DataSet)) {
    const int id = copier.newID(run.id());
    runs[id] = {id, runNameOf(manager, id)};
  }
  std::uint64_t bytes = 0;
  for (const SalvagedObject& signal : objects(strings::Signal)) {
    bool found = false;
    const auto copy = manager.findObject(copier.newID(signal.id()), strings::Signal, found);
    SalvageReport::Run& run = runs[copy->getPropertyInt32(strings::FK_SetID)];
    if (run.id == 0) {
      run.id = recoveredRun_;
      run.name = runNameOf(manager, recoveredRun_);
    }
    const SalvageChunks::Outcome outcome = chunks_.copy(
        signal, manager, *copy, [&](std::uint64_t more) { progress(bytes += more); });
    ++run.signals;
    run.samples += outcome.samples;
    if (outcome.lost == 0) continue;
    const std::wstring name = text::toWide(signal.bytes(strings::Name));
    report.losses.push_back({run.name, name, outcome.lost,
                             "signal \"" + text::toUtf8(name) + "\" of run \"" +
                                 text::toUtf8(run.name) + "\" lost " +
                                 std::to_string(outcome.lost) + " of its chunks of samples"});
  }
  for (const auto& [id, run] : runs) report.runs.push_back(run);
}

}  // namespace vela
