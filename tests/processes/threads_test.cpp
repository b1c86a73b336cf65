// Processes of many threads, killed at random: what they acknowledged is there, what they undid
// is not, and none of their threads stood still.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "acknowledgement.h"
#include "kodiag/diagnostics.h"
#include "objectmanager/objectmanager.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "text/utf8.h"

namespace {

using Clock = std::chrono::steady_clock;
using ::testing::IsEmpty;

constexpr int kThreads = 8;
constexpr int kFiles = 3;

/// The number in an environment variable, for longer runs by hand.
int setting(const char* name, int otherwise) {
  const char* text = std::getenv(name);
  return text == nullptr ? otherwise : std::atoi(text);
}

/// What a killed process had acknowledged.
struct Outcome {
  std::vector<std::set<int>> runs = std::vector<std::set<int>>(kFiles);
  std::vector<std::map<int, int>> samples = std::vector<std::map<int, int>>(kFiles);
  std::vector<Clock::time_point> lastSign = std::vector<Clock::time_point>(kThreads);
  long records = 0;
  long forks = 0;
  long busy = 0;
  std::vector<int> faults;

  void note(const Acknowledgement& each) {
    ++records;
    lastSign.at(std::size_t(each.thread)) = Clock::now();
    switch (each.what) {
      case Acknowledged::run:
        runs.at(std::size_t(each.file)).insert(each.id);
        break;
      case Acknowledged::samples:
        samples.at(std::size_t(each.file))[each.id] = each.count;
        break;
      case Acknowledged::work:
        forks += each.id;
        break;
      case Acknowledged::busy:
        ++busy;
        break;
      case Acknowledged::fault:
        faults.push_back(each.id);
        break;
    }
  }
};

class ThreadsProcess {
 public:
  ThreadsProcess(const std::vector<std::string>& files, unsigned seed) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    std::vector<std::string> arguments{THREADS, std::to_string(kThreads), std::to_string(seed)};
    arguments.insert(arguments.end(), files.begin(), files.end());
    std::vector<char*> pointers;
    for (std::string& each : arguments) pointers.push_back(each.data());
    pointers.push_back(nullptr);
    pid_ = fork();
    if (pid_ == 0) {
      setpgid(0, 0);
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      execv(THREADS, pointers.data());
      _exit(127);
    }
    close(ends[1]);
    pipe_ = ends[0];
  }
  ~ThreadsProcess() {
    close(pipe_);
    ::kill(-pid_, SIGKILL);  // children that hang
    int status = 0;
    waitpid(pid_, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)
        << "ended by itself: " << status;
  }
  ThreadsProcess(const ThreadsProcess&) = delete;
  ThreadsProcess& operator=(const ThreadsProcess&) = delete;

  void listenUntil(Clock::time_point end, Outcome& outcome) {
    while (Clock::now() < end && readOne(end, outcome)) {
    }
  }
  void kill() { ::kill(pid_, SIGKILL); }
  /// Reads what is left. \returns false when a forked child keeps the pipe open
  bool listenToEnd(Outcome& outcome) {
    const auto end = Clock::now() + std::chrono::seconds(20);
    while (readOne(end, outcome)) {
    }
    return atEnd_;
  }

 private:
  bool readOne(Clock::time_point end, Outcome& outcome) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now());
    pollfd ready{pipe_, POLLIN, 0};
    if (poll(&ready, 1, std::max<int>(0, static_cast<int>(left.count()))) != 1) return false;
    Acknowledgement record;
    const ssize_t got = read(pipe_, &record, sizeof record);
    atEnd_ = got == 0;
    if (got != sizeof record) return false;
    outcome.note(record);
    return true;
  }

  pid_t pid_;
  int pipe_;
  bool atEnd_ = false;
};

std::unique_ptr<vela::ObjectManager> open(const std::string& file) {
  auto manager = std::make_unique<vela::ObjectManager>(text::toWide(file));
  manager->initializeObjectManager({}, {});
  return manager;
}

