// How often the statements of all repositories ran, and how long.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vela::statementtimes {

struct Row {
  std::string statement;  ///< without the values bound to it
  std::uint64_t calls = 0;
  double totalSeconds = 0;
};

/// Repositories opened afterwards count.
void enable();
bool areEnabled();
void record(std::string_view statement, std::uint64_t nanoseconds);
/// The longest total first.
std::vector<Row> rows();

}  // namespace vela::statementtimes
