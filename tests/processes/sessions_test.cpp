// Several instances on one file, each a process of its own: they end in every way, and others
// take their runs over.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

#include "objects/set.h"
#include "objects/signal.h"
#include "tests/objectmanager/managertest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vela::Set;

// A process that does what it is told.
class Session {
 public:
  Session(const std::filesystem::path& file, long long instance) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    const std::string path = file.string();
    const std::string id = std::to_string(instance);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(ends[1], STDIN_FILENO);
      dup2(ends[1], STDOUT_FILENO);
      execl(SESSION, SESSION, path.c_str(), id.c_str(), nullptr);
      _exit(127);
    }
    close(ends[1]);
    line_ = ends[0];
    EXPECT_EQ(answer(), 0);
  }
  ~Session() {
    close(line_);
    end();
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  void tell(char order) { EXPECT_EQ(write(line_, &order, 1), 1); }
  int answer() {
    int number = -1;
    return read(line_, &number, sizeof number) == sizeof number ? number : -1;
  }
  int ask(char order) {
    tell(order);
    return answer();
  }
  std::vector<int> answeredRuns() {
    std::vector<int> runs(static_cast<std::size_t>(std::max(answer(), 0)));
    for (int& id : runs) id = answer();
    return runs;
  }
  void kill() {
    ::kill(pid_, SIGKILL);
    end();
  }

 private:
  void end() {
    if (pid_ > 0) waitpid(pid_, nullptr, 0);
    pid_ = 0;
  }

  pid_t pid_;
  int line_;
};

class SessionsTest : public ::testing::Test {
 protected:
  std::filesystem::path file() const { return folder_ / "shared.dmr"; }
  std::unique_ptr<vela::ObjectManager> openAs(long long instance) const {
    auto manager = std::make_unique<vela::ObjectManager>(vela::test::wide(file()));
    manager->setInstanceID(static_cast<unsigned long long>(instance));
    manager->initializeObjectManager({}, {});
    return manager;
  }
  static std::vector<std::string> problems(vela::ObjectManager& manager) {
    kodiag::util::diagnostics diag;
    std::vector<std::string> found = manager.repository().integrityProblems(diag);
    diag.raiseIfAny();
    return found;
  }
  static boost::shared_ptr<Set> runOf(vela::ObjectManager& manager, int id) {
    boost::shared_ptr<Set> run;
    EXPECT_TRUE(Set::lookupSet(id, run, manager));
    return run;
  }
  static std::vector<double> timesOf(vela::ObjectManager& manager, int runID) {
    std::vector<double> times;
    std::vector<char> values;
    const auto signal =
        vela::Signal::getSignalFromID(manager, runOf(manager, runID)->getSignalByIndex(0));
    signal->readRange(-HUGE_VAL, HUGE_VAL, times, values);
    return times;
  }

  vela::test::TemporaryFolder folder_;
};

TEST_F(SessionsTest, AFourthTakesOverFromTheKilledAndTheClosedAndLeavesTheLivingAlone) {
  using State = Set::Instance::State;
  Session killed(file(), 10);
  Session closed(file(), 11);
  Session living(file(), 12);
  std::vector<int> theirs = {killed.ask('r'), killed.ask('r')};
  for (int i = 0; i < 3; ++i) theirs.push_back(closed.ask('r'));
  const int livingRun = living.ask('r');
  EXPECT_EQ(closed.ask('c'), 0);
  killed.tell('a');
  int acknowledged = 0;
  while (acknowledged < 200) acknowledged = killed.answer();
  killed.kill();
  for (int more = killed.answer(); more > 0; more = killed.answer()) acknowledged = more;

  const auto fourth = openAs(13);
  const Set own(*fourth, true);
  std::vector<std::pair<long long, State>> states;
  for (const auto& instance : Set::getInstances(*fourth)) {
    states.emplace_back(instance.id, instance.state);
  }
  using testing::Pair;
  EXPECT_THAT(states, ElementsAre(Pair(10, State::crashed), Pair(11, State::closed),
                                  Pair(12, State::alive), Pair(13, State::alive)));
  EXPECT_EQ(Set::getRunCountFromClosedInstances(*fourth, Set::Application::VELA), 5);
  EXPECT_FALSE(Set::repositoryIsEmpty(*fourth));

  EXPECT_EQ(Set::importClosedInstances(*fourth), theirs);
  for (std::size_t i = 0; i < theirs.size(); ++i) {
    const auto run = runOf(*fourth, theirs[i]);
    EXPECT_EQ(run->getRunNumber(), static_cast<int>(i) + 2);
    EXPECT_EQ(run->getOrderIndex(), own.getOrderIndex() + static_cast<int>(i) + 1);
    EXPECT_FALSE(run->isActivelyStreaming());
  }
  const auto untouched = runOf(*fourth, livingRun);
  EXPECT_EQ(untouched->getObjectReference().getPropertyInt64("InstanceID"), 12);
  EXPECT_EQ(untouched->getRunNumber(), 1);
  EXPECT_TRUE(untouched->isActivelyStreaming());

  const std::vector<double> times = timesOf(*fourth, theirs[1]);
  ASSERT_GE(times.size(), static_cast<std::size_t>(acknowledged));
  ASSERT_LE(times.size(), static_cast<std::size_t>(acknowledged) + 1);
  for (std::size_t k = 0; k < times.size(); ++k) ASSERT_EQ(times[k], static_cast<double>(k));
  EXPECT_THAT(problems(*fourth), IsEmpty());
  // The living one writes on.
  EXPECT_GT(living.ask('r'), 0);
}

TEST_F(SessionsTest, TwoThatAdoptAtOnceNeverTakeARunTwiceAndNeverLoseOne) {
  std::set<int> runs;
  int roundsShared = 0;
  for (int round = 0; round < 100; ++round) {
    SCOPED_TRACE(round);
    const long long instance = 1000 + 10 * round;
    Session one(file(), instance);
    Session other(file(), instance + 1);
    {
      const auto writer = openAs(instance + 2);
      for (int i = 0; i < 2; ++i) runs.insert(Set(*writer, true).getID());
      if (round % 2 == 0) writer->setInstanceClosed();
    }
    one.tell('i');
    other.tell('i');
    const std::vector<int> ones = one.answeredRuns();
    const std::vector<int> others = other.answeredRuns();
    roundsShared += !ones.empty() && !others.empty();
    std::set<int> adopted(ones.begin(), ones.end());
    adopted.insert(others.begin(), others.end());
    ASSERT_EQ(adopted.size(), ones.size() + others.size());
    ASSERT_EQ(adopted, runs);
    if (round % 20 > 0) continue;
    const auto manager = openAs(instance + 3);
    ASSERT_THAT(problems(*manager), IsEmpty());
    const std::pair<long long, const std::vector<int>*> takers[] = {{instance, &ones},
                                                                    {instance + 1, &others}};
    for (const auto& [taker, taken] : takers) {
      for (const int id : *taken) {
        ASSERT_EQ(runOf(*manager, id)->getObjectReference().getPropertyInt64("InstanceID"),
                  taker);
      }
    }
  }
  EXPECT_EQ(roundsShared, 0) << "whoever comes second finds nothing left";
}

}  // namespace
