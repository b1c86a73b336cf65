#include "scripting/streams.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "objects/strings.h"
#include "scripting/errors.h"
#include "text/utf8.h"

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

[[noreturn]] void refuseShape(const Signal& signal, const std::string& reason) {
  throwScriptingError(
      {"nexstore:nex", "InvalidData"},
      {{"Operation", "Taking signal " + std::to_string(signal.getID()) + " \"" +
                         text::toUtf8(signal.getName()) + "\" and what is below it as one"},
       {"Reason", reason}});
}

std::string inParentheses(const std::vector<unsigned>& numbers) {
  std::string text;
  for (const unsigned number : numbers)
    text += (text.empty() ? "" : ", ") + std::to_string(number);
  return "(" + text + ")";
}

/// Elements of a sample; one for no dimensions, and not exact beyond what can be counted.
std::size_t elementsIn(const std::vector<unsigned>& dims) {
  std::size_t count = 1;
  for (const unsigned dim : dims) {
    if (dim != 0 && count > std::numeric_limits<unsigned>::max() / dim)
      return std::numeric_limits<unsigned>::max();
    count *= dim;
  }
  return count;
}

/// Whether the samples were spread over signals below. The root of a bus has such signals too,
/// but they are no elements or parts of its samples.
bool isExpanded(const Signal& signal, const Signals& children) {
  if (signal.getComplexity() == complexity::complex) return true;
  if (children.empty())
    return elementsIn(signal.getDimensions()) > 1 && signal.getDataTypeLabel() != strings::Null;
  return std::ranges::any_of(
      children, [](const SignalPtr& child) { return !child->getChannel().empty(); });
}

/// The real and the imaginary part, in this order.
Signals partsOf(const Signal& signal, Signals children) {
  if (children.size() != 2)
    refuseShape(signal, std::to_string(children.size()) + " signals are below signal " +
                            std::to_string(signal.getID()) + " in place of its two parts");
  if (children[0]->getIsImagPartOfComplex()) std::swap(children[0], children[1]);
  if (children[0]->getIsImagPartOfComplex() || !children[1]->getIsImagPartOfComplex())
    refuseShape(signal, "its real or its imaginary part is missing");
  return children;
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

/// The children in the order of the elements.
Signals elementsOf(const Signal& signal, Signals children, const std::vector<unsigned>& dims) {
  if (elementsIn(dims) != children.size())
    refuseShape(signal, std::to_string(children.size()) +
                            " signals are below it, which do not make samples of the shape " +
                            inParentheses(dims));
  Signals elements(children.size());
  for (SignalPtr& child : children) {
    const std::vector<unsigned> channel = child->getChannel();
    const auto place = placeOf(channel, dims);
    if (!place || elements[*place])
      refuseShape(signal, "signal " + std::to_string(child->getID()) + " is its element " +
                              inParentheses(channel) +
                              (place ? ", and so is another"
                                     : ", which samples of the shape " + inParentheses(dims) +
                                           " do not have"));
    elements[*place] = std::move(child);
  }
  return elements;
}

}  // namespace

Streams streamsOf(const SignalPtr& signal) {
  Streams plain{{signal}, {}, false};
  if (signal->getObjectReference().getPropertyInt32(strings::HasDataHierarchy) == 0)
    return plain;
  Signals children = childrenOf(*signal);
  if (!isExpanded(*signal, children)) return plain;
  const bool isComplex = signal->getComplexity() == complexity::complex;
  const std::vector<unsigned> dims = signal->getDimensions();
  if (elementsIn(dims) == 1 && isComplex)
    return {partsOf(*signal, std::move(children)), {}, true};
  Signals elements = elementsOf(*signal, std::move(children), dims);
  Streams streams{{}, {dims.begin(), dims.end()}, isComplex};
  if (!isComplex) {
    streams.leaves = std::move(elements);
    return streams;
  }
  for (const SignalPtr& element : elements) {
    Signals parts = partsOf(*element, childrenOf(*element));
    std::move(parts.begin(), parts.end(), std::back_inserter(streams.leaves));
  }
  return streams;
}

}  // namespace vela::scripting
