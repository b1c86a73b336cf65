// Fails the store at every write of an append in turn: the samples from before are all there,
// none of the new ones are, and the same call then succeeds.
#include <functional>

#include "kodd/layout.h"
#include "objects/signalstate.h"
#include "sqldb/database.h"
#include "tests/objects/signaltest.h"

namespace vela {
namespace {

using test::raisedBy;

class SignalFailuresTest : public test::SignalTest {
 protected:
  SignalFailuresTest() : signal_(*manager_) {}

  sqldb::Database& database() { return *manager_->repository().getDB(); }
  std::string table(const std::string& className) {
    return layout().of(manager_->getClass(className)).table;
  }
  std::string column(const std::string& className, const std::string& property) {
    return layout().of(*manager_->getPropertyRef(className, property).info()).name;
  }
  const kodd::Layout& layout() {
    kodiag::util::diagnostics diag;
    return kodd::Layout::positional(*manager_->repository().metamodel(diag).model());
  }

  /// Fails every write that stores a row of the class for which `condition` holds: an index
  /// whose expression has no value for such a row.
  std::string failRows(const std::string& className, const std::string& condition) {
    return "CREATE INDEX fault ON " + table(className) + "(CASE WHEN " + condition +
           " THEN abs(id * 0 - 9223372036854775807 - 1) END)";
  }
  std::string failNewRows(const std::string& className) {
    const std::string newest = database().queryText("SELECT max(id) FROM " + table(className));
    return failRows(className, "id > " + (newest.empty() ? "0" : newest));
  }
  std::string failGreater(const std::string& className, const std::string& property,
                          int limit) {
    return failRows(className, column(className, property) + " > " + std::to_string(limit));
  }
  /// Fails writing blobs in place: an indexed column cannot be opened for that.
  std::string failBlobs(const std::string& className, const std::string& property) {
    return "CREATE INDEX fault ON " + table(className) + "(" + column(className, property) +
           ") WHERE id < 0";
  }

  struct Content {
    std::vector<double> times;
    std::vector<char> values;
    std::vector<unsigned> epochs;
    std::vector<std::size_t> objects;
    int lastChunk;
    int lastChunkBytes;
    double newest;
    bool operator==(const Content&) const = default;
  };
  Content content() {
    Content found;
    signal_.readRange(-DBL_MAX, DBL_MAX, found.times, found.values, &found.epochs);
    for (const std::string& name : {strings::Chunk, strings::TimeChunk, strings::DataChunk}) {
      found.objects.push_back(count(name));
    }
    const SignalState state = manager_->prepared<SignalStates>().read(signal_.getID());
    found.lastChunk = state.lastChunk;
    found.lastChunkBytes = state.lastChunkBytes;
    found.newest = state.newestTime;
    return found;
  }

  void expectAllOrNothing(const std::vector<std::string>& faults,
                          const std::function<void()>& append,
                          const std::vector<double>& timesAfterwards) {
    const Content before = content();
    for (const std::string& fault : faults) {
      SCOPED_TRACE(fault);
      database().execute(fault);
      EXPECT_NE(raisedBy(append), "");
      database().execute("DROP INDEX fault");
      EXPECT_TRUE(content() == before);
    }
    append();
    EXPECT_EQ(times(signal_), timesAfterwards);
  }

  Signal signal_;
};

TEST_F(SignalFailuresTest, AnAppendThatAddsAChunkIsAllOrNothing) {
  boost::shared_ptr<Signal> parent(new Signal(*manager_));
  signal_.setParent(parent);
  append(signal_, {1, 2, 3});
  parent->dirtyMinMaxDirectReadOkayFlagForAllChildrenInHierarchy();
  expectAllOrNothing({failNewRows(strings::Chunk), failNewRows(strings::TimeChunk),
                      failNewRows(strings::DataChunk),
                      failGreater(strings::Signal, strings::LastChunkIndex, 1),
                      failGreater(strings::Signal, strings::MinMaxDirectReadOkay, 1)},
                     [&] {
                       append(signal_, {4, 5});
                     },
                     {1, 2, 3, 4, 5});
}

TEST_F(SignalFailuresTest, AnAppendThatExtendsAChunkIsAllOrNothing) {
  Signal::setMinimumChunkNumBytes(1000);
  append(signal_, {1}, {1}, {7});
  for (const char* room : {"none left", "some left"}) {
    SCOPED_TRACE(room);
    const double next = signal_.getLatestTimeValue() + 1;
    std::vector<double> expected = times(signal_);
    const int points = static_cast<int>(expected.size());
    expected.push_back(next);
    expectAllOrNothing(
        {failBlobs(strings::TimeChunk, strings::BlobData),
         failBlobs(strings::TimeChunk, strings::EpochBlobData),
         failBlobs(strings::DataChunk, strings::BlobData),
         failGreater(strings::Chunk, strings::NumPoints, points),
         failGreater(strings::Signal, strings::NumBytesInLastChunk, 8 * points)},
        [&] { append(signal_, {next}, {next}, {7}); }, expected);
    append(signal_, {next + 1}, {next + 1}, {7});
  }
}

TEST_F(SignalFailuresTest, AnAppendThatReplacesSamplesIsAllOrNothing) {
  append(signal_, {1, 2, 3});
  append(signal_, {4, 5});
  expectAllOrNothing(
      {failRows(strings::Chunk, column(strings::Chunk, strings::NumPoints) +
                                    " = 1 "
                                    "AND " +
                                    column(strings::Chunk, strings::ChunkNum) + " = 1"),
       failNewRows(strings::Chunk), failNewRows(strings::TimeChunk),
       failNewRows(strings::DataChunk),
       failRows(strings::Signal,
                column(strings::Signal, strings::NumBytesInLastChunk) + " = 24")},
      [&] {
        append(signal_, {1.5, 6, 7});
      },
      {1, 1.5, 6, 7});
}

TEST_F(SignalFailuresTest, AFullStoreKeepsWhatItHasWhicheverPageIsMissing) {
  append(signal_, {1, 2, 3});
  const Content before = content();
  std::vector<double> block(10'000);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = 10 + static_cast<double>(i);
  const int pages = std::stoi(database().queryText("PRAGMA page_count"));
  int failures = 0;
  for (int room = 0; room < 100; ++room) {
    SCOPED_TRACE(room);
    database().queryText("PRAGMA max_page_count = " + std::to_string(pages + room));
    const std::string raised = raisedBy([&] { append(signal_, block); });
    if (raised.empty()) break;
    EXPECT_EQ(raised, "KODD:kodd:DiskFull");
    EXPECT_TRUE(content() == before);
    ++failures;
  }
  EXPECT_GT(failures, 5);
  EXPECT_EQ(times(signal_).size(), 10'003u);
}

}  // namespace
}  // namespace vela
