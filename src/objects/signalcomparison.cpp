#include "objects/signalcomparison.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "kodiag/catalog.h"
#include "kodiag/message.h"
#include "objects/find.h"
#include "objects/set.h"
#include "objects/signalremoval.h"
#include "objects/strings.h"
#include "text/utf8.h"

namespace vela {
namespace {

using SignalPtr = boost::shared_ptr<Signal>;
using SourceType = Signal::SourceType;

const ColorTuple kDifferenceColor(1., 0., 0.);
const ColorTuple kToleranceColor(0., 0.8, 0.2);

[[noreturn]] void refuse(const std::string& operation, const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", operation}, {"Reason", reason}});
}

std::wstring named(const kodiag::MessageID& id, const std::wstring& signalName) {
  return text::toWide(kodiag::catalogText(id, {{"SignalName", text::toUtf8(signalName)}}));
}

SignalPtr handleTo(ObjectManager& manager, int id) {
  return SignalPtr(Signal::getSignalFromID(manager, id).release());
}

void requireOwnSource(Signal& signal, ObjectManager& manager) {
  if (signal.getSignalSourceID() != 0) return;
  signal.setSignalSourceID(manager.createObject(strings::SignalSource, true)->getObjectID());
}

/// A signal and all below it, every one behind its parent.
struct Tree {
  std::vector<SignalPtr> signals;
  std::vector<std::size_t> parents;  ///< places in `signals`; 0 for the first
  std::set<int> recordOwners;        ///< signals whose samples are records the leaves read

  explicit Tree(Signal& top) {
    ObjectManager& manager = top.getObjectReference().getObjectManager();
    std::map<int, std::size_t> places;
    for (const int id : signalsBelow(manager, top.getID())) {
      const SignalPtr signal = handleTo(manager, id);
      const int parent = signal->getObjectReference().getPropertyInt32(strings::FK_Parent);
      parents.push_back(signals.empty() ? 0 : places.at(parent));
      places.emplace(id, signals.size());
      signals.push_back(signal);
      recordOwners.insert(signal->getHierarchicalSignalRootID());
    }
  }

