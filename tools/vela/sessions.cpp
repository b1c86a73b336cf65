#include "tools/vela/sessions.h"

namespace vela::tool {

std::string stateText(Set::Instance::State state) {
  switch (state) {
    case Set::Instance::State::alive:
      return "alive";
    case Set::Instance::State::closed:
      return "closed";
    case Set::Instance::State::crashed:
      return "crashed";
    case Set::Instance::State::untracked:
      return "file";
  }
  return {};
}

std::string sessionLabel(const Set::Instance& session) {
  return "session " + std::to_string(session.id) + " (" + stateText(session.state) + ")";
}

bool isAlive(const Set::Instance& session) {
  return session.state == Set::Instance::State::alive;
}

ActingFor::ActingFor(ObjectManager& manager, long long session)
    : manager_(manager), before_(manager.getInstanceID()) {
  manager_.actForInstance(session);
}

ActingFor::~ActingFor() {
  manager_.actForInstance(before_);
}

}  // namespace vela::tool
