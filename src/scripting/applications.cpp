#include "scripting/applications.h"

#include "objects/find.h"
#include "objects/strings.h"

namespace vela::scripting {

bool namesApplication(const std::string& text) {
  // Every text that names none counts as the first application, which is called "vela".
  std::string lower = text;
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower == "vela" || Set::getAppFromString(text) != Set::Application::VELA;
}

std::vector<int> runsOfInstance(ObjectManager& manager, Set::Application application) {
  using Application = Set::Application;
  std::vector<ObjectManager::Constraint> constraints = {
      equals(strings::InstanceID, manager.getInstanceID())};
  if (application == Application::AllVELA) {
    constraints.push_back({strings::Application, static_cast<int>(Application::AllVELA),
                           kodd::PropertyValueMatchRelation::Less});
  } else if (application != Application::AllApplications) {
    constraints.push_back(equals(strings::Application, static_cast<int>(application)));
  }
  return findIDs(manager, strings::DataSet, constraints);
}

}  // namespace vela::scripting
