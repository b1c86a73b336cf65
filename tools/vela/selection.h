// Finds the run or signal a person means.
#pragma once

#include <memory>
#include <string>

#include "objects/set.h"
#include "objects/signal.h"

namespace vela::tool {

/// The visible run of any session with that ID or, where there is none, that display name or
/// else that number. \throws "VELA:vela:NoSuchRun" or "VELA:vela:AmbiguousRun" naming the
/// candidates
boost::shared_ptr<Set> findRun(ObjectManager& manager, const std::string& words);

/// The signal with that ID, name ("x", of an element "m(1,2)") or path ("bus.x"), in visible
/// runs or in the one given. Of several, those without a parent come before those below others,
/// and signals of other runs before those that a comparison keeps.
///
/// \param run  empty: any
/// \throws "VELA:vela:NoSuchSignal" or "VELA:vela:AmbiguousSignal" naming the candidates
std::unique_ptr<Signal> findSignal(ObjectManager& manager, const std::string& words,
                                   const std::string& run);

}  // namespace vela::tool
