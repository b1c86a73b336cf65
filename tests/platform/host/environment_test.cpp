#include "host/environment.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

TEST(Environment, TellsWorkersAndTheBatchAccount) {
  unsetenv("VELA_WORKER");
  EXPECT_FALSE(host::isWorkerMode());
  for (const auto& [value, isWorker] : {std::pair{"", false}, {"0", false}, {"1", true}}) {
    setenv("VELA_WORKER", value, 1);
    EXPECT_EQ(host::isWorkerMode(), isWorker) << value;
  }
  unsetenv("VELA_WORKER");
  setenv("VELA_BATCH_ACCOUNT", "nightly", 1);
  EXPECT_EQ(host::batchAccountName(), "nightly");
  unsetenv("VELA_BATCH_ACCOUNT");
  EXPECT_FALSE(host::batchAccountName().empty());
}

}  // namespace
