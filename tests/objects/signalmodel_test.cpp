// Random scripts of appends, rollbacks, deletions and reads, compared with a plain list of
// samples. VELA_MODEL_SCRIPTS sets the number of scripts, VELA_MODEL_SEED the first seed.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <random>
#include <sstream>

#include "datarangeiterator.h"
#include "objects/signalstate.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::kInfinity;

struct Sample {
  double time;
  std::vector<char> record;
  unsigned epoch;
  bool hasEpoch;
};

struct ElementType {
  int code;
  unsigned bytes;
};
constexpr ElementType kTypes[] = {
    {dtypeInt8, 1}, {dtypeInt16, 2}, {dtypeSingle, 4}, {dtypeDouble, 8}, {dtypeNull, 12}};

/// One script on one signal and on its model.
class Script {
 public:
  Script(ObjectManager& manager, unsigned seed)
      : manager_(manager), random_(seed), signal_(manager), type_(kTypes[pick(5)]) {
    log_.precision(17);
    log_ << "seed " << seed << ", " << type_.bytes << " bytes";
  }

  /// \returns false at the first difference, which is then described by log()
  bool run() {
    const int steps = 3 + pick(10);
    for (int i = 0; i < steps && same_; ++i) {
      step();
      compareRange();
      compareBookkeeping();
    }
    compareChunks();
    return same_;
  }
  std::string log() const { return log_.str(); }

 private:
  int pick(int below) { return static_cast<int>(random_() % static_cast<unsigned>(below)); }
  double gridTime() { return pick(25) / 2. - 3; }
  /// A time on, just below or just above one that may be stored.
  double edgeTime() {
    const double time =
        model_.empty() || pick(4) == 0 ? gridTime() : model_[random_() % model_.size()].time;
    const int side = pick(4);
    if (side == 0) return std::nextafter(time, -kInfinity);
    return side == 1 ? std::nextafter(time, kInfinity) : time;
  }
  void differ(const std::string& what) {
    if (same_) log_ << "\n  DIFFERS: " << what;
    same_ = false;
  }

  void step() {
    switch (pick(12)) {
      case 0:
        return changeLimits();
      case 1:
      case 2:
        return rollback();
      case 3:
        return erase();
      case 4:
        return pick(4) == 0 ? clear() : append(1);
      case 5:
      case 6:
      case 7:
        return append(2 + pick(6));
      default:
        return append(1);
    }
  }

  void changeLimits() {
    const int minimum = pick(2) == 0 ? 0 : pick(200);
    const int maximum = pick(2) == 0 ? 1 << 20 : 16 + pick(100);
    log_ << "\n  limits " << minimum << ", " << maximum;
    Signal::setMinimumChunkNumBytes(minimum);
    Signal::setMaximumChunkNumBytes(static_cast<std::size_t>(maximum));
  }

  void append(int count) {
    // Mostly on from the newest sample, sometimes back.
    const bool goesOn = !model_.empty() && pick(4) != 0;
    double time = goesOn ? model_.back().time + pick(3) / 2. : gridTime();
    const bool hasEpochs = pick(3) == 0;
    std::vector<double> times;
    std::vector<char> values;
    std::vector<unsigned> epochs;
    log_ << "\n  append" << (hasEpochs ? " with epochs" : "");
    dropFrom(time, model_.empty() || time < model_.back().time);
    for (int i = 0; i < count; ++i, time += pick(3) / 2.) {
      log_ << " " << time;
      Sample sample{time, std::vector<char>(type_.bytes), ++written_, hasEpochs};
      for (char& byte : sample.record) byte = static_cast<char>(random_());
      times.push_back(time);
      values.insert(values.end(), sample.record.begin(), sample.record.end());
      epochs.push_back(sample.epoch);
      model_.push_back(std::move(sample));
    }
    signal_.addData(values.data(), times.data(), type_.code, nullptr,
                    static_cast<unsigned>(count), type_.bytes,
                    hasEpochs ? epochs.data() : nullptr);
  }

  void dropFrom(double time, bool applies) {
    if (!applies) return;
    std::erase_if(model_, [time](const Sample& sample) { return sample.time >= time; });
  }
  void rollback() {
    const double time = edgeTime();
    log_ << "\n  rollback " << time;
    dropFrom(time, true);
    signal_.rollback(time);
  }
  void erase() {
    std::vector<double> times;
    for (int i = pick(4); i >= 0; --i) times.push_back(edgeTime());
    log_ << "\n  delete " << testing::PrintToString(times);
    std::erase_if(model_, [&](const Sample& sample) {
      return std::find(times.begin(), times.end(), sample.time) != times.end();
    });
    signal_.deleteData(times);
  }
  void clear() {
    log_ << "\n  remove all";
    model_.clear();
    signal_.removeAllChunks();
  }

