// What a person at a terminal sees: words and progress on standard error, never among the data.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace vela::tool {

/// Whether words may be coloured on standard error: it is a terminal and NO_COLOR is not set.
bool stderrTakesColor();

/// "vela: <words>" on standard error, in colour where that is wanted. Everything said here is
/// printable() first; line ends stay.
void complain(std::string_view words);
void warn(std::string_view words);
/// A plain line on standard error.
void say(std::string_view words);

/// Text among the data on standard output: printable() on a terminal, as it is elsewhere.
std::string dataText(const std::string& text);

/// Asks on a terminal; elsewhere only `yes` will do.
/// \throws "VELA:vela:NeedsConfirmation" where nobody can be asked
bool confirmed(const std::string& question, bool yes);

/// Bytes for people: "1.5 MB".
std::string humanBytes(std::uint64_t bytes);
/// A count with its noun: "1 signal", "3 signals".
std::string counted(std::uint64_t count, std::string_view noun);

/// A progress bar with amount and remaining time on standard error; silent when that is no
/// terminal or `quiet` is set.
class ProgressBar {
 public:
  using Amount = std::string (*)(std::uint64_t);

  /// \param total   amount of work; 0 when unknown
  /// \param amount  an amount for people
  ProgressBar(const std::string& label, std::uint64_t total, bool quiet,
              Amount amount = humanBytes);
  /// Wipes the bar.
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  void update(std::uint64_t done);

 private:
  using Clock = std::chrono::steady_clock;

  std::string label_;
  std::uint64_t total_;
  Amount amount_;
  bool shown_;
  Clock::time_point start_ = Clock::now();
  Clock::time_point lastDrawn_{};
};

}  // namespace vela::tool
