// Statistics of the object queries of one manager.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

namespace vela {

/// Counts and times queries by queried class and constrained properties. Threads: any number.
class FindObjectsTracer {
 public:
  struct Row {
    std::string table;
    std::string properties;  ///< names joined with ", ", in the order of the constraints
    std::uint32_t hits = 0;
    double totalSeconds = 0;
    double averageSeconds = 0;
  };

  FindObjectsTracer() { records_.max_load_factor(1.0f); }

  void record(const std::string& table, const std::vector<std::string>& properties,
              double elapsedSeconds);
  /// One row a record, in no particular order.
  std::vector<Row> rows() const;
  void reset();

 private:
  struct Record {
    std::string table;
    std::string properties;
    std::uint32_t hits = 0;
    double totalSeconds = 0;
  };

  mutable std::mutex mutex_;
  std::unordered_map<std::string, Record> records_;
};

}  // namespace vela
