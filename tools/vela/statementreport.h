// What a person sees who wonders what is slow.
#pragma once

namespace vela::tool {

/// Has the statements of repositories opened from now on timed; its end prints those that took
/// longest on standard error.
class StatementReport {
 public:
  StatementReport();
  ~StatementReport();
  StatementReport(const StatementReport&) = delete;
  StatementReport& operator=(const StatementReport&) = delete;
};

}  // namespace vela::tool
