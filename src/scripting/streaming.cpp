#include "scripting/streaming.h"

#include "objects/signalremoval.h"
#include "scripting/errors.h"

namespace vela::scripting {

void raiseStreaming(const std::string& kind, int id) {
  throwScriptingError({"nexstore:nex", "DeleteStreamingSignal"},
                      {{"Operand", kind + " " + std::to_string(id)}});
}

void requireNoneStreams(ObjectManager& manager, int signalID) {
  refuseStreamingSignals(manager, signalsBelow(manager, signalID));
}

}  // namespace vela::scripting
