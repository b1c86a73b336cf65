#include "host/features.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/throwsid.h"

namespace {

using host::Feature;

TEST(Features, AreFoundByNameWhileTheyLive) {
  EXPECT_EQ(host::findFeature("Shiny"), nullptr);
  {
    Feature shiny("Shiny", "a shiny thing", "tests", "Things", 12, 3);
    EXPECT_EQ(host::findFeature("Shiny"), &shiny);
    EXPECT_EQ(host::allFeatures(), std::vector<Feature*>{&shiny});
    EXPECT_EQ(shiny.setFeatValFromC(5), 3);
    EXPECT_EQ(host::findFeature("Shiny")->value(), 5);
    EXPECT_EQ(shiny.defaultValue(), 3);
  }
  EXPECT_EQ(host::findFeature("Shiny"), nullptr);
}

TEST(Features, OfOneNameStandAlone) {
  Feature first("Shiny", "", "", "", 0, 1);
  EXPECT_THAT([] { Feature second("Shiny", "", "", "", 0, 2); },
              vela::test::ThrowsId("nexstore:nex:FeatureExists"));
  EXPECT_EQ(host::findFeature("Shiny"), &first);
}

TEST(Features, CountEveryReadOfEveryThreadAndNoWrite) {
  Feature shiny("Shiny", "", "", "", 0, 0);
  std::vector<std::thread> readers;
  for (int i = 0; i < 4; ++i) {
    readers.emplace_back([&shiny] {
      for (int read = 0; read < 1000; ++read) shiny.setFeatValFromC(shiny.value());
    });
  }
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(shiny.accessCount(), 4000u);
}

TEST(TestingHooks, AreOffUntilSet) {
  host::TestingHook hook("Stress", "stresses", "tests");
  EXPECT_EQ(host::findFeature("Stress")->value(), 0);
  hook.setFeatValFromC(1);
  EXPECT_EQ(hook.value(), 1);
}

}  // namespace
