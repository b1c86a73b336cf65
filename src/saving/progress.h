// Counting steps on a tracker that may not be there.
#pragma once

#include <limits>
#include <memory>
#include <string>

#include "progresstracker/abstractprogresstracker.h"

namespace vela::saving {

class Progress {
 public:
  Progress(const std::string& key, const std::wstring& message, std::size_t steps)
      : tracker_(AbstractProgressTracker::createTracker(key, message, maximum(steps), true)) {}

  void step() {
    if (tracker_) tracker_->incrementValue();
  }

 private:
  static unsigned maximum(std::size_t steps) {
    constexpr unsigned kMost = std::numeric_limits<unsigned>::max();
    return steps < kMost ? static_cast<unsigned>(steps) : kMost;
  }

  std::shared_ptr<AbstractProgressTracker> tracker_;
};

}  // namespace vela::saving
