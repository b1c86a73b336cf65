// Saves and loads that are stopped on their way: by a tracker, by a full disk, by a kill, by
// damage.
#include <fcntl.h>
#include <sys/resource.h>

#include <boost/make_shared.hpp>
#include <chrono>
#include <random>
#include <thread>

#include "datafile/seal.h"
#include "progresstracker/abstractprogresstracker.h"
#include "savingtest.h"

namespace vela {
namespace {

using test::contentOf;
using test::raisedBy;
using testing::ElementsAreArray;

std::string bytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Counts the steps of trackers made under a key, and throws at one of them.
class CountingFactory : public ProgressTrackerFactory {
 public:
  CountingFactory(std::string key, unsigned lastStep) : key_(std::move(key)) {
    counter_->lastStep = lastStep;
    AbstractProgressTracker::setFactory(
        key_, std::shared_ptr<ProgressTrackerFactory>(this, [](auto*) {}));
  }
  ~CountingFactory() override { AbstractProgressTracker::removeFactory(key_); }

  unsigned maximum() const { return counter_->maximum; }
  unsigned steps() const { return counter_->steps; }

 private:
  struct Counter {
    unsigned lastStep = 0;
    unsigned maximum = 0;
    unsigned steps = 0;
  };
  class Tracker : public AbstractProgressTracker {
   public:
    Tracker(std::shared_ptr<Counter> counter, const std::wstring& message, unsigned maximum,
            bool modal)
        : AbstractProgressTracker(message, maximum, modal), counter_(std::move(counter)) {
      counter_->maximum = maximum;
    }
    void updateValue(const unsigned& value) override {
      setValue(value);
      counter_->steps = value;
      if (value == counter_->lastStep) throw std::runtime_error("cancelled");
    }

   private:
    std::shared_ptr<Counter> counter_;
  };

  std::unique_ptr<AbstractProgressTracker> createTracker(const std::wstring& message,
                                                         unsigned maximum,
                                                         bool modal) override {
    return std::make_unique<Tracker>(counter_, message, maximum, modal);
  }

  std::string key_;
  std::shared_ptr<Counter> counter_ = std::make_shared<Counter>();
};

class InterruptionTest : public test::SavingTest {
 protected:
  std::vector<std::string> filesBeside() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
      const std::string name = entry.path().filename();
      if (name.starts_with("saved")) names.push_back(name);
    }
    return names;
  }
};

TEST_F(InterruptionTest, ATrackerIsToldOfEveryObjectAndMayStopTheWorkAnywhere) {
  manager_->save(file());
  const std::string old = bytesOf(path());
  fill();
  unsigned objects = 0;
  {
    const CountingFactory counting("SavingProgressBar", 0);
    manager_->save(file());
    objects = counting.maximum();
    EXPECT_GT(objects, 50u);
    EXPECT_EQ(counting.steps(), objects);
  }
  const std::string whole = bytesOf(path());
  const auto copy = emptyRepository("copy.dmr");
  const std::vector<std::string> before = contentOf(*copy);
  for (unsigned step = 1; step <= objects; step += step < objects - 3 ? 7 : 1) {
    SCOPED_TRACE(step);
    test::writeText(path(), old);
    {
      const CountingFactory throwing("SavingProgressBar", step);
      EXPECT_NE(raisedBy([&] { manager_->save(file()); }), "");
    }
    EXPECT_EQ(bytesOf(path()), old);
    test::writeText(path(), whole);
    const CountingFactory throwing("LoadingProgressBar", step);
    EXPECT_NE(raisedBy([&] { copy->load(file()); }), "");
    EXPECT_EQ(throwing.maximum(), objects);
    EXPECT_EQ(contentOf(*copy), before);
  }
  EXPECT_THAT(filesBeside(), testing::ElementsAre("saved.dat"));
  copy->load(file());
  EXPECT_THAT(contentOf(*copy), ElementsAreArray(contentOf(*manager_)));
}

