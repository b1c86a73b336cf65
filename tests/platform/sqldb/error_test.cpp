#include "sqldb/error.h"

#include "sqldbtest.h"

namespace sqldb {
namespace {

// Codes as the engine publishes them.
TEST(ErrorTest, MapsTheEnginesCodesToWhatACallerCanDo) {
  const std::pair<int, const char*> cases[] = {
      {11, "sqldb:ssdb:Corrupt"},
      {11 | 1 << 8, "sqldb:ssdb:Corrupt"},
      {26, "sqldb:ssdb:Corrupt"},
      {5, "KODD:kodd:RepositoryBusy"},
      {5 | 2 << 8, "KODD:kodd:RepositoryBusy"},
      {6, "KODD:kodd:RepositoryBusy"},
      {15, "KODD:kodd:RepositoryBusy"},
      {13, "KODD:kodd:DiskFull"},
      {8, "KODD:kodd:ReadOnly"},
      {8 | 4 << 8, "KODD:kodd:FileRemoved"},
      {14, "KODD:kodd:IOError"},
      {10 | 3 << 8, "KODD:kodd:IOError"},
      {10 | 12 << 8, "KODD:kodd:OutOfMemory"},
      {7, "KODD:kodd:OutOfMemory"},
      {18, "KODD:kodd:ValueTooLarge"},
      {9, "KODD:kodd:Interrupted"},
      {21, "nexstore:nex:InternalError"},
      {1, "nexstore:nex:InternalError"},
  };
  for (const auto& [code, id] : cases) {
    EXPECT_EQ(errorMessage(code, "append", "/runs.dmr", "why").id.str(), id) << code;
  }
}

TEST(ErrorTest, TheTextNamesOperationPlaceAndTheEnginesWords) {
  const std::string text = errorMessage(13, "append", "/runs.dmr", "disk is full").text();
  for (const char* part : {"append", "/runs.dmr", "disk is full"}) {
    EXPECT_THAT(text, ::testing::HasSubstr(part));
  }
}

}  // namespace
}  // namespace sqldb
