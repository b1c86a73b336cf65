// Stores a run with one signal in a repository file, then reads a range of it back.
//
//   client lab.dmr
#include <vela/objectmanager/objectmanager.h>
#include <vela/objects/set.h>
#include <vela/objects/signal.h>
#include <vela/text/utf8.h>

#include <exception>
#include <iostream>
#include <vector>

namespace {

// Code of the built-in type "double".
constexpr int kDouble = 0;

// Stores time squared, 0 s to 0.5 s, and returns the ID of the new signal.
int store(vela::ObjectManager& manager) {
  vela::Set run(manager, true);
  run.setName(L"first light");

  vela::Signal position(manager);
  position.setName(L"position");
  position.setUnits(L"m");
  run.addElement(position);

  const std::vector<double> times = {0, 0.1, 0.2, 0.3, 0.4, 0.5};
  const std::vector<double> values = {0, 1, 4, 9, 16, 25};
  position.addData(values.data(), times.data(), kDouble, nullptr,
                   static_cast<unsigned>(times.size()), sizeof(double), nullptr);
  return position.getID();
}

// Both ends of the range are included.
void show(vela::ObjectManager& manager, int signalID, double from, double to) {
  const auto signal = vela::Signal::getSignalFromID(manager, signalID);
  std::vector<double> times;
  std::vector<double> values;
  signal->readRange(from, to, [&](const vela::SampleExtent& extent) {
    times.resize(extent.samples);
    values.resize(extent.samples);
    return vela::SampleTarget{times.data(), reinterpret_cast<char*>(values.data()), nullptr};
  });
  std::cout << times.size() << " samples from " << from << " to " << to << ", the last "
            << values.back() << '\n';
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::cerr << "usage: client FILE.dmr\n";
    return 2;
  }
  vela::ObjectManager manager(text::toWide(argv[1]));
  manager.initializeObjectManager("", "");
  const int signalID = store(manager);
  show(manager, signalID, 0.2, 0.4);
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 2;
}
