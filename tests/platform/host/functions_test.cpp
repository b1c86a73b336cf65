#include "host/functions.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/support/throwsid.h"

namespace {

using host::HostArray;
using host::HostArrays;
using vela::test::ThrowsId;

class HostFunctionsTest : public ::testing::Test {
 protected:
  HostFunctionsTest() {
    host::registerFunction("pair", [](std::span<const HostArray> arguments, std::size_t) {
      return HostArrays{HostArray::scalar(2 * arguments[0].toDouble()), HostArray::text("x")};
    });
  }
  ~HostFunctionsTest() override { host::unregisterFunction("pair"); }

  const HostArrays four_ = {HostArray::scalar(4.0)};
};

TEST_F(HostFunctionsTest, ReturnExactlyTheResultsAskedFor) {
  EXPECT_EQ(host::callFunction("pair", four_), HostArrays{HostArray::scalar(8.0)});
  EXPECT_EQ(host::callFunction("pair", four_, 0).size(), 0u);
  EXPECT_EQ(host::callFunction("pair", four_, 2)[1], HostArray::text("x"));
  EXPECT_THAT([&] { host::callFunction("pair", four_, 3); },
              ThrowsId("nexstore:nex:HostFunctionResults"));
}

TEST_F(HostFunctionsTest, ThatNobodyOffersFailByName) {
  host::registerFunction("empty", nullptr);
  for (const char* const name : {"none", "empty"}) {
    try {
      host::callFunction(name);
      ADD_FAILURE() << name;
    } catch (const kodiag::except::ExceptionWithCauses& error) {
      EXPECT_EQ(error.id(), "nexstore:nex:NoSuchHostFunction");
      EXPECT_NE(std::string(error.what()).find(name), std::string::npos);
    }
  }
  EXPECT_TRUE(host::unregisterFunction("empty"));
  EXPECT_FALSE(host::unregisterFunction("empty"));
}

TEST_F(HostFunctionsTest, MayWithdrawThemselvesWhileTheyRunAndTheirFailuresReachTheCaller) {
  host::registerFunction("once", [](std::span<const HostArray>, std::size_t) -> HostArrays {
    host::unregisterFunction("once");
    throw std::runtime_error("spent");
  });
  EXPECT_THROW(host::callFunction("once"), std::runtime_error);
  EXPECT_FALSE(host::hasFunction("once"));
}

}  // namespace
