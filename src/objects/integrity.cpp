#include "objects/integrity.h"

#include <map>
#include <set>
#include <utility>

#include "objects/raising.h"
#include "objects/strings.h"

namespace vela {
namespace {

struct ChunkFacts {
  int signal = 0;
  int number = 0;
  int points = 0;
  double startTime = 0;
  double endTime = 0;
  long long timeBytes = 0;
  long long valueBytes = 0;
};

class SignalCheck {
 public:
  explicit SignalCheck(ObjectManager& manager) : manager_(manager) {}

  std::vector<std::string> run() {
    readChunks();
    readBytes(strings::TimeChunk, &ChunkFacts::timeBytes);
    readBytes(strings::DataChunk, &ChunkFacts::valueBytes);
    for (const auto& [id, chunk] : chunks_) checkChunk(chunk);
    checkSignals();
    for (const auto& [problem, found] : found_)
      problems_.push_back(std::to_string(found.count) + " " + problem + "; the first is " +
                          found.first + ".");
    return std::move(problems_);
  }

 private:
  struct Found {
    long long count = 0;
    std::string first;
  };

  void report(const std::string& problem, const std::string& where) {
    Found& found = found_[problem];
    if (found.count++ == 0) found.first = where;
  }

  /// Calls `use` for every object of the class.
  template <class Bind, class Use>
  void forEach(const std::string& className, Bind&& bind, Use&& use) {
    const kodd::ClassRef cls = manager_.getClass(className);
    const auto query = manager_.createObjectQuery();
    bind(*query, cls);
    raising([&](kodiag::util::diagnostics& diag) {
      kodd::ResultIterator rows = query->execute(diag);
      while (diag.empty() && rows.getNextResult(diag)) use();
    });
  }

  void readChunks() {
    int id = 0;
    ChunkFacts chunk;
    forEach(
        strings::Chunk,
        [&](kodd::ObjectQuery& query, const kodd::ClassRef& cls) {
          query.addResultID(cls, &id);
          query.addResultProperty(cls.findProperty(strings::Signal), &chunk.signal);
          query.addResultProperty(cls.findProperty(strings::ChunkNum), &chunk.number);
          query.addResultProperty(cls.findProperty(strings::NumPoints), &chunk.points);
          query.addResultProperty(cls.findProperty(strings::StartTime), &chunk.startTime);
          query.addResultProperty(cls.findProperty(strings::EndTime), &chunk.endTime);
        },
        [&] { chunks_[id] = chunk; });
  }

  void readBytes(const std::string& className, long long ChunkFacts::*bytes) {
    int chunk = 0;
    kodd::BlobSizeInfo size;
    forEach(
        className,
        [&](kodd::ObjectQuery& query, const kodd::ClassRef& cls) {
          query.addResultProperty(cls.findProperty(strings::Chunk), &chunk);
          query.addResultProperty(cls.findProperty(strings::BlobData), &size);
        },
        [&] {
          const auto found = chunks_.find(chunk);
          if (found != chunks_.end())
            found->second.*bytes = static_cast<long long>(size.length);
        });
  }

  void checkChunk(const ChunkFacts& chunk) {
    const std::string where =
        "chunk " + std::to_string(chunk.number) + " of signal " + std::to_string(chunk.signal);
    if (chunk.points < 0 || chunk.number < 0) report("chunks count less than nothing", where);
    if (chunk.points <= 0) return;
    if (chunk.timeBytes / static_cast<long long>(sizeof(double)) < chunk.points)
      report("chunks count more samples than they have times", where);
    if (chunk.valueBytes == 0) report("chunks have times but no values", where);
    // Written so that NaN counts as disorder.
    if (!(chunk.startTime <= chunk.endTime)) report("chunks end before they start", where);
  }

  void checkSignals() {
    int id = 0;
    int parent = 0;
    int lastChunk = 0, lastBytes = 0, mostBytes = 0;
    std::map<int, int> parents;
    forEach(
        strings::Signal,
        [&](kodd::ObjectQuery& query, const kodd::ClassRef& cls) {
          query.addResultID(cls, &id);
          query.addResultProperty(cls.findProperty(strings::FK_Parent), &parent);
          query.addResultProperty(cls.findProperty(strings::LastChunkIndex), &lastChunk);
          query.addResultProperty(cls.findProperty(strings::NumBytesInLastChunk), &lastBytes);
          query.addResultProperty(cls.findProperty(strings::LargestChunkSize), &mostBytes);
        },
        [&] {
          if (lastChunk < 0 || lastBytes < 0 || mostBytes < 0)
            report("signals count less than nothing", "signal " + std::to_string(id));
          if (parent != 0) parents[id] = parent;
        });
    checkCircles(parents);
  }

  void checkCircles(const std::map<int, int>& parents) {
    std::set<int> settled;
    for (const auto& [start, unused] : parents) {
      std::set<int> path;
      auto at = parents.find(start);
      while (at != parents.end() && !settled.contains(at->first)) {
        if (!path.insert(at->first).second) {
          report("circles of signals are below themselves",
                 "that of signal " + std::to_string(at->first));
          break;
        }
        at = parents.find(at->second);
      }
      settled.merge(path);
    }
  }

  ObjectManager& manager_;
  std::map<int, ChunkFacts> chunks_;
  std::map<std::string, Found> found_;
  std::vector<std::string> problems_;
};

}  // namespace

std::vector<std::string> findSignalProblems(ObjectManager& manager) {
  std::vector<std::string> problems;
  manager.inReadUnit([&] { problems = SignalCheck(manager).run(); });
  return problems;
}

}  // namespace vela
