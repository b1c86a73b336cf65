// Statistics of the object queries of one manager.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/arrays.h"
#include "kodd/metamodel.h"

namespace vela {

/// Counts and times queries by queried class and constrained properties, in the order in which
/// these were given. Always on; texts are made for reports only. Threads: any number.
class FindObjectsTracer {
 public:
  /// Whose queries a report tells of. The main thread is the one that loaded the library.
  enum class Threads { main, all };

  struct Row {
    std::string table;       ///< name of the class
    std::string properties;  ///< names joined with ", "
    std::uint32_t hits = 0;
    double totalSeconds = 0;
    double averageSeconds = 0;
  };

  /// Called on the thread that made the query.
  void record(const kodd::ClassRef& table, std::vector<kodd::PropertyRef> properties,
              double elapsedSeconds);
  /// One row a record with hits, in no particular order.
  std::vector<Row> rows(Threads threads = Threads::all) const;
  void reset();

 private:
  struct Tally {
    std::uint32_t hits = 0;
    double totalSeconds = 0;

    void add(double seconds);
  };
  struct Record {
    Tally main;
    Tally all;
  };
  using Key = std::pair<const kodd::ClassInfo*, std::vector<const kodd::PropertyInfo*>>;

  mutable std::mutex mutex_;
  std::map<Key, Record> records_;
};

/// A cell of a header and a row for each record: "Table:", "Queried against:", "Number of
/// hits:", "Total time:" and "Average time:", times in seconds.
host::HostArray tableOf(const std::vector<FindObjectsTracer::Row>& rows);

}  // namespace vela
