// What tells a signal from the others of its run, and finds its like in another.
#pragma once

#include <compare>
#include <string>
#include <vector>

namespace vela {

class ObjectManager;
class Signal;

/// Two signals of different runs with equal keys are the same quantity.
struct SignalKey {
  std::wstring sid;
  std::wstring name;
  std::vector<std::wstring> blockPath;
  int port = 0;
  std::vector<unsigned> channel;
  bool isImaginary = false;
  std::wstring leafBus;

  auto operator<=>(const SignalKey&) const = default;
};

SignalKey keyOf(const Signal& signal);

/// Has the next search for a signal of the run work out the hashes of all anew. To be called in
/// the unit of work that makes signals part of the run by other means than their properties.
void forgetHashes(ObjectManager& manager, int runID);

}  // namespace vela
