// How signals stand to each other.
#include "scripting/families.h"
#include "scripting/method.h"

namespace vela::scripting {
namespace {

int idOrNone(const boost::shared_ptr<Signal>& signal) {
  return signal ? signal->getID() : 0;
}

int parentOf(const Signal& signal) {
  bool found = false;
  return idOrNone(signal.getParent(found));
}

int sourceOf(const Signal& signal) {
  return idOrNone(signal.getSourceSignal());
}

std::vector<int> childrenOf(const Signal& signal) {
  boost::ptr_vector<ObjectRef> children;
  signal.getChildren(children);
  std::vector<int> ids;
  for (const ObjectRef& child : children) ids.push_back(child.getObjectID());
  return ids;
}

void setParent(Repository, SignalByID signal, SignalNamed<"parentID"> parent) {
  signal->setParent(parent.signal);
}

struct VelaRepositorySetParent
    : Method<"setParent",
             "Put a signal below another, out of the one it was below, and into its run if it "
             "has none.",
             &setParent, "nexstore:nex:InvalidData"> {};
struct VelaRepositoryGetSignalParent
    : SignalGetter<"getSignalParent", &parentOf, Int32<"signalID">,
                   "ID of the signal that a signal is below; 0 when there is none."> {};
struct VelaRepositoryGetSignalChildren
    : SignalGetter<"getSignalChildren", &childrenOf, Any<"signalIDs">,
                   "IDs of the signals below a signal, ascending."> {};
struct VelaRepositoryGetSignalSource
    : SignalGetter<"getSignalSource", &sourceOf, Int32<"signalID">,
                   "ID of the signal that a signal was copied from; 0 when there is none."> {};
struct VelaRepositoryGetHierarchicalSignalRootID
    : SignalGetter<"getHierarchicalSignalRootID", &Signal::getHierarchicalSignalRootID,
                   Int32<"signalID">,
                   "ID of the signal whose records hold a leaf's samples; 0 for its own."> {};
struct VelaRepositorySignalIsInHierarchy
    : SignalGetter<"signalIsInHierarchy", &Signal::isInHierarchy, Flag<"flag">,
                   "Whether a signal is an element of records."> {};

}  // namespace

void addSignalTreeMethods(Methods& methods) {
  methods.add<VelaRepositorySetParent, VelaRepositoryGetSignalParent,
              VelaRepositoryGetSignalChildren, VelaRepositoryGetSignalSource,
              VelaRepositoryGetHierarchicalSignalRootID, VelaRepositorySignalIsInHierarchy>();
}

}  // namespace vela::scripting
