#include <chrono>
#include <map>
#include <regex>
#include <thread>

#include "managertest.h"
#include "objectmanager/findobjectstracer.h"
#include "objectmanager/nextimer.h"
#include "objectmanager/statementtimes.h"

namespace vela {
namespace {

using Relation = kodd::PropertyValueMatchRelation;

class TracingTest : public test::ManagerTest {};

TEST_F(TracingTest, CountsAndTimesByClassAndProperties) {
  const kodd::ClassRef signal = manager_->getClass("Signal");
  const kodd::PropertyRef name = signal.findProperty("Name");
  const kodd::PropertyRef model = signal.findProperty("Model");
  FindObjectsTracer tracer;
  EXPECT_TRUE(tracer.rows().empty());
  tracer.record(signal, {name, model}, 1.0);
  tracer.record(signal, {name, model}, 0.5);
  tracer.record(signal, {model, name}, 4.0);
  std::thread([&] {
    tracer.record(signal, {model, name}, 6.0);
    tracer.record(manager_->getClass("DataSet"), {}, 8.0);
  }).join();
  const auto numbers = [&](FindObjectsTracer::Threads threads) {
    std::map<std::string, std::tuple<unsigned, double, double>> found;
    for (const auto& row : tracer.rows(threads)) {
      found[row.table + ": " + row.properties] = {row.hits, row.totalSeconds,
                                                  row.averageSeconds};
    }
    return found;
  };
  using testing::Pair;
  EXPECT_THAT(numbers(FindObjectsTracer::Threads::all),
              testing::ElementsAre(Pair("DataSet: ", std::tuple(1, 8.0, 8.0)),
                                   Pair("Signal: Model, Name", std::tuple(2, 10.0, 5.0)),
                                   Pair("Signal: Name, Model", std::tuple(2, 1.5, 0.75))));
  EXPECT_THAT(numbers(FindObjectsTracer::Threads::main),
              testing::ElementsAre(Pair("Signal: Model, Name", std::tuple(1, 4.0, 4.0)),
                                   Pair("Signal: Name, Model", std::tuple(2, 1.5, 0.75))));
  tracer.reset();
  EXPECT_TRUE(tracer.rows().empty());
}

TEST(QueryTableTest, HasAHeaderAndARowForEachRecord) {
  EXPECT_EQ(tableOf({}).dimensions(), (host::Dimensions{1, 5}));
  const host::HostArray table = tableOf({{"Signal", "Name", 2, 3, 1.5}, {"Unit", "", 1, 1, 1}});
  EXPECT_EQ(table.dimensions(), (host::Dimensions{3, 5}));
  const auto cellAt = [&](std::size_t row, std::size_t column) {
    return table.cell(row + 3 * column);
  };
  EXPECT_EQ(cellAt(0, 0).toString(), "Table:");
  EXPECT_EQ(cellAt(0, 4).toString(), "Average time:");
  EXPECT_EQ(cellAt(1, 1).toString(), "Name");
  EXPECT_EQ(cellAt(1, 2), host::HostArray::scalar(2.0));
  EXPECT_EQ(cellAt(1, 4), host::HostArray::scalar(1.5));
  EXPECT_EQ(cellAt(2, 0).toString(), "Unit");
}

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

void pass(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

double timed(const std::string& name, const char* what) {
  return NexTimer::getInstance().getTimerResults()->field(name).field(what).toDouble();
}

TEST(NexTimerTest, AddsUpWhatPassesBetweenStartsAndStops) {
  NexTimer& timer = NexTimer::getInstance();
  timer.log("never started", stopTimer);
  for (int i = 0; i < 2; ++i) {
    timer.log("a", startTimer);
    pass(0.02);
    timer.log("a", stopTimer);
    timer.log("a", stopTimer);
  }
  EXPECT_GE(timed("a", "Total"), 0.04);
  EXPECT_LT(timed("a", "Total"), 10);
  EXPECT_DOUBLE_EQ(timed("a", "Average"), timed("a", "Total") / 2);
  EXPECT_EQ(timer.getTimerResults()->findField("never started"), nullptr);

  timer.log("running", startTimer);
  timer.reset();
  EXPECT_TRUE(timer.getTimerResults()->fieldNames().empty());
  pass(0.01);
  timer.log("running", stopTimer);
  EXPECT_GE(timed("running", "Total"), 0.01);
  EXPECT_EQ(timed("running", "Average"), 0);
  timer.reset();
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

// The log's directory cannot be written, which the work does not notice.
TEST(TracingDeathTest, TimesAreSummedByStatementAndLogsThatCannotBeWrittenAreSkipped) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        test::TemporaryFolder folder;
        std::filesystem::create_directory(folder / "gone");
        std::filesystem::current_path(folder / "gone");
        std::filesystem::remove(folder / "gone");
        statementtimes::enable();
        ObjectManager::enableDBTrace();
        ObjectManager::enableDBProfile();
        ObjectManager manager;
        manager.initializeObjectManager("", "");
        for (int i = 0; i < 50; ++i) manager.createObject("DataSet", false);
        const std::vector<statementtimes::Row> rows = statementtimes::rows();
        const auto insert = std::ranges::find_if(rows, [](const statementtimes::Row& row) {
          return row.statement.starts_with("INSERT") &&
                 row.statement.find("DataSet") != std::string::npos;
        });
        EXPECT_NE(insert, rows.end());
        EXPECT_EQ(insert->calls, 50u);
        EXPECT_GT(insert->totalSeconds, 0);
        EXPECT_TRUE(
            std::ranges::is_sorted(rows, std::greater<>(), &statementtimes::Row::totalSeconds));
        std::exit(testing::Test::HasFailure() ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vela
