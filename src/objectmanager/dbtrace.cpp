#include "objectmanager/dbtrace.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string_view>

#include "kodd/datamodelrepository.h"
#include "objectmanager/statementtimes.h"

namespace vela::dbtrace {
namespace {

std::atomic<bool> traceEnabled = false;
std::atomic<bool> profileEnabled = false;
std::mutex logMutex;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

// Opened and closed for every line: what was logged survives a crash. A log that cannot be
// written is given up without disturbing the work it watches.
File openLog(const char* name) {
  return File(std::fopen(name, "ae"));
}

void logStatement(std::string_view sql) {
  std::lock_guard lock(logMutex);
  if (const File log = openLog("dbtrace_log.txt")) {
    std::fprintf(log.get(), "%.*s\n", static_cast<int>(sql.size()), sql.data());
  }
}

void noteDuration(std::string_view sql, std::uint64_t nanoseconds) {
  if (statementtimes::areEnabled()) statementtimes::record(sql, nanoseconds);
  if (!profileEnabled) return;
  std::lock_guard lock(logMutex);
  if (const File log = openLog("dbprofile_log.txt")) {
    std::fprintf(log.get(), "%.4fs\t%.*s\n", static_cast<double>(nanoseconds) * 1e-09,
                 static_cast<int>(sql.size()), sql.data());
  }
}

}  // namespace

void enableTrace() {
  traceEnabled = true;
}

void enableProfile() {
  profileEnabled = true;
}

void install(kodd::DataModelRepository& repository) {
  if (traceEnabled) repository.setTraceCallback(logStatement);
  if (profileEnabled || statementtimes::areEnabled()) {
    repository.setProfileCallback(noteDuration);
  }
}

}  // namespace vela::dbtrace
