// What kind of process this is, and what its environment says.
#pragma once

#include <string>

namespace host {

/// Empty when the variable is not set.
std::string environmentVariable(const char* name);

/// Whether this process computes for another one, as a worker of a farm: the environment
/// variable VELA_WORKER is set to anything but "" or "0".
bool isWorkerMode();

/// The account that batch jobs run under: VELA_BATCH_ACCOUNT, else "velabatch". Such jobs never
/// use the shared repository.
std::string batchAccountName();

}  // namespace host
