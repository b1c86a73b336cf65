#include "objects/signal.h"

#include <array>
#include <set>

#include "kodiag/message.h"
#include "objects/datatypes.h"
#include "objects/find.h"
#include "objects/raising.h"
#include "objects/set.h"
#include "objects/strings.h"
#include "objects/textlist.h"

namespace vela {
namespace {

using ColorBytes = std::array<double, 3>;

/// Creates signals with a statement of its own.
struct NewSignals : PreparedSet {
  explicit NewSignals(ObjectManager& owner)
      : manager(owner),
        cls(owner.getClass(strings::Signal)),
        constructor(cls, owner.repository()) {
    const auto property = [&](const std::string& name) {
      return manager.getPropertyRef(strings::Signal, name);
    };
    constructor.setPropertyValueSource(property(strings::InstanceID), &instanceID);
    constructor.setPropertyValueSource(property(strings::InterpSetting), &strings::ZOH);
    constructor.setPropertyValueSource(property(strings::TimeAlignmentMethod), &strings::Union);
    constructor.setPropertyValueSource(property(strings::Color), &colorBlob);
    constructor.setPropertyValueSource(property(strings::LineStyle), &lineStyle);
    constructor.setPropertyIDSource(property(strings::DataTypeID), &dataType);
  }

  std::unique_ptr<ObjectRef> create(const ColorTuple& color) {
    long long null = 0;
    DataTypeUtil::getBuiltInDataTypeHandle(dtypeNull, manager, null);
    // IDs of stored objects are 32-bit numbers.
    dataType = static_cast<int>(null);
    instanceID = manager.getInstanceID();
    colorBytes = {color.get<0>(), color.get<1>(), color.get<2>()};
    kodd::ObjectRef object =
        raising([&](auto& diag) { return constructor.createObject(diag); });
    return std::make_unique<ObjectRef>(std::move(object), cls, strings::Signal, manager);
  }

