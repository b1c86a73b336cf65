// Appends one sample after another to a run of its own and acknowledges each on standard
// output.
//
// appender FILE COUNT MINIMUM_CHUNK_BYTES: sample k has time k and value 2k + the run's ID.
// After the run and its signal exist prints the signal's ID, then after every append the number
// of samples stored so far, each as 4 bytes.
#include <unistd.h>

#include <cstdlib>
#include <iostream>

#include "kodiag/diagnostics.h"
#include "objectmanager/objectmanager.h"
#include "objects/set.h"
#include "objects/signal.h"
#include "text/utf8.h"

namespace {

void acknowledge(int number) {
  if (write(STDOUT_FILENO, &number, sizeof number) != sizeof number) std::exit(3);
}

void appendSamples(const char* file, int count, int minimumChunkBytes) {
  vela::ObjectManager manager(text::toWide(file));
  manager.initializeObjectManager({}, {});
  vela::Signal::setMinimumChunkNumBytes(minimumChunkBytes);
  vela::Set run(manager, true);
  vela::Signal signal(manager);
  run.addElement(signal);
  acknowledge(signal.getID());
  for (int k = 0; k < count; ++k) {
    const double time = k;
    const double value = 2.0 * k + run.getID();
    signal.addData(&value, &time, 0, nullptr, 1, sizeof value, nullptr);
    acknowledge(k + 1);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  try {
    appendSamples(argv[1], std::atoi(argv[2]), std::atoi(argv[3]));
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
  return 0;
}
