#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <random>
#include <thread>

#include "objectmanager/objectmanager.h"
#include "objects/signal.h"
#include "text/utf8.h"

namespace {

using ::testing::IsEmpty;

// A child process running the appender, with the pipe on which it acknowledges.
class Appender {
 public:
  Appender(const std::string& file, int count, int minimumChunkBytes) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    const std::string countText = std::to_string(count);
    const std::string chunkText = std::to_string(minimumChunkBytes);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(ends[1], STDOUT_FILENO);
      close(ends[0]);
      close(ends[1]);
      execl(APPENDER, APPENDER, file.c_str(), countText.c_str(), chunkText.c_str(), nullptr);
      _exit(127);
    }
    close(ends[1]);
    acknowledgements_ = ends[0];
  }
  ~Appender() { close(acknowledgements_); }

  /// Waits for the signal's ID; 0 when the child died before it had one.
  int signalID() { return readNumber(); }
  void kill() { ::kill(pid_, SIGKILL); }
  /// Reads all acknowledgements that are left. \returns the last, 0 when there is none
  int lastAcknowledged() {
    int last = 0;
    while (const int number = readNumber()) last = number;
    return last;
  }
  int exitStatus() {
    int status = 0;
    waitpid(pid_, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  int readNumber() {
    int number = 0;
    return read(acknowledgements_, &number, sizeof number) == sizeof number ? number : 0;
  }

  pid_t pid_;
  int acknowledgements_;
};

class ProcessesTest : public ::testing::Test {
 protected:
  ProcessesTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "vela-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    file_ = folder_ / "shared.dmr";
  }
  ~ProcessesTest() override { std::filesystem::remove_all(folder_); }

  // The samples of a signal are exactly the first `count` ones its appender wrote, `count`
  // being at least what it acknowledged.
  static void expectSamples(vela::ObjectManager& manager, int signalID, int acknowledged) {
    const std::unique_ptr<vela::Signal> signal =
        vela::Signal::getSignalFromID(manager, signalID);
    ASSERT_TRUE(signal);
    std::vector<char> values;
    std::vector<double> times;
    signal->readRange(-HUGE_VAL, HUGE_VAL, times, values);
    ASSERT_GE(times.size(), static_cast<std::size_t>(acknowledged));
    ASSERT_LE(times.size(), static_cast<std::size_t>(acknowledged) + 1);
    ASSERT_EQ(values.size(), times.size() * sizeof(double));
    for (std::size_t k = 0; k < times.size(); ++k) {
      double value;
      memcpy(&value, values.data() + k * sizeof value, sizeof value);
      ASSERT_EQ(times[k], static_cast<double>(k));
      ASSERT_EQ(value, 2.0 * static_cast<double>(k) + signal->getParentSetID());
    }
  }

  std::unique_ptr<vela::ObjectManager> open() {
    auto manager = std::make_unique<vela::ObjectManager>(text::toWide(file_.string()));
    manager->initializeObjectManager({}, {});
    return manager;
  }

  static std::vector<std::string> problems(vela::ObjectManager& manager) {
    kodiag::util::diagnostics diag;
    std::vector<std::string> found = manager.repository().integrityProblems(diag);
    diag.raiseIfAny();
    return found;
  }

  std::filesystem::path folder_;
  std::filesystem::path file_;
};

TEST_F(ProcessesTest, TwoWritersAppendToDifferentRunsAtOnce) {
  constexpr int kAppends = 10'000;
  Appender merging(file_, kAppends, 65'536);
  Appender chunking(file_, kAppends, 0);
  std::vector<int> signals;
  for (Appender* appender : {&merging, &chunking}) signals.push_back(appender->signalID());
  std::thread drain([&] { EXPECT_EQ(merging.lastAcknowledged(), kAppends); });
  EXPECT_EQ(chunking.lastAcknowledged(), kAppends);
  drain.join();
  EXPECT_EQ(merging.exitStatus(), 0);
  EXPECT_EQ(chunking.exitStatus(), 0);

  const auto manager = open();
  EXPECT_THAT(problems(*manager), IsEmpty());
  for (const int signal : signals) expectSamples(*manager, signal, kAppends);
}

TEST_F(ProcessesTest, AKilledWriterLosesNothingItWasToldIsStored) {
  std::mt19937 random(20'261);
  for (int round = 0; round < 50; ++round) {
    SCOPED_TRACE(round);
    Appender appender(file_, 1'000'000, round % 2 == 0 ? 0 : 16'384);
    const int signalID = appender.signalID();
    ASSERT_NE(signalID, 0);
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 60'000));
    appender.kill();
    const int acknowledged = appender.lastAcknowledged();
    EXPECT_EQ(appender.exitStatus(), -1);

    const auto manager = open();
    ASSERT_THAT(problems(*manager), IsEmpty());
    ASSERT_NO_FATAL_FAILURE(expectSamples(*manager, signalID, acknowledged));
  }
}

}  // namespace
