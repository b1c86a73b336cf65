#include "host/environment.h"

#include <cstdlib>

namespace host {

std::string environmentVariable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

bool isWorkerMode() {
  const std::string mode = environmentVariable("VELA_WORKER");
  return !mode.empty() && mode != "0";
}

std::string batchAccountName() {
  const std::string account = environmentVariable("VELA_BATCH_ACCOUNT");
  return account.empty() ? "velabatch" : account;
}

}  // namespace host
