#include "yarrow/streamrows.h"

#include <algorithm>
#include <cmath>

#include "kodiag/message.h"

namespace yarrow {
namespace {

bool isEarlier(const StreamRow& first, const StreamRow& second) {
  return first.first < second.first;
}

[[noreturn]] void refuse(const char* key, const std::string& stream, std::size_t row,
                         const std::string& reason) {
  kodiag::raise({"nexstore:nex", key},
                {{"Operation", "add rows to stream \"" + stream + "\""},
                 {"Reason", "row " + std::to_string(row) + " " + reason}});
}

}  // namespace

void requireRows(const StreamRows& rows, std::size_t channels, const std::string& stream) {
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (rows[i].second.size() != channels) {
      refuse("InvalidDimensions", stream, i,
             "has " + std::to_string(rows[i].second.size()) + " values for " +
                 std::to_string(channels) + " channels");
    }
    if (!std::isfinite(rows[i].first)) {
      refuse("InvalidData", stream, i, "has a time that is not finite");
    }
  }
}

StreamRows inOrderOfTime(StreamRows rows) {
  if (!std::is_sorted(rows.begin(), rows.end(), isEarlier)) {
    std::stable_sort(rows.begin(), rows.end(), isEarlier);
  }
  return rows;
}

StreamRows merged(const StreamRows& stored, const StreamRows& updates) {
  StreamRows result;
  result.reserve(stored.size() + updates.size());
  auto kept = stored.begin();
  for (auto update = updates.begin(); update != updates.end();) {
    const auto [first, last] = std::equal_range(kept, stored.end(), *update, isEarlier);
    result.insert(result.end(), kept, first);
    const auto end = std::upper_bound(update, updates.end(), *update, isEarlier);
    result.insert(result.end(), update, end);
    kept = last;
    update = end;
  }
  result.insert(result.end(), kept, stored.end());
  return result;
}

StreamColumns::StreamColumns(const StreamRows& rows, std::size_t channels)
    : times(rows.size()), values(channels, std::vector<double>(rows.size())) {
  for (std::size_t i = 0; i < rows.size(); ++i) {
    times[i] = rows[i].first;
    for (std::size_t channel = 0; channel < channels; ++channel) {
      values[channel][i] = rows[i].second[channel];
    }
  }
}

}  // namespace yarrow
