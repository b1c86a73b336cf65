#include "scripting/streaming.h"

#include "objects/selections.h"
#include "objects/signalremoval.h"
#include "objects/strings.h"
#include "scripting/errors.h"

namespace vela::scripting {

void raiseStreaming(const std::string& kind, int id) {
  throwScriptingError({"nexstore:nex", "DeleteStreamingSignal"},
                      {{"Operand", kind + " " + std::to_string(id)}});
}

void requireNoneStreams(ObjectManager& manager, int signalID) {
  const kodd::Selection signals =
      withIDs(manager, strings::Signal, signalsBelow(manager, signalID));
  const std::vector<int> streaming =
      selectedIDs(manager, where(signals, strings::IsActivelyStreaming, 0,
                                 kodd::PropertyValueMatchRelation::NotEqual));
  if (!streaming.empty()) raiseStreaming("Signal", streaming.front());
}

}  // namespace vela::scripting
