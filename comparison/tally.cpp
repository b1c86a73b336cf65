#include "comparison/tally.h"

#include <cmath>
#include <limits>

namespace comparison {

void Tally::add(double time, double difference, double tolerance, bool passed) {
  ++figures_.rows;
  if (!passed) {
    ++figures_.failedRows;
    if (!figures_.firstFailingTime) figures_.firstFailingTime = time;
  }
  if (!std::isnan(difference)) measure(time, std::fabs(difference), tolerance);
  if (!sink_) return;
  times_.push_back(time);
  differences_.push_back(difference);
  tolerances_.push_back(tolerance);
  passed_.push_back(passed);
  if (times_.size() == kRowsPerBlock) flush();
}

void Tally::measure(double time, double magnitude, double tolerance) {
  if (measured_++ == 0) figures_.timeOfMaxDifference = time;
  if (magnitude == 0) return;
  squares_ += static_cast<long double>(magnitude) * magnitude;
  if (magnitude > figures_.maxDifference) {
    figures_.maxDifference = magnitude;
    figures_.timeOfMaxDifference = time;
  }
  const double ratio =
      tolerance > 0 ? magnitude / tolerance : std::numeric_limits<double>::infinity();
  if (ratio > figures_.maxRatio) figures_.maxRatio = ratio;
}

void Tally::flush() {
  sink_({times_, differences_, tolerances_, passed_});
  times_.clear();
  differences_.clear();
  tolerances_.clear();
  passed_.clear();
}

void Tally::finish(Report& report) {
  if (!times_.empty()) flush();
  report.rows = figures_.rows;
  report.failedRows = figures_.failedRows;
  report.firstFailingTime = figures_.firstFailingTime;
  report.maxDifference = figures_.maxDifference;
  report.timeOfMaxDifference = figures_.timeOfMaxDifference;
  report.maxRatio = figures_.maxRatio;
  if (measured_ > 0)
    report.rms = static_cast<double>(std::sqrt(squares_ / static_cast<long double>(measured_)));
}

}  // namespace comparison
