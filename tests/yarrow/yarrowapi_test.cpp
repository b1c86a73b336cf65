#include "yarrow/yarrowapi.h"

#include <cstdlib>

#include "tests/objectmanager/managertest.h"
#include "velainstance.h"

namespace yarrow {
namespace {

TEST(YarrowApiDeathTest, StreamsLiveInTheSharedRepository) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto inOwnProcess = [] {
    bool passed = false;
    {
      vela::test::TemporaryFolder folder;
      setenv("TMPDIR", folder.path().c_str(), 1);
      const std::string stream = YarrowAPI::createStream(StreamDataType::Int8, 2);
      YarrowAPI::addDataToStream(stream, {{0, {1, 2.5}}, {1, {3, 4}}});
      YarrowAPI::updateDataInStream(stream, {{0, {5, 6}}});
      YarrowAPI::deleteDataInStream(stream, {1});
      YarrowAPI::setStringMetaDataForStream(stream, "unit", "V");
      YarrowAPI::setDoubleMetaDataForStream(stream, "rate", 10);
      vela::VelaInstance::getInstance().disconnectAll();

      YarrowAPI::Rows rows;
      YarrowAPI::getDataFromStream(stream, 0, 9, -1, -1, rows);
      YarrowAPI::StringMetaData texts;
      YarrowAPI::DoubleMetaData numbers;
      YarrowAPI::getMetaDataForStream(stream, texts, numbers);
      passed = rows == YarrowAPI::Rows{{0, {5, 6}}} &&
               texts == YarrowAPI::StringMetaData{{"unit", "V"}} &&
               numbers == YarrowAPI::DoubleMetaData{{"rate", 10}};
      vela::VelaInstance::getInstance().disconnectAll();
    }
    std::exit(passed ? 0 : 1);
  };
  EXPECT_EXIT(inOwnProcess(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace yarrow
