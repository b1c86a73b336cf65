#include "tools/vela/newruns.h"

#include <algorithm>

#include "text/utf8.h"

namespace vela::tool {
namespace {

std::vector<Set::Summary> allRuns(ObjectManager& manager) {
  return Set::getRunSummaries(manager, Set::Application::AllApplications, Set::Sessions::all);
}

}  // namespace

void continueNumbers(ObjectManager& manager) {
  int highest = Set::getHighestRunNumber(manager);
  for (const Set::Summary& run : allRuns(manager)) highest = std::max(highest, run.number);
  Set::setHighestRunNumber(manager, highest);
}

std::map<std::string, int> countNames(ObjectManager& manager) {
  std::map<std::string, int> counts;
  for (const Set::Summary& run : allRuns(manager)) ++counts[text::toUtf8(run.displayName)];
  return counts;
}

}  // namespace vela::tool