void expectAcknowledged(const std::string& file, const std::set<int>& runs,
                        const std::map<int, int>& samples) {
  const auto manager = open(file);
  kodiag::util::diagnostics diag;
  EXPECT_THAT(manager->repository().integrityProblems(diag), IsEmpty());
  diag.raiseIfAny();
  boost::ptr_vector<vela::ObjectRef> all;
  manager->findObjects("DataSet", {}, all);
  std::set<int> missing = runs;
  for (const vela::ObjectRef& each : all) {
    missing.erase(each.getObjectID());
    EXPECT_NE(each.getPropertyUString("UName"), L"undone") << "run " << each.getObjectID();
  }
  EXPECT_THAT(missing, IsEmpty());
  for (const auto& [id, count] : samples) {
    const auto signal = vela::Signal::getSignalFromID(*manager, id);
    ASSERT_TRUE(signal) << id;
    std::vector<char> values;
    std::vector<double> times;
    signal->readRange(-HUGE_VAL, HUGE_VAL, times, values);
    // One more append may have been stored without its acknowledgement being sent.
    EXPECT_GE(times.size(), std::size_t(count)) << id;
    EXPECT_LE(times.size(), std::size_t(count) + 5) << id;
    for (std::size_t k = 0; k < times.size(); ++k) {
      double value;
      memcpy(&value, values.data() + k * sizeof value, sizeof value);
      ASSERT_EQ(times[k], static_cast<double>(k)) << id;
      ASSERT_EQ(value, 2.0 * static_cast<double>(k) + id) << id;
    }
  }
}

TEST(Threads, KilledAtRandomLoseNothingAcknowledgedAndNeverHang) {
  const int rounds = setting("VELA_SOAK_ROUNDS", 3);
  const int milliseconds = setting("VELA_SOAK_MILLISECONDS", 1'500);
  const auto mayStall = std::chrono::milliseconds(setting("VELA_SOAK_STALL", 5'000));
  std::mt19937 random(20'261'122);
  Outcome total;
  Clock::duration longestStall{};
  std::string pattern = (std::filesystem::temp_directory_path() / "vela-XXXXXX").string();
  const std::filesystem::path folder = mkdtemp(pattern.data());
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE(round);
    std::vector<std::string> files;
    for (int k = 0; k < kFiles; ++k) {
      files.push_back(folder / (std::to_string(round / 5) + "-" + std::to_string(k) + ".dmr"));
    }
    Outcome outcome;
    {
      ThreadsProcess process(files, static_cast<unsigned>(random() % 1'000'000));
      const auto length =
          milliseconds / 4 + static_cast<int>(random() % unsigned(milliseconds * 3 / 2));
      process.listenUntil(Clock::now() + std::chrono::milliseconds(length), outcome);
      const auto killed = Clock::now();
      process.kill();
      ASSERT_TRUE(process.listenToEnd(outcome)) << "a forked child hangs";
      for (const auto last : outcome.lastSign) {
        if (last != Clock::time_point{}) longestStall = std::max(longestStall, killed - last);
      }
    }
    EXPECT_THAT(outcome.faults, IsEmpty());
    for (std::size_t k = 0; k < files.size(); ++k) {
      ASSERT_NO_FATAL_FAILURE(
          expectAcknowledged(files[k], outcome.runs[k], outcome.samples[k]));
    }
    total.records += outcome.records;
    total.forks += outcome.forks;
    total.busy += outcome.busy;
    if (::testing::Test::HasFailure()) break;
  }
  const auto stall = std::chrono::duration_cast<std::chrono::milliseconds>(longestStall);
  std::cout << rounds << " kills, " << total.records << " acknowledgements, " << total.forks
            << " forks, " << total.busy << " refused as busy, longest silence of a thread "
            << stall.count() << " ms\n";
  EXPECT_LT(stall, mayStall);
  if (!::testing::Test::HasFailure()) std::filesystem::remove_all(folder);
}

}  // namespace
