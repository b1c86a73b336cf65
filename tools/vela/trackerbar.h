// Lets the progress of long operations be drawn as a bar.
#pragma once

#include <string>

namespace vela::tool {

/// As long as it lives, operations that report under that key are shown.
class TrackerBar {
 public:
  /// \param label  in front of the bar
  TrackerBar(std::string key, const std::string& label, bool quiet);
  ~TrackerBar();
  TrackerBar(const TrackerBar&) = delete;
  TrackerBar& operator=(const TrackerBar&) = delete;

 private:
  std::string key_;
};

}  // namespace vela::tool
