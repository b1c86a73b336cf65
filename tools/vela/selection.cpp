#include "tools/vela/selection.h"

#include <algorithm>
#include <climits>
#include <functional>
#include <iterator>
#include <set>
#include <vector>

#include "kodiag/message.h"
#include "objects/strings.h"
#include "runcomparison/pairing.h"
#include "text/numbers.h"
#include "text/utf8.h"

namespace vela::tool {
namespace {

int asID(const std::string& words) {
  const std::optional<long long> number = text::parseInteger(words);
  return number && *number > 0 && *number <= INT_MAX ? static_cast<int>(*number) : 0;
}

std::vector<Set::Summary> allRuns(ObjectManager& manager) {
  return Set::getRunSummaries(manager, Set::Application::AllApplications, Set::Sessions::all);
}

std::string described(const Set::Summary& run) {
  return std::to_string(run.id) + " (" + text::toUtf8(run.displayName) + ")";
}

void addToList(std::string& list, const std::string& item) {
  list += (list.empty() ? "" : ", ") + item;
}

// Runs of that display name, else of that number: every session counts its own.
std::vector<Set::Summary> matching(ObjectManager& manager, const std::string& words) {
  const std::vector<Set::Summary> all = allRuns(manager);
  std::vector<Set::Summary> matches;
  std::ranges::copy_if(all, std::back_inserter(matches), [&](const Set::Summary& run) {
    return text::toUtf8(run.displayName) == words;
  });
  if (!matches.empty()) return matches;
  std::ranges::copy_if(all, std::back_inserter(matches), [&](const Set::Summary& run) {
    return run.number != 0 && run.number == asID(words);
  });
  return matches;
}

// A signal that fits, and what decides between several.
struct Match {
  std::unique_ptr<Signal> signal;
  std::string path;
  int run;
  bool isTop;
  bool isKeptByComparison;
};

// "m" of "m(1,2)"; the text itself when it has no subscripts.
std::string withoutSubscripts(const std::string& text) {
  const std::size_t open = text.rfind('(');
  if (open == std::string::npos || !text.ends_with(')')) return text;
  const std::string inside = text.substr(open + 1, text.size() - open - 2);
  const bool isList = inside.find_first_not_of("0123456789,") == std::string::npos;
  return isList ? text.substr(0, open) : text;
}

// The names a signal may have that is meant by these words: names may hold dots and brackets
// too.
std::set<std::string> possibleNames(const std::string& words) {
  std::set<std::string> names;
  for (std::size_t at = 0;; ++at) {
    const std::string tail = words.substr(at);
    names.insert({tail, withoutSubscripts(tail)});
    at = words.find('.', at);
    if (at == std::string::npos) return names;
  }
}

// Where a signal is; an element follows what its matrix lies in: "bus.m(1,2)", not
// "bus.m.m(1,2)".
std::string pathOf(const SignalPair& described, const std::string& name) {
  std::string path = text::toUtf8(described.path);
  const std::string doubled = name + "." + text::toUtf8(described.name);
  const bool isElement = text::toUtf8(described.name) != name;
  if (isElement && path.ends_with(doubled)) {
    path.erase(path.size() - doubled.size(), name.size() + 1);
  }
  return path;
}

std::vector<Match> signalsThatFit(ObjectManager& manager, const std::string& words, int runID) {
  std::vector<Match> matches;
  for (const std::string& name : possibleNames(words)) {
    std::vector<ObjectManager::Constraint> constraints = {
        {strings::Name, text::toWide(name), kodd::PropertyValueMatchRelation::Equal}};
    if (runID != 0) {
      constraints.emplace_back(strings::FK_SetID, runID,
                               kodd::PropertyValueMatchRelation::Equal);
    }
    boost::ptr_vector<ObjectRef> objects;
    manager.findObjects(strings::Signal, constraints, objects);
    for (const ObjectRef& object : objects) {
      auto signal = std::make_unique<Signal>(object.clone());
      boost::shared_ptr<Set> run;
      if (!Set::lookupVisibleSet(signal->getParentSetID(), run, manager)) continue;
      SignalPair described;
      describe(*signal, described);
      const std::string path = pathOf(described, name);
      const bool fits = words == name || words == path ||
                        words == text::toUtf8(described.name) ||
                        words == text::toUtf8(described.path);
      if (!fits) continue;
      matches.push_back({std::move(signal), path, run->getID(),
                         object.getPropertyInt32(strings::FK_Parent) == 0,
                         run->getApplication() == Set::Application::VELAComparison});
    }
  }
  return matches;
}

// Keeps those for which it holds, if there are any.
template <class Predicate>
void prefer(std::vector<Match>& matches, Predicate holds) {
  if (std::ranges::any_of(matches, holds)) std::erase_if(matches, std::not_fn(holds));
}

[[noreturn]] void refuseToChoose(const std::string& words, const std::vector<Match>& matches) {
  constexpr std::size_t kMostNamed = 10;
  std::string candidates;
  std::set<int> runs;
  std::set<std::string> paths;
  for (std::size_t i = 0; i < matches.size(); ++i) {
    const Match& match = matches[i];
    runs.insert(match.run);
    paths.insert(match.path);
    if (i >= kMostNamed) continue;
    addToList(candidates, std::to_string(match.signal->getID()) + " (" + match.path +
                              ") in run " + std::to_string(match.run));
  }
  if (matches.size() > kMostNamed) {
    addToList(candidates, "and " + std::to_string(matches.size() - kMostNamed) + " more");
  }
  std::string ways = runs.size() > 1 ? "--run, " : "";
  if (paths.size() > 1) ways += "the path, ";
  ways += ways.empty() ? "the ID" : "or the ID";
  kodiag::raise({"VELA:vela", "AmbiguousSignal"},
                {{"Signal", words}, {"Candidates", candidates}, {"Ways", ways}});
}

}  // namespace

boost::shared_ptr<Set> findRun(ObjectManager& manager, const std::string& words) {
  boost::shared_ptr<Set> found;
  if (const int id = asID(words)) {
    if (Set::lookupVisibleSet(id, found, manager)) return found;
  }
  const std::vector<Set::Summary> matches = matching(manager, words);
  if (matches.empty()) kodiag::raise({"VELA:vela", "NoSuchRun"}, {{"Run", words}});
  if (matches.size() > 1) {
    std::string candidates;
    for (const Set::Summary& run : matches) addToList(candidates, described(run));
    kodiag::raise({"VELA:vela", "AmbiguousRun"}, {{"Run", words}, {"Candidates", candidates}});
  }
  Set::lookupVisibleSet(matches.front().id, found, manager);
  return found;
}

std::unique_ptr<Signal> findSignal(ObjectManager& manager, const std::string& words,
                                   const std::string& run) {
  const int runID = run.empty() ? 0 : findRun(manager, run)->getID();
  if (const int id = asID(words)) {
    std::unique_ptr<Signal> signal = Signal::getSignalFromID(manager, id);
    boost::shared_ptr<Set> shown;
    if (signal && Set::lookupVisibleSet(signal->getParentSetID(), shown, manager) &&
        (runID == 0 || signal->getParentSetID() == runID)) {
      return signal;
    }
  }
  std::vector<Match> matches = signalsThatFit(manager, words, runID);
  if (matches.empty()) {
    kodiag::raise({"VELA:vela", "NoSuchSignal"},
                  {{"Signal", words}, {"Where", run.empty() ? "" : " in run " + run}});
  }
  prefer(matches, [](const Match& match) { return !match.isKeptByComparison; });
  prefer(matches, [](const Match& match) { return match.isTop; });
  if (matches.size() > 1) refuseToChoose(words, matches);
  return std::move(matches.front().signal);
}

}  // namespace vela::tool
