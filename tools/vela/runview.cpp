#include "tools/vela/runview.h"

#include <cmath>
#include <ctime>
#include <map>
#include <set>

#include "kodiag/message.h"
#include "objects/strings.h"
#include "runcomparison/pairing.h"
#include "text/numbers.h"
#include "text/printable.h"
#include "text/utf8.h"

namespace vela::tool {
namespace {

struct ValueText {
  std::string operator()(const std::string& value) const { return value; }
  std::string operator()(const std::wstring& value) const { return text::toUtf8(value); }
  std::string operator()(double value) const { return text::shortest(value); }
  std::string operator()(long long value) const { return std::to_string(value); }
  std::string operator()(int value) const { return std::to_string(value); }
  template <class Other>
  std::string operator()(const Other&) const {
    return {};
  }
};

int parentOf(const ObjectRef& signal) {
  return signal.getPropertyInt32(strings::FK_Parent);
}

}  // namespace

std::string metadataText(const Set& run, const char* name) {
  return std::visit(ValueText{}, run.getMetaData(name).value);
}

std::pair<std::string, std::string> axisOf(const Set* run) {
  const std::string name = run ? metadataText(*run, kAxisName) : "";
  if (name.empty()) return {"time", "s"};
  return {name, metadataText(*run, kAxisUnit)};
}

std::string labelled(const std::string& name, const std::string& unit) {
  return unit.empty() ? name : name + " [" + unit + "]";
}

std::string nameOf(const Signal& signal) {
  return text::toUtf8(nameWithSubscripts(signal));
}

SignalView viewOf(const Signal& signal, int depth) {
  SignalView view;
  view.id = signal.getID();
  view.depth = depth;
  view.name = nameOf(signal);
  view.unit = text::toUtf8(signal.getUnits());
  view.extent = signal.getExtent();
  if (view.extent.samples > 0) view.type = signal.getDataTypeLabel();
  return view;
}

std::vector<SignalView> signalTree(ObjectManager& manager, const Set& run) {
  std::vector<SignalView> views;
  manager.inReadUnit([&] {
    boost::ptr_vector<ObjectRef> objects;
    run.getAllSignals(Set::SignalQueryType::all, objects);
    std::multimap<int, const ObjectRef*> byParent;
    for (const ObjectRef& object : objects) byParent.emplace(parentOf(object), &object);

    // Not by recursion: a damaged or odd file may nest signals deeper than the stack.
    std::vector<std::pair<const ObjectRef*, int>>
        waiting;  // with their depths, the next one last
    const auto addBelow = [&](int parent, int depth) {
      const auto [first, last] = byParent.equal_range(parent);
      for (auto child = last; child != first;) waiting.emplace_back((--child)->second, depth);
    };
    addBelow(0, 0);
    while (!waiting.empty()) {
      const auto [object, depth] = waiting.back();
      waiting.pop_back();
      views.push_back(viewOf(Signal(object->clone()), depth));
      addBelow(object->getObjectID(), depth + 1);
    }
  });
  return views;
}

std::vector<std::unique_ptr<Signal>> leavesOf(ObjectManager& manager, const Signal& signal) {
  std::vector<std::unique_ptr<Signal>> leaves;
  std::set<int> met;
  // The next signal comes last.
  std::vector<int> ahead = {signal.getID()};
  while (!ahead.empty()) {
    std::unique_ptr<Signal> next = Signal::getSignalFromID(manager, ahead.back());
    ahead.pop_back();
    if (!met.insert(next->getID()).second) {
      kodiag::raise(
          {"nexstore:nex", "InvalidData"},
          {{"Operation", "Listing what is below signal " + std::to_string(signal.getID())},
           {"Reason", "the file is damaged: signal " + std::to_string(next->getID()) +
                          " is below itself"}});
    }
    boost::ptr_vector<ObjectRef> children;
    next->getChildren(children);
    for (auto child = children.rbegin(); child != children.rend(); ++child)
      ahead.push_back(child->getObjectID());
    if (children.empty()) leaves.push_back(std::move(next));
  }
  return leaves;
}

std::string dateText(double posixSeconds) {
  const auto seconds = static_cast<std::time_t>(posixSeconds);
  std::tm local = {};
  char text[32];
  if (!std::isfinite(posixSeconds) || !localtime_r(&seconds, &local)) return {};
  return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local));
}

std::string jsonText(const Json& json) {
  return text::escapedInJson(json.dump(2, ' ', false, Json::error_handler_t::replace)) + "\n";
}

Json jsonNumber(double value) {
  return std::isfinite(value) ? Json(value) : Json(nullptr);
}

}  // namespace vela::tool
