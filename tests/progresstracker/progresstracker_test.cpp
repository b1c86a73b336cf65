#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <utility>
#include <vector>

#include "progresstracker/abstractprogresstracker.h"

namespace vela {
namespace {

using testing::ElementsAre;

/// Shows its values by noting them.
class NotingTracker : public AbstractProgressTracker {
 public:
  explicit NotingTracker(unsigned maxValue)
      : AbstractProgressTracker(L"working", maxValue, true) {}

  void updateValue(const unsigned& value) override {
    setValue(value);
    shown.push_back(value);
  }
  void jumpTo(unsigned value) { setValue(value); }

  std::vector<unsigned> shown;
};

class FactoryOf : public ProgressTrackerFactory {
 public:
  using Maker = std::function<std::unique_ptr<AbstractProgressTracker>(unsigned)>;
  explicit FactoryOf(Maker maker) : maker_(std::move(maker)) {}

  std::unique_ptr<AbstractProgressTracker> createTracker(const std::wstring&, unsigned maxValue,
                                                         bool) override {
    return maker_(maxValue);
  }

 private:
  Maker maker_;
};

std::shared_ptr<ProgressTrackerFactory> makingTrackersOf(unsigned factor) {
  return std::make_shared<FactoryOf>(
      [factor](unsigned max) { return std::make_unique<NotingTracker>(factor * max); });
}

std::unique_ptr<AbstractProgressTracker> tracker(const std::string& key) {
  return AbstractProgressTracker::createTracker(key, L"working", 10, false);
}

TEST(ProgressTrackerTest, EveryStepIsShownWhateverTheMaximum) {
  NotingTracker tracker(2);
  tracker.incrementValue();
  tracker.changeMaxValue(0);
  tracker.incrementValue();
  EXPECT_EQ(tracker.getMaxValue(), 0u);
  tracker.jumpTo(std::numeric_limits<unsigned>::max());
  tracker.incrementValue();
  EXPECT_THAT(tracker.shown, ElementsAre(1u, 2u, 0u));
  EXPECT_EQ(tracker.getValue(), 0u);

  AbstractProgressTracker plain(L"working", 3, false);
  plain.incrementValue();
  EXPECT_EQ(plain.getValue(), 1u);
}

TEST(ProgressTrackerTest, AKeyHasTheTrackersOfItsLastFactory) {
  EXPECT_EQ(tracker("a"), nullptr);
  auto first = makingTrackersOf(1);
  const std::weak_ptr<ProgressTrackerFactory> released = first;
  AbstractProgressTracker::setFactory("a", std::move(first));
  EXPECT_EQ(tracker("a")->getMaxValue(), 10u);
  EXPECT_EQ(tracker("b"), nullptr);

  AbstractProgressTracker::setFactory("a", makingTrackersOf(2));
  EXPECT_TRUE(released.expired());
  EXPECT_EQ(tracker("a")->getMaxValue(), 20u);

  AbstractProgressTracker::setFactory("a", nullptr);
  EXPECT_EQ(tracker("a"), nullptr);
  AbstractProgressTracker::removeFactory("a");
}

TEST(ProgressTrackerTest, AFactoryMayMakeNoneAndMayRemoveItself) {
  AbstractProgressTracker::setFactory("a", std::make_shared<FactoryOf>([](unsigned) {
                                        AbstractProgressTracker::removeFactory("a");
                                        return nullptr;
                                      }));
  EXPECT_EQ(tracker("a"), nullptr);
  EXPECT_EQ(tracker("a"), nullptr);
}

}  // namespace
}  // namespace vela
