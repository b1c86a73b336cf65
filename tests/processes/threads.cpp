// Threads that mix reads, appends, units of work and forks on several repositories until the
// process is killed, and acknowledge on standard output what is stored.
//
// threads THREADS SEED FILE...
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "acknowledgement.h"
#include "kodiag/diagnostics.h"
#include "objectmanager/objectmanager.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "text/utf8.h"

namespace {

using vela::ObjectManager;
using vela::Set;
using vela::Signal;

constexpr int kEverything = 100;  // per cent

enum Fault : int {
  unexpectedError = 1,
  ownSamplesMissing = 2,
  snapshotChanged = 3,
  wrongSamples = 4,
  childHung = 5,
  childNotRefused = 6,
};

/// Thrown to undo a unit of work on purpose.
class Undo : public std::runtime_error {
 public:
  Undo() : std::runtime_error("undone on purpose") {}
};

class Samples {
 public:
  explicit Samples(const Signal& signal) {
    signal.readRange(-HUGE_VAL, HUGE_VAL, times_, values_);
  }

  std::size_t size() const { return times_.size(); }
  bool areOf(int signalID) const {
    if (values_.size() != times_.size() * sizeof(double)) return false;
    for (std::size_t k = 0; k < times_.size(); ++k) {
      double value;
      memcpy(&value, values_.data() + k * sizeof value, sizeof value);
      if (times_[k] != static_cast<double>(k)) return false;
      if (value != 2.0 * static_cast<double>(k) + signalID) return false;
    }
    return true;
  }

 private:
  std::vector<double> times_;
  std::vector<char> values_;
};

class Repository {
 public:
  explicit Repository(const std::string& file) : manager(text::toWide(file)) {
    manager.initializeObjectManager({}, {});
  }

  ObjectManager manager;
  std::vector<std::atomic<int>> signals = std::vector<std::atomic<int>>(64);  ///< by thread
};

using Repositories = std::vector<std::unique_ptr<Repository>>;

class Worker {
 public:
  Worker(Repositories& repositories, int thread, unsigned seed)
      : repositories_(repositories), thread_(thread), random_(seed + unsigned(thread)) {
    for (std::size_t file = 0; file < repositories.size(); ++file) addSignal(file);
  }

  [[noreturn]] void work() {
    while (true) {
      try {
        workOnce();
      } catch (const kodiag::except::ExceptionWithCauses& error) {
        if (error.innermost().id.key == "RepositoryBusy") {
          tell(Acknowledged::busy, 0, 0, 0);
        } else {
          std::cerr << error.what() << "\n";
          tell(Acknowledged::fault, 0, unexpectedError, 0);
        }
      } catch (const std::exception& error) {
        std::cerr << error.what() << "\n";
        tell(Acknowledged::fault, 0, unexpectedError, 0);
      }
    }
  }

 private:
  struct Own {
    std::unique_ptr<Signal> signal;
    int count = 0;
  };

  void workOnce() {
    const std::size_t file = random_() % repositories_.size();
    const int dice = static_cast<int>(random_() % kEverything);
    if (dice < 35) {
      append(file);
    } else if (dice < 45) {
      createRun(file);
    } else if (dice < 55) {
      runUnit(file);
    } else if (dice < 62) {
      undoUnit(file);
    } else if (dice < 70) {
      runTransaction(file, dice % 2 == 0);
    } else if (dice < 80) {
      readOwn(file);
    } else if (dice < 92) {
      readOthers(file);
    } else if (dice < 96) {
      appendWithinAnotherFilesUnit();
    } else {
      forkAndTry(file);
    }
  }

  void addSignal(std::size_t file) {
    Repository& repository = *repositories_[file];
    Set run(repository.manager, true);
    auto signal = std::make_unique<Signal>(repository.manager);
    run.addElement(*signal);
    repository.signals[std::size_t(thread_)] = signal->getID();
    tell(Acknowledged::run, file, run.getID(), 0);
    own_.push_back({std::move(signal), 0});
  }

  /// Adds samples without acknowledging them. \returns how many there are then
  int addSamples(std::size_t file) {
    Own& own = own_[file];
    const auto added = static_cast<unsigned>(1 + random_() % 5);
    std::vector<double> times(added);
    std::vector<double> values(added);
    for (unsigned k = 0; k < added; ++k) {
      times[k] = own.count + static_cast<double>(k);
      values[k] = 2.0 * times[k] + own.signal->getID();
    }
    own.signal->addData(values.data(), times.data(), 0, nullptr, added, sizeof(double),
                        nullptr);
    return own.count + static_cast<int>(added);
  }

  void acknowledgeSamples(std::size_t file, int count) {
    own_[file].count = count;
    tell(Acknowledged::samples, file, own_[file].signal->getID(), count);
  }

  void append(std::size_t file) { acknowledgeSamples(file, addSamples(file)); }