TEST_F(InterruptionTest, AFullDiskLeavesTheOldFile) {
  fill();
  manager_->save(file());
  const std::string old = bytesOf(path());
  manager_.reset();
  for (rlim_t bytes = 64; bytes < old.size(); bytes *= 3) {
    SCOPED_TRACE(bytes);
    const pid_t child = fork();
    if (child == 0) {
      reopen();
      signal(SIGXFSZ, SIG_IGN);
      const rlimit limit{bytes, bytes};
      setrlimit(RLIMIT_FSIZE, &limit);
      const bool isRefused =
          raisedBy([&] { manager_->save(file()); }) == "nexstore:nex:CouldNotWriteToMatFile";
      _exit(isRefused ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(bytesOf(path()), old);
    EXPECT_THAT(filesBeside(), testing::ElementsAre("saved.dat"));
  }
}

TEST_F(InterruptionTest, AKilledSaveLeavesTheOldFile) {
  fill();
  manager_->save(file());
  const std::vector<std::string> content = contentOf(*manager_);
  manager_.reset();
  std::mt19937 random(3);
  for (int i = 0; i < 20; ++i) {
    test::WaitingProcess saving([&](const std::function<void()>& ready) {
      reopen();
      ready();
      for (;;) manager_->save(file());
    });
    ASSERT_TRUE(saving.isReady());
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 60));
    saving.kill();
    const auto copy = emptyRepository(("copy" + std::to_string(i) + ".dmr").c_str());
    copy->load(file());
    EXPECT_THAT(contentOf(*copy), ElementsAreArray(content));
  }
}

// Every damaged file is refused and leaves no trace, or the damage is where it does not matter
// and everything comes back.
TEST_F(InterruptionTest, DamagedFilesNeverChangeTheRepository) {
  fill();
  manager_->save(file());
  const std::string whole = bytesOf(path());
  const std::vector<std::string> expected = contentOf(*manager_);
  std::unique_ptr<ObjectManager> target = emptyRepository("target.dmr");
  std::mt19937 random(5);
  int refused = 0;
  for (int i = 0; i < 300; ++i) {
    std::string damaged = whole;
    if (i % 4 == 3) {
      damaged.resize(random() % whole.size());
    } else {
      for (auto flips = 1 + random() % 4; flips > 0; --flips) {
        damaged[random() % damaged.size()] ^= static_cast<char>(1 + random() % 255);
      }
    }
    test::writeText(path(), damaged);
    const std::string id = raisedBy([&] { target->load(file()); });
    if (id.empty()) {
      ASSERT_THAT(contentOf(*target), ElementsAreArray(expected)) << i;
      target = emptyRepository(("target" + std::to_string(i) + ".dmr").c_str());
      continue;
    }
    ++refused;
    EXPECT_TRUE(id == "nexstore:nex:InvalidFile" || id == "nexstore:nex:CouldNotReadMatFile")
        << id;
    ASSERT_TRUE(contentOf(*target).empty()) << i;
  }
  EXPECT_GT(refused, 200);
}

// Behind a checksum that holds, a file may still say anything: it is refused, or what it says
// is loaded and can be read.
TEST_F(InterruptionTest, VariablesThatNobodyWroteAreRefusedOrMakeSense) {
  fill();
  manager_->save(file());
  const std::string whole = bytesOf(path());
  std::vector<std::pair<std::size_t, std::size_t>> variables;  // place and length
  {
    const datafile::DataFileReader reader(path());
    for (const std::string& name : reader.names()) {
      // Behind the byte for its version.
      const std::string encoded = kodd::encodeHostArray(reader.get(name)).substr(1);
      variables.emplace_back(whole.find(encoded), encoded.size());
      ASSERT_NE(variables.back().first, std::string::npos) << name;
    }
  }
  std::unique_ptr<ObjectManager> target = emptyRepository("target.dmr");
  std::mt19937 random(6);
  int refused = 0;
  for (int i = 0; i < 300; ++i) {
    std::string damaged = whole;
    const auto& [place, length] = variables[random() % variables.size()];
    damaged[place + random() % length] = static_cast<char>(random());
    test::writeText(path(), damaged);
    const int descriptor = open(path().c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(datafile::seal(descriptor), 0);
    close(descriptor);
    const std::string id = raisedBy([&] { target->load(file()); });
    if (!id.empty()) {
      ++refused;
      EXPECT_EQ(id, "nexstore:nex:InvalidFile");
      ASSERT_TRUE(contentOf(*target).empty()) << i;
      continue;
    }
    contentOf(*target);
    kodiag::util::diagnostics diag;
    EXPECT_TRUE(target->repository().integrityProblems(diag).empty());
    target = emptyRepository(("target" + std::to_string(i) + ".dmr").c_str());
  }
  EXPECT_GT(refused, 100);
  EXPECT_LT(refused, 300);
}

}  // namespace
}  // namespace vela
