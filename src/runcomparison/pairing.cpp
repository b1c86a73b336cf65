#include "runcomparison/pairing.h"

#include <fnmatch.h>

#include <deque>
#include <map>
#include <set>

#include "objects/set.h"
#include "objects/signalkey.h"
#include "text/utf8.h"

namespace vela {
namespace {

using SignalPtr = boost::shared_ptr<Signal>;
/// The names above a leaf, and what tells it from its neighbours.
using PlaceAndKey = std::pair<std::vector<std::wstring>, SignalKey>;

/// Outermost first. Ends where the stored tree leads back into itself.
std::vector<std::wstring> namesAbove(const Signal& signal) {
  std::vector<std::wstring> names;
  std::set<int> met = {signal.getID()};
  bool found = false;
  for (SignalPtr parent = signal.getParent(found); found && met.insert(parent->getID()).second;
       parent = parent->getParent(found))
    names.insert(names.begin(), parent->getName());
  return names;
}

bool fits(const std::string& pattern, const std::wstring& text) {
  return fnmatch(pattern.c_str(), text::toUtf8(text).c_str(), 0) == 0;
}

std::vector<SignalPtr> leavesOf(Set& run, const std::string& pattern) {
  ObjectManager& manager = run.getObjectReference().getObjectManager();
  std::vector<SignalPtr> leaves;
  for (const int id : run.getSignalIDs(Set::SignalQueryType::leaf)) {
    const SignalPtr leaf(Signal::getSignalFromID(manager, id).release());
    SignalPair described;
    if (!pattern.empty()) describe(*leaf, described);
    if (pattern.empty() || fits(pattern, leaf->getName()) || fits(pattern, described.name) ||
        fits(pattern, described.path))
      leaves.push_back(leaf);
  }
  return leaves;
}

/// As short as tells the pairs apart.
void labelAll(std::vector<SignalPair>& pairs) {
  std::map<std::wstring, int> counts;
  for (const SignalPair& pair : pairs) ++counts[pair.name];
  for (SignalPair& pair : pairs) pair.label = counts[pair.name] == 1 ? pair.name : pair.path;
}

PlaceAndKey placeOf(const Signal& signal) {
  return {namesAbove(signal), keyOf(signal)};
}

}  // namespace

std::wstring nameWithSubscripts(const Signal& signal) {
  std::wstring name = signal.getName();
  const std::vector<unsigned> subscripts = signal.getChannel();
  for (std::size_t i = 0; i < subscripts.size(); ++i) {
    name += (i == 0 ? L"(" : L",") + std::to_wstring(subscripts[i]);
  }
  return subscripts.empty() ? name : name + L")";
}

void describe(const Signal& signal, SignalPair& pair) {
  pair.name = nameWithSubscripts(signal);
  pair.path.clear();
  for (const std::wstring& name : namesAbove(signal)) pair.path += name + L".";
  pair.path += pair.name;
}

std::vector<SignalPair> pairLeaves(Set& baseline, Set& compareTo, const std::string& pattern) {
  std::vector<SignalPair> pairs;
  std::map<PlaceAndKey, std::deque<std::size_t>> waiting;
  for (const SignalPtr& leaf : leavesOf(baseline, pattern)) {
    waiting[placeOf(*leaf)].push_back(pairs.size());
    pairs.push_back({leaf, nullptr, {}, {}, {}});
    describe(*leaf, pairs.back());
  }
  for (const SignalPtr& leaf : leavesOf(compareTo, pattern)) {
    const auto like = waiting.find(placeOf(*leaf));
    if (like != waiting.end() && !like->second.empty()) {
      pairs[like->second.front()].compareTo = leaf;
      like->second.pop_front();
    } else {
      pairs.push_back({nullptr, leaf, {}, {}, {}});
      describe(*leaf, pairs.back());
    }
  }
  labelAll(pairs);
  return pairs;
}

}  // namespace vela
