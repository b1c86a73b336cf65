#include "objectmanager/findobjectstracer.h"

#include <thread>

namespace vela {
namespace {

const std::thread::id mainThread = std::this_thread::get_id();

std::string joined(const std::vector<const kodd::PropertyInfo*>& properties) {
  std::string text;
  for (const kodd::PropertyInfo* property : properties) {
    if (!text.empty()) text += ", ";
    text += property->name;
  }
  return text;
}

}  // namespace

void FindObjectsTracer::Tally::add(double seconds) {
  ++hits;
  totalSeconds += seconds;
}

void FindObjectsTracer::record(const kodd::ClassRef& table,
                               std::vector<kodd::PropertyRef> properties,
                               double elapsedSeconds) {
  Key key{table.info(), {}};
  key.second.reserve(properties.size());
  for (const kodd::PropertyRef& property : properties) key.second.push_back(property.info());
  std::lock_guard lock(mutex_);
  Record& record = records_[std::move(key)];
  record.all.add(elapsedSeconds);
  if (std::this_thread::get_id() == mainThread) record.main.add(elapsedSeconds);
}

std::vector<FindObjectsTracer::Row> FindObjectsTracer::rows(Threads threads) const {
  std::lock_guard lock(mutex_);
  std::vector<Row> rows;
  for (const auto& [key, record] : records_) {
    const Tally& tally = threads == Threads::main ? record.main : record.all;
    if (tally.hits == 0) continue;
    rows.push_back({key.first->name, joined(key.second), tally.hits, tally.totalSeconds,
                    tally.totalSeconds / tally.hits});
  }
  return rows;
}

void FindObjectsTracer::reset() {
  std::lock_guard lock(mutex_);
  records_.clear();
}

host::HostArray tableOf(const std::vector<FindObjectsTracer::Row>& rows) {
  using host::HostArray;
  std::vector<std::vector<HostArray>> columns;
  for (const char* title :
       {"Table:", "Queried against:", "Number of hits:", "Total time:", "Average time:"}) {
    columns.push_back({HostArray::text(title)});
  }
  for (const FindObjectsTracer::Row& row : rows) {
    columns[0].push_back(HostArray::text(row.table));
    columns[1].push_back(HostArray::text(row.properties));
    columns[2].push_back(HostArray::scalar(static_cast<double>(row.hits)));
    columns[3].push_back(HostArray::scalar(row.totalSeconds));
    columns[4].push_back(HostArray::scalar(row.averageSeconds));
  }
  std::vector<HostArray> cells;
  for (std::vector<HostArray>& column : columns) {
    cells.insert(cells.end(), column.begin(), column.end());
  }
  return HostArray::cell({rows.size() + 1, columns.size()}, std::move(cells));
}

}  // namespace vela
