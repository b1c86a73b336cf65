#include "tools/vela/trackerbar.h"

#include <utility>

#include "progresstracker/abstractprogresstracker.h"
#include "tools/vela/terminal.h"

namespace vela::tool {
namespace {

std::string objects(std::uint64_t count) {
  return counted(count, "object");
}

class Tracker : public AbstractProgressTracker {
 public:
  Tracker(const std::string& label, const std::wstring& message, unsigned maxValue, bool modal,
          bool quiet)
      : AbstractProgressTracker(message, maxValue, modal),
        bar_(label, maxValue, quiet, objects) {}

  void updateValue(const unsigned& value) override {
    setValue(value);
    bar_.update(value);
  }

 private:
  ProgressBar bar_;
};

class Factory : public ProgressTrackerFactory {
 public:
  Factory(std::string label, bool quiet) : label_(std::move(label)), quiet_(quiet) {}

  std::unique_ptr<AbstractProgressTracker> createTracker(const std::wstring& message,
                                                         unsigned maxValue,
                                                         bool modal) override {
    return std::make_unique<Tracker>(label_, message, maxValue, modal, quiet_);
  }

 private:
  std::string label_;
  bool quiet_;
};

}  // namespace

TrackerBar::TrackerBar(std::string key, const std::string& label, bool quiet)
    : key_(std::move(key)) {
  AbstractProgressTracker::setFactory(key_, std::make_shared<Factory>(label, quiet));
}

TrackerBar::~TrackerBar() {
  AbstractProgressTracker::removeFactory(key_);
}

}  // namespace vela::tool
