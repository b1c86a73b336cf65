// Which application's runs a method works on.
#pragma once

#include <optional>
#include <vector>

#include "objects/set.h"
#include "scripting/arguments.h"

namespace vela::scripting {

using ApplicationText = std::optional<Ascii<"application">>;

inline Set::Application applicationOf(const ApplicationText& text, Set::Application otherwise) {
  return text ? Set::getAppFromString(*text) : otherwise;
}

/// Whether a text is the name of an application.
bool namesApplication(const std::string& text);

/// IDs of this instance's runs of an application, hidden ones too, in creation order.
std::vector<int> runsOfInstance(ObjectManager& manager, Set::Application application);

}  // namespace vela::scripting
