#include <regex>

#include "managertest.h"
#include "objectmanager/findobjectstracer.h"

namespace vela {
namespace {

using Relation = kodd::PropertyValueMatchRelation;

TEST(FindObjectsTracerTest, CountsAndTimesByClassAndProperties) {
  FindObjectsTracer tracer;
  EXPECT_TRUE(tracer.rows().empty());
  tracer.record("Signal", {"Name", "Model"}, 1.0);
  tracer.record("Signal", {"Name", "Model"}, 0.5);
  tracer.record("Signal", {"Model", "Name"}, 4.0);
  tracer.record("DataSet", {}, 8.0);
  const auto rows = tracer.rows();
  ASSERT_EQ(rows.size(), 3u);
  const auto row = std::find_if(rows.begin(), rows.end(), [](const FindObjectsTracer::Row& r) {
    return r.properties == "Name, Model";
  });
  ASSERT_NE(row, rows.end());
  EXPECT_EQ(row->table, "Signal");
  EXPECT_EQ(row->hits, 2u);
  EXPECT_EQ(row->totalSeconds, 1.5);
  EXPECT_EQ(row->averageSeconds, 0.75);
  tracer.reset();
  EXPECT_TRUE(tracer.rows().empty());
}

class TracingTest : public test::ManagerTest {};

TEST_F(TracingTest, QueriesAreRecordedByTheirManager) {
  boost::ptr_vector<ObjectRef> results;
  const auto run = create("DataSet");
  manager_->getFindObjectsTracer().reset();
  manager_->findObjects("DataSet", {{"Visible", 1, Relation::Equal}}, results,
                        {{"BaselineSetID", run.get()}});
  manager_->findObjects(*run, "Signal", {{"Name", std::wstring(L"x"), Relation::Equal}},
                        results);
  std::vector<std::pair<std::string, std::string>> recorded;
  for (const auto& row : manager_->getFindObjectsTracer().rows()) {
    EXPECT_GE(row.totalSeconds, 0);
    recorded.emplace_back(row.table, row.properties);
  }
  EXPECT_THAT(recorded,
              testing::UnorderedElementsAre(testing::Pair("DataSet", "Visible, BaselineSetID"),
                                            testing::Pair("Signal", "Name")));
}

std::vector<std::string> linesOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

// In a process of its own: what is enabled stays enabled, and the logs go to its current
// directory.
TEST(TracingDeathTest, StatementsAndDurationsAreLoggedForRepositoriesOpenedAfterwards) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        test::TemporaryFolder folder;
        std::filesystem::current_path(folder.path());
        ObjectManager before;
        before.initializeObjectManager("", "");
        ObjectManager::enableDBTrace();
        ObjectManager::enableDBProfile();
        before.createObject("DataSet", false);
        EXPECT_FALSE(std::filesystem::exists("dbtrace_log.txt"));

        ObjectManager after;
        after.initializeObjectManager("", "");
        const std::size_t alreadyLogged = linesOf("dbtrace_log.txt").size();
        after.createObject("DataSet", false);
        const auto statements = linesOf("dbtrace_log.txt");
        EXPECT_GT(statements.size(), alreadyLogged);
        EXPECT_THAT(statements, testing::Contains(testing::HasSubstr("INSERT")));
        const auto durations = linesOf("dbprofile_log.txt");
        EXPECT_FALSE(durations.empty());
        EXPECT_TRUE(
            std::regex_search(durations.back(), std::regex("^[0-9]+\\.[0-9]{4}s\t[A-Z]")));
        std::exit(testing::Test::HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vela
