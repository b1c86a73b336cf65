#include "scripting/streaming.h"

#include "objects/signal.h"
#include "objects/signalremoval.h"
#include "scripting/errors.h"

namespace vela::scripting {

void raiseStreaming(const std::string& kind, int id) {
  throwScriptingError({"nexstore:nex", "DeleteStreamingSignal"},
                      {{"Operand", kind + " " + std::to_string(id)}});
}

void requireNoneStreams(ObjectManager& manager, int signalID) {
  for (const int id : signalsBelow(manager, signalID)) {
    const auto signal = Signal::getSignalFromID(manager, id);
    if (signal && signal->getIsActivelyStreaming()) raiseStreaming("Signal", id);
  }
}

}  // namespace vela::scripting
