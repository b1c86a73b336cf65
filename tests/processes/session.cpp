// One instance at work on a shared file, told what to do on standard input, a letter each:
//
//   r  makes a run with a signal of ten samples, streaming; answers with the run's ID
//   a  appends to the newest signal until it is killed; answers with every number of samples
//   i  takes over the runs of closed instances; answers with their number, then their IDs
//   c  marks the instance closed; answers with 0
//
// session FILE INSTANCE: answers with 0 when the file is open; ends with its input, without
// closing the instance. Answers are 4 bytes each.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <memory>

#include "kodiag/diagnostics.h"
#include "objectmanager/objectmanager.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "text/utf8.h"

namespace {

constexpr int kSamplesOfARun = 10;

void answer(int number) {
  if (write(STDOUT_FILENO, &number, sizeof number) != sizeof number) std::exit(3);
}

class Session {
 public:
  Session(const char* file, unsigned long long instance) : manager_(text::toWide(file)) {
    manager_.setInstanceID(instance);
    manager_.initializeObjectManager({}, {});
    answer(0);
  }

  void obey() {
    char order = 0;
    while (read(STDIN_FILENO, &order, 1) == 1) {
      if (order == 'r') makeRun();
      if (order == 'a') appendForever();
      if (order == 'i') adopt();
      if (order == 'c') close();
    }
  }

 private:
  void makeRun() {
    vela::Set run(manager_, true);
    run.setIsActivelyStreaming(true);
    signal_ = std::make_unique<vela::Signal>(manager_);
    run.addElement(*signal_);
    for (int k = 0; k < kSamplesOfARun; ++k) append(k);
    answer(run.getID());
  }

  void appendForever() {
    for (int k = kSamplesOfARun;; ++k) {
      append(k);
      answer(k + 1);
    }
  }

  void append(int k) {
    const double number = k;
    signal_->addData(&number, &number, 0, nullptr, 1, sizeof number, nullptr);
  }

  void adopt() {
    const std::vector<int> runs = vela::Set::importClosedInstances(manager_);
    answer(static_cast<int>(runs.size()));
    for (const int id : runs) answer(id);
  }

  void close() {
    manager_.setInstanceClosed();
    answer(0);
  }

  vela::ObjectManager manager_;
  std::unique_ptr<vela::Signal> signal_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  try {
    Session(argv[1], std::strtoull(argv[2], nullptr, 10)).obey();
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
  return 0;
}
