#include "scripting/streams.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>

#include "objects/strings.h"

namespace vela::scripting {
namespace {

using SignalPtr = boost::shared_ptr<Signal>;
using Signals = std::vector<SignalPtr>;

Signals childrenOf(const Signal& signal) {
  if (signal.getObjectReference().getPropertyInt32(strings::HasChildren) == 0) return {};
  boost::ptr_vector<ObjectRef> objects;
  signal.getChildren(objects);
  Signals children(objects.size());
  for (auto child = children.rbegin(); child != children.rend(); ++child) {
    child->reset(new Signal(std::unique_ptr<ObjectRef>(objects.pop_back().release())));
  }
  return children;
}

/// The real and the imaginary part; empty unless these are what the children are.
Signals partsOf(const Signal& signal) {
  if (signal.getComplexity() != complexity::complex) return {};
  Signals children = childrenOf(signal);
  const bool areParts = children.size() == 2 && !children[0]->getIsImagPartOfComplex() &&
                        children[1]->getIsImagPartOfComplex();
  return areParts ? children : Signals();
}

/// Where an element lies in a sample, first dimension fastest.
std::optional<std::size_t> placeOf(const std::vector<unsigned>& subscripts,
                                   const std::vector<unsigned>& dims) {
  if (subscripts.size() != dims.size()) return std::nullopt;
  std::size_t place = 0;
  std::size_t stride = 1;
  for (std::size_t i = 0; i < dims.size(); ++i) {
    if (subscripts[i] < 1 || subscripts[i] > dims[i]) return std::nullopt;
    place += (subscripts[i] - 1) * stride;
    stride *= dims[i];
  }
  return place;
}

/// The children in the order of the elements; empty unless there is one for each.
Signals elementsOf(const Signal& signal, const std::vector<unsigned>& dims) {
  Signals children = childrenOf(signal);
  Signals elements(children.size());
  // A sample without elements, or with more than can be counted, has no child for each.
  std::size_t count = 1;
  for (const unsigned dim : dims) {
    count *= dim;
    if (count == 0 || count > children.size()) return {};
  }
  if (count < 2 || count != children.size()) return {};
  for (SignalPtr& child : children) {
    const auto place = placeOf(child->getChannel(), dims);
    if (!place || elements[*place]) return {};
    elements[*place] = std::move(child);
  }
  return elements;
}

}  // namespace

Streams streamsOf(const SignalPtr& signal) {
  Streams plain{{signal}, {}, false};
  if (signal->getObjectReference().getPropertyInt32(strings::HasChildren) == 0) return plain;
  if (Signals parts = partsOf(*signal); !parts.empty()) return {std::move(parts), {}, true};
  const std::vector<unsigned> dims = signal->getDimensions();
  Signals elements = elementsOf(*signal, dims);
  if (elements.empty()) return plain;
  Streams streams{{}, {dims.begin(), dims.end()}, false};
  streams.isComplex = signal->getComplexity() == complexity::complex;
  if (!streams.isComplex) {
    streams.leaves = std::move(elements);
    return streams;
  }
  for (const SignalPtr& element : elements) {
    Signals parts = partsOf(*element);
    if (parts.empty()) return plain;
    std::move(parts.begin(), parts.end(), std::back_inserter(streams.leaves));
  }
  return streams;
}

}  // namespace vela::scripting
