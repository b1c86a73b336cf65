// Transactions as scripts drive them.
#include "scriptingtest.h"

namespace vela {
namespace {

using host::HostArray;
using host::HostArrays;
using test::idOf;

class TransactionMethodsTest : public test::ScriptingTest {
 protected:
  int runs() { return vela_.id("getRunCount"); }
  HostArray function(std::function<HostArrays(std::span<const HostArray>)> body) {
    return HostArray::function([body = std::move(body)](std::span<const HostArray> inputs,
                                                        std::size_t) { return body(inputs); });
  }
};

TEST_F(TransactionMethodsTest, ExplicitOnesKeepOrUndoEverything) {
  vela_("beginTransaction");
  run();
  vela_("rollbackTransaction");
  EXPECT_EQ(runs(), 0);
  vela_("beginTransaction");
  run();
  EXPECT_EQ(idOf([&] { vela_("beginTransaction"); }), "KODD:kodd:TransactionActive");
  run();
  vela_("commitTransaction");
  EXPECT_EQ(runs(), 2);
  EXPECT_EQ(idOf([&] { vela_("commitTransaction"); }), "KODD:kodd:NoTransaction");
  EXPECT_EQ(idOf([&] { vela_("rollbackTransaction"); }), "KODD:kodd:NoTransaction");
}

TEST_F(TransactionMethodsTest, AFunctionIsOneUnitAndItsResultComesBack) {
  const HostArray sum = function([&](std::span<const HostArray> inputs) -> HostArrays {
    run();
    return {HostArray::scalar(inputs[0].toDouble() + inputs[1].toDouble())};
  });
  EXPECT_EQ(vela_("safeTransaction", sum, 2.0, 0.5), HostArray::scalar(2.5));
  EXPECT_EQ(runs(), 1);
  EXPECT_EQ(vela_("safeTransaction", function([](auto) { return HostArrays(); })), HostArray());
  EXPECT_EQ(idOf([&] { vela_("safeTransaction", 3); }), "nexstore:nex:InvalidData");
}

TEST_F(TransactionMethodsTest, AnInnerFailureThatIsCaughtUndoesTheInnerWorkOnly) {
  const HostArray failing = function([&](auto) -> HostArrays {
    run();
    throw std::runtime_error("inner");
  });
  const HostArray outer = function([&](auto) -> HostArrays {
    run();
    EXPECT_THROW(vela_("safeTransaction", failing), std::runtime_error);
    EXPECT_EQ(runs(), 1);
    return {};
  });
  vela_("safeTransaction", outer);
  EXPECT_EQ(runs(), 1);
  vela_("beginTransaction");
  run();
  EXPECT_THROW(vela_("safeTransaction", failing), std::runtime_error);
  vela_("commitTransaction");
  EXPECT_EQ(runs(), 2);
}

}  // namespace
}  // namespace vela