  ObjectManager& manager;
  kodd::ClassRef cls;
  long long instanceID = 0;
  ColorBytes colorBytes{};
  const kodd::const_BlobDescriptor colorBlob{colorBytes.data(), sizeof colorBytes};
  const int lineStyle = Signal::Solid;
  int dataType = 0;
  kodd::ObjectConstructor constructor;
};

boost::shared_ptr<Signal> handleTo(std::unique_ptr<ObjectRef> object) {
  return boost::shared_ptr<Signal>(new Signal(std::move(object)));
}

boost::shared_ptr<Signal> handleTo(ObjectManager& manager, int id) {
  std::unique_ptr<Signal> signal = id == 0 ? nullptr : Signal::getSignalFromID(manager, id);
  return boost::shared_ptr<Signal>(signal.release());
}

ObjectManager::Constraint ofThisInstance(ObjectManager& manager) {
  return equals(strings::InstanceID, manager.getInstanceID());
}

std::vector<ObjectManager::Constraint> checkedSignals(ObjectManager& manager) {
  // A mask with plot 32 is negative.
  return {ofThisInstance(manager), differs(strings::Checked, 0)};
}

[[noreturn]] void refuseParent(int signal, const std::string& reason) {
  kodiag::raise({"nexstore:nex", "InvalidData"},
                {{"Operation", "Setting the parent of signal " + std::to_string(signal)},
                 {"Reason", reason}});
}

/// Whether the way up from `signal` leads to `ancestor`.
bool isAtOrBelow(ObjectManager& manager, int signal, int ancestor) {
  std::set<int> met;
  while (signal != 0 && met.insert(signal).second) {
    if (signal == ancestor) return true;
    bool found = false;
    const auto object = manager.findObject(signal, strings::Signal, found);
    signal = found ? object->getPropertyInt32(strings::FK_Parent) : 0;
  }
  return false;
}

}  // namespace

Signal::Signal() = default;

Signal::Signal(ObjectManager& manager) : Element(manager) {
  manager_ = &manager;
  manager.inTransaction(
      [&] { object_ = manager.prepared<NewSignals>().create(takeNextColor()); });
}

Signal::Signal(std::unique_ptr<ObjectRef> object) : Element(std::move(object)) {}

Signal::~Signal() = default;

std::string Signal::getElementType() const {
  return strings::Signal;
}

int Signal::getCheckSum() const {
  return getID();
}

int Signal::getID() const {
  return getObjectReference().getObjectID();
}

std::unique_ptr<Signal> Signal::getSignalFromID(ObjectManager& manager, int id) {
  bool found = false;
  std::unique_ptr<ObjectRef> object = manager.findObject(id, strings::Signal, found);
  return found ? std::make_unique<Signal>(std::move(object)) : nullptr;
}

bool Signal::lookupSignal(int id, boost::shared_ptr<Signal>& out, ObjectManager& manager) {
  std::unique_ptr<Signal> signal = getSignalFromID(manager, id);
  if (!signal) return false;
  out.reset(signal.release());
  return true;
}

bool Signal::lookupVisibleSignal(int id, boost::shared_ptr<Signal>& out,
                                 ObjectManager& manager) {
  boost::shared_ptr<Signal> signal;
  boost::shared_ptr<Set> run;
  bool found = false;
  manager.inReadUnit([&] {
    found = lookupSignal(id, signal, manager) &&
            Set::lookupVisibleSet(signal->getParentSetID(), run, manager);
  });
  if (found) out = signal;
  return found;
}

boost::shared_ptr<Signal> Signal::getSignalFromPath(ObjectManager& manager, int runID,
                                                    const std::vector<std::wstring>& blockPath,
                                                    int portIndex) {
  boost::shared_ptr<Signal> result;
  manager.inReadUnit([&] {
    const std::vector<int> candidates =
        findIDs(manager, strings::Signal,
                {equals(strings::FK_SetID, runID), equals(strings::PortIndex, portIndex)});
    for (const int id : candidates) {
      boost::shared_ptr<Signal> signal = handleTo(manager, id);
      if (signal->getBlockPath() != blockPath) continue;
      result = signal;
      return;
    }
  });
  return result;
}

boost::shared_ptr<Signal> Signal::getSignalByProperties(
    ObjectManager& manager, const std::vector<ObjectManager::Constraint>& constraints) {
  return handleTo(manager, findFirstID(manager, strings::Signal, constraints));
}

void Signal::getAllCheckedSignals(ObjectManager& manager, boost::ptr_vector<ObjectRef>& out) {
  manager.findObjects(strings::Signal, checkedSignals(manager), out);
}

void Signal::getCheckedSignalsInPlot(std::vector<int>& ids, int plotIndex, int runID,
                                     ObjectManager& manager) {
  if (plotIndex < 1 || plotIndex > 32) return;
  std::vector<ObjectManager::Constraint> constraints = checkedSignals(manager);
  if (runID != 0) constraints.push_back(equals(strings::FK_SetID, runID));
  boost::ptr_vector<ObjectRef> signals;
  manager.inReadUnit([&] {
    manager.findObjects(strings::Signal, constraints, signals);
    for (const ObjectRef& signal : signals) {
      const auto mask = static_cast<unsigned>(signal.getPropertyInt32(strings::Checked));
      if (mask >> (plotIndex - 1) & 1U) ids.push_back(signal.getObjectID());
    }
  });
}

void Signal::getVisibleLeafSignals(std::unordered_map<int, boost::shared_ptr<Signal>>& signals,
                                   ObjectManager& manager) {
  manager.inReadUnit([&] {
    for (const int runID : Set::getAllVisibleRunIDs(manager)) {
      boost::ptr_vector<ObjectRef> leaves;
      manager.findObjects(strings::Signal,
                          {equals(strings::FK_SetID, runID), equals(strings::HasChildren, 0)},
                          leaves);
      while (!leaves.empty()) {
        std::unique_ptr<ObjectRef> leaf(leaves.pop_back().release());
        const int id = leaf->getObjectID();
        signals[id] = handleTo(std::move(leaf));
      }
    }
  });
}

void Signal::getLeavesForInstrumentedSignal(ObjectManager& manager, int runID,
                                            const long long& uuid,
                                            boost::ptr_vector<ObjectRef>& out) {
  manager.findObjects(
      strings::Signal,
      {equals(strings::InstrumentedSignalUUID, uuid), equals(strings::FK_SetID, runID)}, out);
}

boost::shared_ptr<Signal> Signal::getParent(bool& found) const {
  const boost::shared_ptr<Signal> parent =
      handleTo(manager(), getObjectReference().getPropertyInt32(strings::FK_Parent));
  found = parent != nullptr;
  return parent;
}

void Signal::setParent(boost::shared_ptr<Signal> parent) {
  if (!parent) refuseParent(getID(), "no parent is given");
  requireSameRepository(*parent, "Setting the parent of signal " + std::to_string(getID()));
  manager().inTransaction([&] {
    const int parentID = parent->liveID();
    if (isAtOrBelow(manager(), parentID, liveID())) {
      refuseParent(getID(), "signal " + std::to_string(parentID) + " is itself or below it");
    }
    bool found = false;
    const boost::shared_ptr<Signal> former = getParent(found);
    if (found && former->getID() != parentID) removeFromMyParent();
    set(strings::FK_Parent, parentID);
    parent->getObjectReference().setPropertyInt32(strings::HasChildren, 1);
    const boost::shared_ptr<Set> run = parent->getRun();
    if (run && getParentSetID() == 0) run->addElement(*this);
  });
}

void Signal::getChildren(boost::ptr_vector<ObjectRef>& out) const {
  manager().findObjects(strings::Signal, {equals(strings::FK_Parent, liveID())}, out);
}

void Signal::removeFromMyParent() {
  manager().inTransaction([&] {
    bool found = false;
    const boost::shared_ptr<Signal> parent = getParent(found);
    if (!found) return;
    getObjectReference().setPropertyInt32(strings::FK_Parent, 0);
    const int siblings =
        countObjects(manager(), strings::Signal, {equals(strings::FK_Parent, parent->getID())});
    if (siblings == 0) {
      parent->getObjectReference().setPropertyInt32(strings::HasChildren, 0);
    }
  });
}

bool Signal::isLeafSignal(ObjectManager& manager, int id) {
  boost::shared_ptr<Signal> signal;
  return !lookupSignal(id, signal, manager) ||
         findFirstID(manager, strings::Signal, {equals(strings::FK_Parent, id)}) == 0;
}

bool Signal::isInHierarchy() const {
  const ObjectRef& object = getObjectReference();
  return object.getPropertyInt32(strings::CompositeDataSize) > 0 &&
         object.getPropertyInt32(strings::ObservedElemSize) > 0;
}

int Signal::getHierarchicalSignalRootID() const {
  return getObjectReference().getPropertyInt32(strings::IdOfSignalWhoHasMyData);
}

boost::shared_ptr<Signal> Signal::getSourceSignal() const {
  std::unique_ptr<ObjectRef> source;
  getObjectReference().getPropertyObject(strings::SourceSignal, source, strings::Signal);
  return source && !source->isNull() ? handleTo(std::move(source)) : nullptr;
}

boost::shared_ptr<Set> Signal::getRun() const {
  return getParentSet();
}

}  // namespace vela