  void compareRange() {
    const bool full = pick(4) == 0;
    const double t0 = full ? -kInfinity : edgeTime();
    const double t1 = full ? kInfinity : edgeTime();
    std::vector<double> times;
    std::vector<char> values;
    std::vector<unsigned> epochs;
    signal_.readRange(t0, t1, times, values, &epochs);

    std::vector<double> expectedTimes;
    std::vector<char> expectedValues;
    std::vector<unsigned> expectedEpochs;
    bool allEpochs = true;
    for (const Sample& sample : model_) {
      if (sample.time < t0 || sample.time > t1) continue;
      expectedTimes.push_back(sample.time);
      expectedValues.insert(expectedValues.end(), sample.record.begin(), sample.record.end());
      expectedEpochs.push_back(sample.epoch);
      allEpochs = allEpochs && sample.hasEpoch;
    }
    if (!allEpochs) expectedEpochs.clear();
    std::ostringstream range;
    range << " of [" << t0 << ", " << t1 << "]";
    if (times != expectedTimes) {
      differ("times" + range.str() + ": " + testing::PrintToString(times));
    }
    if (values != expectedValues) differ("values" + range.str());
    if (epochs != expectedEpochs) differ("epochs" + range.str());
  }

  void compareBookkeeping() {
    const SignalState state = manager_.prepared<SignalStates>().read(signal_.getID());
    const std::vector<ChunkRow> rows = manager_.prepared<ChunkRows>().all(signal_.getID());
    const ChunkRow last = rows.empty() ? ChunkRow() : rows.back();
    if (state.newestTime != (model_.empty() ? 0 : model_.back().time)) differ("newest time");
    if (state.lastChunk != last.number) differ("last chunk");
    if (state.lastChunkBytes != last.points * static_cast<int>(type_.bytes)) {
      differ("bytes of the last chunk");
    }
    if (state.largestChunkBytes < state.lastChunkBytes) differ("largest chunk");
    for (std::size_t i = 1; i < model_.size(); ++i) {
      if (model_[i].time == model_[i - 1].time && state.hasDuplicateTimes == 0) {
        differ("duplicate times");
      }
    }
  }

  /// Chunk by chunk, everything once and in order.
  void compareChunks() {
    Signal::DataRangeIterator chunks(signal_, true, false);
    std::vector<char> values;
    std::vector<double> times;
    std::vector<unsigned> epochs;
    bool hasMore = true;
    std::size_t position = 0;
    for (chunks.getNext(values, times, &epochs, hasMore); hasMore;
         chunks.getNext(values, times, &epochs, hasMore)) {
      if (values.size() != times.size() * type_.bytes) differ("values of a chunk");
      for (std::size_t i = 0; i < times.size() && same_; ++i, ++position) {
        if (position >= model_.size() || model_[position].time != times[i]) {
          differ("chunks");
        } else if (model_[position].hasEpoch != !epochs.empty()) {
          differ("epochs of a chunk");
        }
      }
    }
    if (position != model_.size()) differ("number of samples in chunks");
  }

  ObjectManager& manager_;
  std::mt19937 random_;
  Signal signal_;
  ElementType type_;
  std::vector<Sample> model_;
  unsigned written_ = 0;
  bool same_ = true;
  std::ostringstream log_;
};

unsigned fromEnvironment(const char* name, unsigned otherwise) {
  const char* text = std::getenv(name);
  return text ? static_cast<unsigned>(std::strtoul(text, nullptr, 10)) : otherwise;
}

class SignalModelTest : public test::SignalTest {};

TEST_F(SignalModelTest, ScriptsLeaveTheSamplesOfAPlainList) {
  const unsigned scripts = fromEnvironment("VELA_MODEL_SCRIPTS", 10'000);
  const unsigned first = fromEnvironment("VELA_MODEL_SEED", 1);
  for (unsigned seed = first; seed < first + scripts; ++seed) {
    Signal::setMinimumChunkNumBytes(0);
    Signal::setMaximumChunkNumBytes(SIZE_MAX);
    manager_->beginTransaction();
    Script script(*manager_, seed);
    ASSERT_TRUE(script.run()) << script.log();
    manager_->rollbackTransaction();
  }
}

}  // namespace
}  // namespace vela
