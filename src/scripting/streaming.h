// Removal is refused for what is still being written.
#pragma once

#include <string>

#include "objectmanager/objectmanager.h"

namespace vela::scripting {

/// \param kind  "Run" or "Signal"
[[noreturn]] void raiseStreaming(const std::string& kind, int id);

/// \throws "nexstore:nex:DeleteStreamingSignal" when the signal or one below it is streaming
void requireNoneStreams(ObjectManager& manager, int signalID);

}  // namespace vela::scripting
