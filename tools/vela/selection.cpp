#include "tools/vela/selection.h"

#include <algorithm>
#include <climits>
#include <iterator>
#include <map>
#include <vector>

#include "kodiag/message.h"
#include "objects/strings.h"
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

bool isShown(ObjectManager& manager, int runID) {
  boost::shared_ptr<Set> run;
  return Set::lookupVisibleSet(runID, run, manager);
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
    if (signal && isShown(manager, signal->getParentSetID()) &&
        (runID == 0 || signal->getParentSetID() == runID)) {
      return signal;
    }
  }
  std::vector<ObjectManager::Constraint> constraints = {
      {strings::Name, text::toWide(words), kodd::PropertyValueMatchRelation::Equal}};
  if (runID != 0) {
    constraints.emplace_back(strings::FK_SetID, runID, kodd::PropertyValueMatchRelation::Equal);
  }
  boost::ptr_vector<ObjectRef> objects;
  manager.findObjects(strings::Signal, constraints, objects);

  std::string candidates;
  std::unique_ptr<Signal> found;
  int matches = 0;
  for (const ObjectRef& object : objects) {
    auto signal = std::make_unique<Signal>(object.clone());
    if (!isShown(manager, signal->getParentSetID())) continue;
    ++matches;
    addToList(candidates, std::to_string(object.getObjectID()) + " in run " +
                              std::to_string(signal->getParentSetID()));
    found = std::move(signal);
  }
  if (matches == 0) {
    kodiag::raise({"VELA:vela", "NoSuchSignal"},
                  {{"Signal", words}, {"Where", run.empty() ? "" : " in run " + run}});
  }
  if (matches > 1) {
    kodiag::raise({"VELA:vela", "AmbiguousSignal"},
                  {{"Signal", words}, {"Candidates", candidates}});
  }
  return found;
}

}  // namespace vela::tool
