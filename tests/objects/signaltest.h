// What the tests of signals share: a signal in a repository of its own, and short forms to fill
// and read it.
#pragma once

#include <cfloat>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "objects/chunkrows.h"
#include "objects/datatypes.h"
#include "objects/signal.h"
#include "objects/strings.h"
#include "tests/objectmanager/managertest.h"

namespace vela::test {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

template <class T>
std::vector<char> bytesOf(const std::vector<T>& values) {
  const auto* first = reinterpret_cast<const char*>(values.data());
  return {first, first + values.size() * sizeof(T)};
}

template <class T>
std::vector<T> valuesIn(const std::vector<char>& bytes) {
  std::vector<T> values(bytes.size() / sizeof(T));
  if (!values.empty()) std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
  return values;
}

/// Puts the process-wide limits of chunks back.
class ChunkLimitsGuard {
 public:
  ~ChunkLimitsGuard() {
    Signal::setMinimumChunkNumBytes(0);
    Signal::setMaximumChunkNumBytes(SIZE_MAX);
  }
};

class SignalTest : public ManagerTest {
 protected:
  static void append(Signal& signal, const std::vector<double>& times,
                     const std::vector<double>& values,
                     const std::vector<unsigned>& epochs = {}) {
    signal.addData(values.data(), times.data(), dtypeDouble, nullptr,
                   static_cast<unsigned>(times.size()), 0,
                   epochs.empty() ? nullptr : epochs.data());
  }
  /// Samples whose values are their times.
  static void append(Signal& signal, const std::vector<double>& times) {
    append(signal, times, times);
  }
  static std::vector<double> times(const Signal& signal, double t0 = -DBL_MAX,
                                   double t1 = DBL_MAX) {
    std::vector<double> times;
    std::vector<char> values;
    signal.readRange(t0, t1, times, values);
    return times;
  }
  template <class T = double>
  static std::vector<T> values(const Signal& signal, double t0 = -DBL_MAX,
                               double t1 = DBL_MAX) {
    std::vector<double> times;
    std::vector<char> values;
    signal.readRange(t0, t1, times, values);
    return valuesIn<T>(values);
  }
  std::vector<ChunkRow> chunks(const Signal& signal) {
    return manager_->prepared<ChunkRows>().all(signal.getID());
  }
  static int state(const Signal& signal, const std::string& property) {
    return signal.getObjectReference().getPropertyInt32(property);
  }
  /// A leaf whose elements lie in the records of `root`.
  Signal leafOf(const Signal& root, int elementBytes, int recordBytes, int offset,
                builtInDTypeId type) {
    Signal leaf(*manager_);
    const int rootID = root.getID();
    leaf.setLeafInfoForCompositeSignal(&elementBytes, &recordBytes, &offset, &rootID);
    setType(leaf, type);
    return leaf;
  }
  void setType(Signal& signal, builtInDTypeId type) {
    long long handle = 0;
    DataTypeUtil::getBuiltInDataTypeHandle(type, *manager_, handle);
    setType(signal, handle);
  }
  static void setType(Signal& signal, long long handle) {
    ObjectManager& manager = signal.getObjectReference().getObjectManager();
    bool found = false;
    const auto type = manager.findObject(static_cast<int>(handle), strings::DataType, found);
    ASSERT_TRUE(found);
    signal.setDataType(*type);
  }

  ChunkLimitsGuard limits_;
};

}  // namespace vela::test
