#include "tools/vela/terminal.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "kodiag/message.h"
#include "text/printable.h"

namespace vela::tool {
namespace {

constexpr const char* kRed = "\033[1;31m";
constexpr const char* kYellow = "\033[1;33m";
constexpr const char* kPlain = "\033[0m";
constexpr const char* kWipeLine = "\r\033[K";

bool stderrIsTerminal() {
  return isatty(STDERR_FILENO) == 1;
}

void writeMarked(const char* color, std::string_view mark, std::string_view words) {
  const bool colored = stderrTakesColor();
  std::fprintf(stderr, "%s%.*s%s%s\n", colored ? color : "", static_cast<int>(mark.size()),
               mark.data(), colored ? kPlain : "",
               text::printable(words, text::LineEnds::kept).c_str());
}

std::string remaining(double seconds) {
  const auto whole = static_cast<long long>(seconds + 0.5);
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld left", whole / 60, whole % 60);
  return text;
}

}  // namespace

bool stderrTakesColor() {
  const char* const noColor = std::getenv("NO_COLOR");
  return stderrIsTerminal() && (!noColor || !*noColor);
}

void complain(std::string_view words) {
  writeMarked(kRed, "vela: ", words);
}
void warn(std::string_view words) {
  writeMarked(kYellow, "warning: ", words);
}
void say(std::string_view words) {
  std::fprintf(stderr, "%s\n", text::printable(words, text::LineEnds::kept).c_str());
}

std::string dataText(const std::string& text) {
  return isatty(STDOUT_FILENO) == 1 ? text::printable(text) : text;
}

bool confirmed(const std::string& question, bool yes) {
  if (yes) return true;
  if (isatty(STDIN_FILENO) != 1) {
    kodiag::raise({"VELA:vela", "NeedsConfirmation"}, {{"Operation", question}});
  }
  std::cerr << text::printable(question) << "? [y/N] ";
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

std::string humanBytes(std::uint64_t bytes) {
  constexpr std::array<const char*, 5> kUnits = {"B", "kB", "MB", "GB", "TB"};
  auto amount = static_cast<double>(bytes);
  std::size_t unit = 0;
  while (amount >= 1000 && unit + 1 < kUnits.size()) {
    amount /= 1000;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", amount, kUnits[unit]);
  return text;
}

std::string counted(std::uint64_t count, std::string_view noun) {
  return std::to_string(count) + " " + std::string(noun) + (count == 1 ? "" : "s");
}

ProgressBar::ProgressBar(const std::string& label, std::uint64_t total, bool quiet,
                         Amount amount)
    : label_(text::printable(label)),
      total_(total),
      amount_(amount),
      shown_(!quiet && stderrIsTerminal()) {}

ProgressBar::~ProgressBar() {
  if (shown_) std::fputs(kWipeLine, stderr);
}

void ProgressBar::update(std::uint64_t done) {
  const Clock::time_point now = Clock::now();
  if (!shown_ || now - lastDrawn_ < std::chrono::milliseconds(100)) return;
  lastDrawn_ = now;

  std::string line = label_ + "  " + amount_(done);
  if (total_ > 0) {
    constexpr int kWidth = 24;
    const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
    const auto filled = static_cast<int>(share * kWidth);
    line = label_ + " [" + std::string(static_cast<std::size_t>(filled), '#') +
           std::string(static_cast<std::size_t>(kWidth - filled), '.') + "] " + amount_(done) +
           " of " + amount_(total_);
    const double elapsed = std::chrono::duration<double>(now - start_).count();
    if (share > 0.02) line += ", " + remaining(elapsed * (1 - share) / share);
  }
  std::fprintf(stderr, "%s%s", kWipeLine, line.c_str());
  std::fflush(stderr);
}

}  // namespace vela::tool
