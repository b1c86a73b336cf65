#include "objectmanager/findobjectstracer.h"

namespace vela {
namespace {

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    if (!text.empty()) text += ", ";
    text += name;
  }
  return text;
}

}  // namespace

void FindObjectsTracer::record(const std::string& table,
                               const std::vector<std::string>& properties,
                               double elapsedSeconds) {
  std::string names = joined(properties);
  // No class name holds a line feed, so the two parts of the key cannot run into each other.
  std::string key = table + "\n" + names;
  std::lock_guard lock(mutex_);
  Record& record =
      records_.try_emplace(std::move(key), Record{table, std::move(names)}).first->second;
  ++record.hits;
  record.totalSeconds += elapsedSeconds;
}

std::vector<FindObjectsTracer::Row> FindObjectsTracer::rows() const {
  std::lock_guard lock(mutex_);
  std::vector<Row> rows;
  rows.reserve(records_.size());
  for (const auto& [key, record] : records_) {
    rows.push_back({record.table, record.properties, record.hits, record.totalSeconds,
                    record.totalSeconds / record.hits});
  }
  return rows;
}

void FindObjectsTracer::reset() {
  std::lock_guard lock(mutex_);
  records_.clear();
}

}  // namespace vela
