// Collects rows: hands them on in blocks and keeps the figures of the report.
#pragma once

#include <vector>

#include "comparison/report.h"

namespace comparison {

/// Memory for one block of rows.
class Tally {
 public:
  explicit Tally(const Sink& sink) : sink_(sink) {}

  void add(double time, double difference, double tolerance, bool passed);
  /// Hands on what is left and fills in the figures.
  void finish(Report& report);

 private:
  void measure(double time, double magnitude, double tolerance);
  void flush();

  const Sink& sink_;
  std::vector<double> times_;
  std::vector<double> differences_;
  std::vector<double> tolerances_;
  std::vector<char> passed_;
  Report figures_;
  std::size_t measured_ = 0;
  /// Wider than double, so that squares do not overflow.
  long double squares_ = 0;
};

}  // namespace comparison