  int newRun(std::size_t file) { return Set(manager(file), true).getID(); }

  void createRun(std::size_t file) { tell(Acknowledged::run, file, newRun(file), 0); }

  void runUnit(std::size_t file) {
    int run = 0;
    int count = 0;
    manager(file).inTransaction([&] {
      run = newRun(file);
      count = addSamples(file);
    });
    tell(Acknowledged::run, file, run, 0);
    acknowledgeSamples(file, count);
  }

  void undoUnit(std::size_t file) {
    try {
      manager(file).inTransaction([&] {
        Set(manager(file), true).setName(L"undone");
        addSamples(file);
        throw Undo();
      });
    } catch (const kodiag::except::ExceptionWithCauses& error) {
      if (std::string(error.what()).find("on purpose") == std::string::npos) throw;
    }
    tell(Acknowledged::work, file, 0, 0);
  }

  void runTransaction(std::size_t file, bool keep) {
    manager(file).beginTransaction();
    int run = 0;
    int count = 0;
    try {
      Set set(manager(file), true);
      if (!keep) set.setName(L"undone");
      run = set.getID();
      count = addSamples(file);
    } catch (...) {
      manager(file).rollbackTransaction();
      throw;
    }
    if (!keep) {
      manager(file).rollbackTransaction();
      tell(Acknowledged::work, file, 0, 0);
      return;
    }
    manager(file).commitTransaction();
    tell(Acknowledged::run, file, run, 0);
    acknowledgeSamples(file, count);
  }

  void readOwn(std::size_t file) {
    const Own& own = own_[file];
    const Samples samples(*own.signal);
    if (samples.size() != std::size_t(own.count)) complain(file, ownSamplesMissing);
    if (!samples.areOf(own.signal->getID())) complain(file, wrongSamples);
    tell(Acknowledged::work, file, 0, 0);
  }

  void readOthers(std::size_t file) {
    const std::size_t other = random_() % 8;
    const int id = repositories_[file]->signals[other];
    if (id == 0) return;
    const std::unique_ptr<Signal> signal = Signal::getSignalFromID(manager(file), id);
    if (!signal) return complain(file, wrongSamples);
    manager(file).inReadUnit([&] {
      const Samples first(*signal);
      if (random_() % 4 == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
      const Samples second(*signal);
      if (first.size() != second.size()) complain(file, snapshotChanged);
      if (!second.areOf(id)) complain(file, wrongSamples);
    });
    tell(Acknowledged::work, file, 0, 0);
  }

  // Always from a lower file to a higher one, so that no two threads wait for each other.
  void appendWithinAnotherFilesUnit() {
    const std::size_t inner = 1 + random_() % (repositories_.size() - 1);
    const std::size_t outer = random_() % inner;
    int run = 0;
    manager(outer).inTransaction([&] {
      run = newRun(outer);
      append(inner);
    });
    tell(Acknowledged::run, outer, run, 0);
  }

  void forkAndTry(std::size_t file) {
    const pid_t child = fork();
    if (child == 0) _exit(isRefusedInChild(file) ? 0 : 1);
    for (int waited = 0; waited < 10'000; waited += 2) {
      int status = 0;
      if (waitpid(child, &status, WNOHANG) == child) {
        if (status != 0) complain(file, childNotRefused);
        tell(Acknowledged::work, file, 1, 0);
        return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    complain(file, childHung);
    kill(child, SIGABRT);
    waitpid(child, nullptr, 0);
  }

  bool isRefusedInChild(std::size_t file) {
    try {
      own_[file].signal->getName();
    } catch (const kodiag::except::ExceptionWithCauses& error) {
      return error.innermost().id.key == "ForkedProcess";
    }
    return false;
  }

  ObjectManager& manager(std::size_t file) { return repositories_[file]->manager; }

  void complain(std::size_t file, Fault fault) { tell(Acknowledged::fault, file, fault, 0); }

  void tell(Acknowledged what, std::size_t file, int id, int count) const {
    const Acknowledgement record{what, thread_, static_cast<int>(file), id, count};
    if (write(STDOUT_FILENO, &record, sizeof record) != sizeof record) std::_Exit(3);
  }

  Repositories& repositories_;
  int thread_;
  std::mt19937 random_;
  std::vector<Own> own_;  ///< by file
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 5) return 2;
  const int threadCount = std::atoi(argv[1]);
  const unsigned seed = static_cast<unsigned>(std::atoi(argv[2]));
  Repositories repositories;
  for (int k = 3; k < argc; ++k) repositories.push_back(std::make_unique<Repository>(argv[k]));
  std::vector<std::jthread> threads;
  for (int k = 0; k < threadCount; ++k) {
    threads.emplace_back([&repositories, k, seed] { Worker(repositories, k, seed).work(); });
  }
}
