#include "signalcreationutil.h"

#include <algorithm>

#include "kodiag/catalog.h"
#include "kodiag/message.h"
#include "objects/find.h"
#include "objects/strings.h"
#include "text/utf8.h"

namespace vela {
namespace {

using SignalPtr = boost::shared_ptr<Signal>;
using Expansion = SignalCreationUtil::Expansion;

constexpr unsigned long long kMostElements = 1'000'000;

[[noreturn]] void refuse(const std::string& key, const std::string& reason) {
  kodiag::raise({"nexstore:nex", key},
                {{"Operation", "Creating a signal"}, {"Reason", reason}});
}

/// 1 for no dimensions.
std::size_t elementCount(const std::vector<unsigned>& dims) {
  unsigned long long count = 1;
  for (const unsigned dim : dims) {
    count *= dim;
    if (count == 0 || count > kMostElements)
      refuse("InvalidDimensions", "the dimensions make no element or more than 1000000");
  }
  return static_cast<std::size_t>(count);
}

std::unique_ptr<ObjectRef> find(ObjectManager& manager, const std::string& className,
                                long long id) {
  bool found = false;
  const auto inRange = static_cast<int>(id);
  auto object = inRange == id ? manager.findObject(inRange, className, found) : nullptr;
  if (!found) refuse("InvalidData", "there is no \"" + className + "\" " + std::to_string(id));
  return object;
}

/// 1-based, first dimension fastest.
std::vector<unsigned> subscriptsOf(std::size_t element, const std::vector<unsigned>& dims) {
  std::vector<unsigned> subscripts;
  for (const unsigned dim : dims) {
    // The remainder is smaller than an unsigned.
    subscripts.push_back(static_cast<unsigned>(element % dim) + 1);
    element /= dim;
  }
  return subscripts;
}

SignalPtr basicSignal(ObjectManager& manager, const long long* parentID, dimsMode mode,
                      const std::vector<unsigned>& dims) {
  std::unique_ptr<ObjectRef> parent;
  if (parentID) parent = find(manager, strings::Signal, *parentID);
  SignalPtr signal(new Signal(manager));
  signal->beginBulkPropertyUpdate();
  signal->setDimMode(mode);
  signal->setDimensions(dims);
  signal->commitBulkPropertyUpdate();
  if (parent) signal->setParent(SignalPtr(new Signal(std::move(parent))));
  return signal;
}

/// What a signal and its children have in common.
struct Shape {
  dimsMode mode;
  std::vector<unsigned> dims;
  complexity parts;
  sampleTimeContinuity continuity;
  std::string interpolation;
  ObjectRef& dataType;

  void writeTo(Signal& signal) const {
    signal.setComplexity(parts);
    signal.setSampleTimeContinuity(continuity);
    signal.setInterpMethod(interpolation);
    signal.setDataType(dataType);
  }
};

/// Creates the children of a signal, and theirs.
class Family {
 public:
  Family(ObjectManager& manager, const Shape& shape, std::vector<Expansion>& created)
      : manager_(manager), shape_(shape), created_(created) {}

  void expand(const Signal& top) {
    const std::size_t count = elementCount(shape_.dims);
    if (count > 1)
      expandElements(top, count);
    else if (shape_.parts == complexity::complex)
      expandParts(top, {});
  }

 private:
  void expandElements(const Signal& top, std::size_t count) {
    std::vector<SignalPtr> elements;
    for (std::size_t k = 0; k < count; ++k)
      elements.push_back(addChild(top, shape_, subscriptsOf(k, shape_.dims)));
    note(top, elements, ContainerType::Channels);
    if (shape_.parts != complexity::complex) return;
    for (std::size_t k = 0; k < count; ++k)
      expandParts(*elements[k], subscriptsOf(k, shape_.dims));
  }

  void expandParts(const Signal& parent, const std::vector<unsigned>& channel) {
    Shape scalar = shape_;
    scalar.dims = {1};
    scalar.mode = dimsMode::fixed;
    scalar.parts = complexity::real;
    const std::vector<SignalPtr> parts = {addChild(parent, scalar, channel),
                                          addChild(parent, scalar, channel)};
    parts[1]->markAsImagPart();
    note(parent, parts, ContainerType::Complex);
  }

