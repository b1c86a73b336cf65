#include "ko_register/coremodulefactory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using vela::NexCoreModuleFactory;

class CoreModuleFactoryTest : public ::testing::Test {
 protected:
  void makeModule(const std::string& name, observer::ModuleMaker maker) {
    observer::registerCoreModule(name, std::move(maker));
    names_.push_back(name);
  }
  ~CoreModuleFactoryTest() override {
    for (const std::string& name : names_) observer::unregisterCoreModule(name);
  }

  NexCoreModuleFactory onDemand_{true};
  NexCoreModuleFactory other_{false};
  std::vector<std::string> names_;
};

TEST_F(CoreModuleFactoryTest, LoadsOneModuleAtATimeThroughOneMap) {
  std::atomic<int> inside = 0;
  std::atomic<int> overlaps = 0;
  int module = 0;
  makeModule("slow", [&]() -> void* {
    if (++inside > 1) ++overlaps;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    --inside;
    return &module;
  });
  std::vector<std::thread> threads;
  for (NexCoreModuleFactory* factory : {&onDemand_, &other_, &onDemand_, &other_}) {
    threads.emplace_back([&, factory] { EXPECT_EQ(factory->invokeFactory("slow"), &module); });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(&onDemand_.moduleMap(), &other_.moduleMap());
}

TEST_F(CoreModuleFactoryTest, AFailedLoadLeavesTheNextOneFree) {
  makeModule("broken", []() -> void* { throw std::runtime_error("no"); });
  EXPECT_THROW(onDemand_.invokeFactory("broken"), std::runtime_error);
  // From another thread: the one that failed might enter again without having left.
  std::thread other(
      [this] { EXPECT_THROW(other_.invokeFactory("broken"), std::runtime_error); });
  other.join();
  EXPECT_EQ(onDemand_.invokeFactory("unknown"), nullptr);
}

TEST_F(CoreModuleFactoryTest, AModuleMayLoadAnotherOne) {
  int module = 0;
  makeModule("inner", [&module] { return static_cast<void*>(&module); });
  makeModule("outer", [this] { return other_.invokeFactory("inner"); });
  EXPECT_EQ(onDemand_.invokeFactory("outer"), &module);
}

}  // namespace