  bool hasParts() const { return signals.size() > 1; }
  /// Whether its samples are to be copied: those of leaves go with the leaves.
  bool hasOwnSamples(std::size_t place) const {
    return !recordOwners.contains(signals[place]->getID());
  }
};

/// Whether the parts of one stand where the parts of the other do.
bool haveSameParts(const Tree& a, const Tree& b) {
  const auto isSamePart = [](const SignalPtr& left, const SignalPtr& right) {
    return left->getChannel() == right->getChannel() &&
           left->getIsImagPartOfComplex() == right->getIsImagPartOfComplex();
  };
  return a.parents == b.parents &&
         std::equal(a.signals.begin() + 1, a.signals.end(), b.signals.begin() + 1, isSamePart);
}

/// Copies the parts of a signal to below its copy, each made by `copyOf(place)`.
template <class CopyOf>
void copyParts(const Tree& tree, const SignalPtr& top, const CopyOf& copyOf) {
  std::vector<SignalPtr> copies = {top};
  for (std::size_t place = 1; place < tree.signals.size(); ++place) {
    copies.push_back(copyOf(place));
    copies.back()->setParent(copies[tree.parents[place]]);
  }
}

/// Gives a result its samples: those of `data`, or 0 over the range of `compareTo`.
void fill(const SignalPtr& result, Signal* data, Signal& compareTo) {
  if (data) {
    if (const auto type = data->getDataType()) result->setDataType(*type);
    data->copyChunksTo(result);
    return;
  }
  const SignalDataRange range = compareTo.getDataRange();
  if (range.isValid) result->createConstValueData(range.firstTime, range.lastTime, 0);
}

void describeResult(Signal& result, SourceType type) {
  const bool isDifference = type == SourceType::Difference;
  result.setSourceType(type);
  result.setColor(isDifference ? kDifferenceColor : kToleranceColor);
  result.setLineStyle(isDifference ? Signal::Solid : Signal::Dashed);
}

/// Below a result, a result for each part of the compared signal.
void addResultParts(const SignalPtr& result, const Tree* data, const Tree& compareTo,
                    SourceType type) {
  copyParts(compareTo, result, [&](std::size_t place) {
    const SignalPtr part =
        compareTo.signals[place]->createDeepCopy(Signal::CopyMode::Properties);
    describeResult(*part, type);
    const bool hasSamples = data ? data->hasOwnSamples(place) : compareTo.hasOwnSamples(place);
    if (hasSamples)
      fill(part, data ? data->signals[place].get() : nullptr, *compareTo.signals[place]);
    return part;
  });
}

/// One signal's worth of data on what is described like a signal with parts.
void takeShapeOf(Signal& result, const Signal& data) {
  result.setComplexity(data.getComplexity());
  result.setDimMode(data.getDimMode());
  result.setDimensions(data.getDimensions());
}

SignalPtr filledResult(Signal* data, Signal& compareTo, SourceType type,
                       const std::wstring& name, ObjectManager& manager) {
  SignalPtr result;
  manager.inTransaction([&] {
    const Tree compared(compareTo);
    const std::optional<Tree> given = data ? std::optional<Tree>(*data) : std::nullopt;
    if (given && given->hasParts() && !haveSameParts(*given, compared))
      refuse("Storing the result of a comparison",
             "the parts of signal " + std::to_string(data->getID()) +
                 " are not those of signal " + std::to_string(compareTo.getID()));
    result = newResult(compareTo, type, name);
    if ((given ? *given : compared).hasOwnSamples(0)) fill(result, data, compareTo);
    if (!compared.hasParts()) return;
    if (given && !given->hasParts())
      takeShapeOf(*result, *data);
    else
      addResultParts(result, given ? &*given : nullptr, compared, type);
  });
  return result;
}

ComparisonFamily completeFamilyOf(const Signal& comparison) {
  const ComparisonFamily family = familyOf(comparison);
  if (family.baseline == 0 || family.compareTo == 0)
    refuse("Updating comparison signal " + std::to_string(comparison.getID()),
           "it has lost one of the signals it compares");
  return family;
}

std::unique_ptr<ObjectRef> plottedRecord(ObjectManager& manager) {
  return findFirst(manager, strings::PlottedComparisonSignal,
                   {equals(strings::InstanceID, manager.getInstanceID())});
}

}  // namespace

ComparisonFamily familyOf(const Signal& comparison) {
  ComparisonFamily family;
  ObjectManager& manager = comparison.getObjectReference().getObjectManager();
  manager.inReadUnit([&] {
    if (comparison.getSourceType() != SourceType::Comparison)
      refuse("Reading a comparison",
             "signal " + std::to_string(comparison.getID()) + " is no comparison");
    boost::ptr_vector<ObjectRef> children;
    comparison.getChildren(children);
    for (const ObjectRef& child : children) {
      const int id = child.getObjectID();
      switch (child.getPropertyInt32(strings::SourceType)) {
        case SourceType::Tolerance:
          family.tolerances.push_back(id);
          break;
        case SourceType::Baseline:
          family.baseline = id;
          break;
        case SourceType::CompareTo:
          family.compareTo = id;
          break;
        case SourceType::Difference:
          family.differences.push_back(id);
          break;
        default:
          break;
      }
    }
  });
  return family;
}

SignalPtr addComparison(Set& run, Signal& original, bool isWithinTol,
                        const std::wstring& alignedBy) {
  const SignalPtr comparison = original.createDeepCopy(Signal::CopyMode::Properties);
  ObjectRef& object = comparison->getObjectReference();
  object.setPropertyInt32(strings::SourceSignal, 0);
  comparison->setSourceType(SourceType::Comparison);
  comparison->setIsWithinTol(isWithinTol);
  comparison->setAlignedBy(alignedBy);
  run.addElement(*comparison);
  return comparison;
}

SignalPtr addInput(const SignalPtr& comparison, Signal& original, SourceType type,
                   const std::wstring& name) {
  const Tree tree(original);
  const auto copyOf = [&](std::size_t place) {
    const auto mode =
        tree.hasOwnSamples(place) ? Signal::CopyMode::WithData : Signal::CopyMode::Properties;
    const SignalPtr copy = tree.signals[place]->createDeepCopy(mode);
    copy->setSourceType(type);
    return copy;
  };
  const SignalPtr copy = copyOf(0);
  copyParts(tree, copy, copyOf);
  const std::string role = type == SourceType::Baseline ? "baseline" : "compared";
  copy->setName(
      text::toWide(kodiag::catalogText({"nexstore:nex", "ComparisonSourceSignalName"},
                                       {{"SignalName", text::toUtf8(name)}, {"Role", role}})));
  copy->setParent(comparison);
  return copy;
}

SignalPtr newResult(Signal& compareTo, SourceType type, const std::wstring& name) {
  const SignalPtr result = compareTo.createDeepCopy(Signal::CopyMode::Properties);
  requireOwnSource(*result, compareTo.getObjectReference().getObjectManager());
  result->setName(type == SourceType::Difference
                      ? named({"nexstore:nex", "DiffSignalName"}, name)
                      : named({"nexstore:nex", "TolSignalName"}, name));
  describeResult(*result, type);
  return result;
}

void replaceResults(const SignalPtr& comparison, const std::vector<int>& old,
                    const SignalPtr& result) {
  ObjectManager& manager = comparison->getObjectReference().getObjectManager();
  std::set<unsigned char> plots;
  for (const int id : old) {
    const SignalPtr former = handleTo(manager, id);
    for (const unsigned char plot : former->getChecked()) plots.insert(plot);
    former->remove();
  }
  if (!old.empty()) result->setChecked({plots.begin(), plots.end()});
  result->setParent(comparison);
}

SignalPtr Signal::createDifferenceSignal(Signal* diffData, Signal* /*baseline*/,
                                         Signal* compareTo, const std::wstring& name,
                                         ObjectManager& manager) {
  return filledResult(diffData, *compareTo, Difference, name, manager);
}

SignalPtr Signal::createToleranceSignal(Signal* tolData, Signal* /*baseline*/,
                                        Signal* compareTo, const std::wstring& name,
                                        ObjectManager& manager) {
  return filledResult(tolData, *compareTo, Tolerance, name, manager);
}

void Signal::updateComparisonSignal(bool isWithinTol, Signal* diffData, Signal* tolData) {
  const ComparisonFamily family = completeFamilyOf(*this);
  manager().inTransaction([&] {
    setIsWithinTol(isWithinTol);
    const SignalPtr comparison = handleTo(manager(), liveID());
    const SignalPtr baseline = handleTo(manager(), family.baseline);
    const SignalPtr compareTo = handleTo(manager(), family.compareTo);
    const std::wstring name = getName();
    // Both before anything is removed: the data may be what is about to be replaced.
    const SignalPtr difference =
        createDifferenceSignal(diffData, baseline.get(), compareTo.get(), name, manager());
    const SignalPtr tolerance =
        createToleranceSignal(tolData, baseline.get(), compareTo.get(), name, manager());
    replaceResults(comparison, family.differences, difference);
    replaceResults(comparison, family.tolerances, tolerance);
  });
}

std::unique_ptr<Signal> Signal::findCopiedSignal() const {
  std::unique_ptr<Signal> copy;
  manager().inReadUnit([&] {
    const std::vector<int> copies =
        findIDs(manager(), strings::Signal, {equals(strings::SourceSignal, liveID())});
    for (auto id = copies.rbegin(); id != copies.rend() && !copy; ++id) {
      SignalPtr visible;
      if (lookupVisibleSignal(*id, visible, manager())) copy = getSignalFromID(manager(), *id);
    }
  });
  return copy;
}

bool Signal::getPlottedComparisonSignal(SignalPtr& signal, ObjectManager& manager) {
  bool found = false;
  manager.inReadUnit([&] {
    const auto record = plottedRecord(manager);
    found =
        record && lookupSignal(record->getPropertyInt32(strings::FK_SignalID), signal, manager);
  });
  return found;
}

void Signal::setPlottedComparisonSignal(int id, bool plotted, ObjectManager& manager) {
  manager.inTransaction([&] {
    auto record = plottedRecord(manager);
    if (!plotted) {
      if (record && record->getPropertyInt32(strings::FK_SignalID) == id)
        manager.removeObject(record->getObjectID(), strings::PlottedComparisonSignal);
      return;
    }
    SignalPtr signal;
    if (!lookupSignal(id, signal, manager) || signal->getSourceType() != Comparison)
      refuse("Showing a comparison", "there is no comparison signal " + std::to_string(id));
    if (!record) {
      record = manager.createObject(strings::PlottedComparisonSignal, true);
      record->setPropertyInt64(strings::InstanceID, manager.getInstanceID());
    }
    record->setPropertyInt32(strings::FK_SignalID, id);
  });
}

std::pair<int, std::vector<int>> Set::addComparisonSignal(bool isWithinTol,
                                                          const std::wstring& alignedBy,
                                                          Signal& baseline, Signal& compareTo,
                                                          Signal* difference,
                                                          Signal* tolerance) {
  std::pair<int, std::vector<int>> ids;
  manager().inTransaction([&] {
    const SignalPtr comparison = addComparison(*this, baseline, isWithinTol, alignedBy);
    const SignalPtr baselineCopy =
        addInput(comparison, baseline, SourceType::Baseline, baseline.getName());
    const SignalPtr compareToCopy =
        addInput(comparison, compareTo, SourceType::CompareTo, compareTo.getName());
    const std::wstring name = comparison->getName();
    const SignalPtr differenceCopy =
        filledResult(difference, *compareToCopy, SourceType::Difference, name, manager());
    const SignalPtr toleranceCopy =
        filledResult(tolerance, *compareToCopy, SourceType::Tolerance, name, manager());
    replaceResults(comparison, {}, differenceCopy);
    replaceResults(comparison, {}, toleranceCopy);
    ids = {comparison->getID(),
           {baselineCopy->getID(), compareToCopy->getID(), differenceCopy->getID(),
            toleranceCopy->getID()}};
  });
  return ids;
}

}  // namespace vela