  SignalPtr addChild(const Signal& parent, const Shape& shape,
                     const std::vector<unsigned>& channel) {
    SignalPtr child(new Signal(manager_));
    const ObjectRef& parentObject = parent.getObjectReference();
    child->beginBulkPropertyUpdate();
    shape.writeTo(*child);
    child->setDimMode(shape.mode);
    child->setDimensions(shape.dims);
    if (!channel.empty()) child->setChannel(channel);
    child->setSourceType(parent.getSourceType());
    child->setSignalSourceID(parent.getSignalSourceID());
    child->commitBulkPropertyUpdate();
    ObjectRef& object = child->getObjectReference();
    object.setPropertyInt32(strings::FK_Parent, parent.getID());
    object.setPropertyInt32(strings::FK_SetID,
                            parentObject.getPropertyInt32(strings::FK_SetID));
    return child;
  }

  void note(const Signal& parent, const std::vector<SignalPtr>& children, ContainerType type) {
    ObjectRef& object = parent.getObjectReference();
    object.setPropertyInt32(strings::HasChildren, 1);
    object.setPropertyInt32(strings::HasDataHierarchy, 1);
    std::vector<long long> ids;
    for (const SignalPtr& child : children) ids.push_back(child->getID());
    created_.emplace_back(parent.getID(), std::move(ids), type);
  }

  ObjectManager& manager_;
  const Shape& shape_;
  std::vector<Expansion>& created_;
};

std::wstring partName(const std::wstring& name, bool isImaginary) {
  const kodiag::MessageID id = isImaginary
                                   ? kodiag::MessageID{"nexstore:nex", "ImagSignalName"}
                                   : kodiag::MessageID{"nexstore:nex", "RealSignalName"};
  const std::string part = kodiag::catalogText(id, {{"SignalName", text::toUtf8(name)}});
  // Without a name the text begins with what separates it from one.
  return text::toWide(part.substr(std::min(part.find_first_not_of(' '), part.size())));
}

}  // namespace

SignalPtr SignalCreationUtil::createSignal(ObjectManager& manager, const long long* parentID,
                                           dimsMode mode, const std::vector<unsigned>& dims,
                                           complexity complexity,
                                           sampleTimeContinuity continuity,
                                           long long dataTypeID,
                                           std::vector<Expansion>& created) {
  elementCount(dims);
  SignalPtr signal;
  std::vector<Expansion> expansions;
  manager.inTransaction([&] {
    const auto dataType = find(manager, strings::DataType, dataTypeID);
    const bool isContinuous = continuity == sampleTimeContinuity::continuous;
    const Shape shape{
        mode,     dims, complexity, continuity, isContinuous ? strings::Linear : strings::ZOH,
        *dataType};
    signal = basicSignal(manager, parentID, mode, dims);
    signal->beginBulkPropertyUpdate();
    shape.writeTo(*signal);
    signal->commitBulkPropertyUpdate();
    if (!dataType->getPropertyStdString(strings::Classification).empty()) return;
    Family(manager, shape, expansions).expand(*signal);
    nameParts(*signal);
  });
  created.insert(created.end(), expansions.begin(), expansions.end());
  return signal;
}

long long SignalCreationUtil::createHierarchicalSignal(ObjectManager& manager,
                                                       const long long* parentID, dimsMode mode,
                                                       const std::vector<unsigned>& dims) {
  int id = 0;
  manager.inTransaction([&] {
    const SignalPtr root = basicSignal(manager, parentID, mode, dims);
    root->getObjectReference().setPropertyInt32(strings::HasDataHierarchy, 1);
    id = root->getID();
  });
  return id;
}

void SignalCreationUtil::nameParts(Signal& top) {
  ObjectManager& manager = top.getObjectReference().getObjectManager();
  manager.inTransaction([&] {
    const std::wstring name = top.getName();
    boost::ptr_vector<ObjectRef> children;
    top.getChildren(children);
    const bool isSplit = children.size() == 2 && top.getComplexity() == complexity::complex;
    while (!children.empty()) {
      Signal child(std::unique_ptr<ObjectRef>(children.pop_back().release()));
      const bool isPart = isSplit && child.getComplexity() == complexity::real;
      if (isPart) {
        child.setName(partName(name, child.getIsImagPartOfComplex()));
      } else {
        child.setName(name);
        nameParts(child);
      }
    }
  });
}

}  // namespace vela
