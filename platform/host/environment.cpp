#include "host/environment.h"

#include <cstdlib>

namespace host {
namespace {

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value ? value : "";
}

}  // namespace

bool isWorkerMode() {
  const std::string mode = variable("VELA_WORKER");
  return !mode.empty() && mode != "0";
}

std::string batchAccountName() {
  const std::string account = variable("VELA_BATCH_ACCOUNT");
  return account.empty() ? "velabatch" : account;
}

}  // namespace host
