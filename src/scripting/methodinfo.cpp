#include "scripting/methodinfo.h"

#include <algorithm>
#include <utility>

#include "host/classes/calls.h"
#include "scripting/errors.h"

namespace vela::scripting {

NexCOSMethodInfo::NexCOSMethodInfo(std::string name, std::string documentation,
                                   host::MethodSignature signature, RaisedIDs raisedIDs)
    : name_(std::move(name)),
      signature_(std::move(signature)),
      documentation_(std::move(documentation)) {
  for (std::string& id : raisedIDs) {
    if (std::ranges::find(raisedIDs_, id) == raisedIDs_.end()) {
      raisedIDs_.push_back(std::move(id));
    }
  }
}

void NexCOSMethodInfo::invoke(int& resultCount, std::span<host::OutputValue> outputs,
                              std::span<const host::InputValue> inputs) const {
  resultCount = 0;
  host::checkInputCount(*this, inputs.size());
  try {
    perform(outputs, inputs);
  } catch (const kodiag::except::ExceptionWithCauses& error) {
    raiseInnermost(error);
  }
  resultCount = static_cast<int>(signature_.outputs().size());
}

}  // namespace vela::scripting
