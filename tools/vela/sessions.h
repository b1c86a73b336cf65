// The sessions that have used a repository, and acting in the name of one.
#pragma once

#include <string>
#include <vector>

#include "objects/set.h"

namespace vela::tool {

/// What people call a session: its number and how it stands.
std::string sessionLabel(const Set::Instance& session);
/// "alive", "closed", "crashed" or "file" for what belongs to the file rather than to a
/// session.
std::string stateText(Set::Instance::State state);
bool isAlive(const Set::Instance& session);

/// Makes a manager act for a session until the end of the scope; the session stays as it was,
/// ended or alive.
class ActingFor {
 public:
  ActingFor(ObjectManager& manager, long long session);
  ~ActingFor();
  ActingFor(const ActingFor&) = delete;
  ActingFor& operator=(const ActingFor&) = delete;

 private:
  ObjectManager& manager_;
  long long before_;
};

}  // namespace vela::tool
