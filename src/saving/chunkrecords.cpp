#include "saving/chunkrecords.h"

#include <cmath>
#include <limits>
#include <memory>

#include "kodiag/diagnostics.h"
#include "objects/chunkbytes.h"
#include "objects/chunkrows.h"
#include "objects/chunkwriter.h"
#include "objects/strings.h"
#include "saving/savedformat.h"

namespace vela::saving {
namespace {

using host::HostArray;

const std::vector<std::string> kRecordFields = {kID, kType, kRecordData};
const std::vector<std::string> kChunkFields = {strings::ChunkNum,  strings::NumPoints,
                                               strings::StartTime, strings::EndTime,
                                               strings::TimeChunk, strings::DataChunk};
const std::vector<std::string> kTimeFields = {strings::BlobData, strings::EpochBlobData};
const std::vector<std::string> kValueFields = {strings::BlobData};

/// The first bytes of a buffer as a column, not copied: the buffer must outlive it.
template <class T>
HostArray columnOf(const std::vector<char>& buffer, std::size_t byteCount) {
  const auto* const first = reinterpret_cast<const std::byte*>(buffer.data());
  return HostArray::sharing(host::arrayClassOf<T>(), {byteCount / sizeof(T), 1},
                            {std::shared_ptr<void>(), first}, byteCount);
}

/// How many bytes of each blob count.
struct Used {
  std::size_t times;
  std::size_t epochs;
  std::size_t values;
};

Used usedOf(const ChunkRow& row, const LoadedChunk& chunk) {
  const std::size_t capacity = chunk.capacity();
  const auto points = static_cast<std::size_t>(row.points);
  const bool isEven = capacity > 0 && row.points >= 0 && points <= capacity &&
                      chunk.values.size() % capacity == 0 &&
                      (chunk.epochs.empty() || chunk.epochs.size() == capacity * 4);
  if (!isEven) return {chunk.times.size(), chunk.epochs.size(), chunk.values.size()};
  return {points * sizeof(double), chunk.epochs.empty() ? 0 : points * sizeof(unsigned),
          chunk.values.size() / capacity * points};
}

void putChunk(datafile::DataFileWriter::Variable& into, const ChunkRow& row,
              const LoadedChunk& chunk) {
  const Used used = usedOf(row, chunk);
  into.beginStructure(kRecordFields);
  into.put(HostArray::scalar(static_cast<double>(row.id)));
  into.put(HostArray::text(strings::Chunk));
  into.beginStructure(kChunkFields);
  into.put(HostArray::scalar(row.number));
  into.put(HostArray::scalar(row.points));
  into.put(HostArray::scalar(row.startTime));
  into.put(HostArray::scalar(row.endTime));
  into.beginStructure(kTimeFields);
  into.put(columnOf<double>(chunk.times, used.times));
  into.put(columnOf<unsigned>(chunk.epochs, used.epochs));
  into.beginStructure(kValueFields);
  into.put(columnOf<std::uint8_t>(chunk.values, used.values));
}

/// Makes chunks of the records of one signal, which have to follow each other in time.
class ChunkTaker {
 public:
  ChunkTaker(datafile::DataFileReader::Variable& from, const datafile::DataFileReader& file,
             ObjectManager& manager, int signal, int lastChunk)
      : from_(from),
        file_(file),
        writer_(manager.prepared<ChunkWriter>()),
        signal_(signal),
        lastChunk_(lastChunk) {}

  void takeOne() {
    try {
      takeRecordHead();
      takeRow();
      takeBytes();
      check();
    } catch (const kodiag::except::ExceptionWithCauses& error) {
      // What is no number or text where one should be.
      if (!error.message().id.key.starts_with("HostArray")) throw;
      refuse(error.message().text());
    }
    writer_.insert(signal_, row_.number, block());
    if (row_.points > 0) {
      previousNumber_ = row_.number;
      previousEnd_ = row_.endTime;
    }
  }

 private:
  [[noreturn]] void refuse(const std::string& reason) const {
    refuseFile(file_, "a chunk is not in order: " + reason);
  }
  void require(bool holds, const char* reason) const {
    if (!holds) refuse(reason);
  }
  void expect(const std::vector<std::string>& fields, const char* what) {
    requireFields(file_, fields, from_.beginStructure(), what);
  }
  int takeCount() {
    const std::int64_t value = from_.take().toInt64();
    require(value >= 0 && value <= std::numeric_limits<int>::max(), "a count is out of range");
    return static_cast<int>(value);
  }

  void takeRecordHead() {
    expect(kRecordFields, "the record of a chunk");
    from_.take().toDouble();
    require(from_.take().toString() == strings::Chunk, "it is of another class");
  }

  void takeRow() {
    expect(kChunkFields, "a chunk");
    row_.number = takeCount();
    row_.points = takeCount();
    row_.startTime = from_.take().toDouble();
    row_.endTime = from_.take().toDouble();
  }

  void takeBytes() {
    expect(kTimeFields, "a chunk's times");
    times_ = from_.take();
    epochs_ = from_.take();
    expect(kValueFields, "a chunk's values");
    values_ = from_.take();
  }

  void check() const {
    const auto points = static_cast<std::size_t>(row_.points);
    const std::span<const double> times = times_.values<double>();
    const std::size_t epochs = epochs_.values<unsigned>().size();
    require(times.size() == points, "it has not a time for every point");
    require(epochs == 0 || epochs == points, "it has not an epoch for every point");
    require(values_.values<std::uint8_t>().size() <= std::numeric_limits<int>::max(),
            "it has too many bytes");
    if (points == 0) return;
    require(row_.number > previousNumber_ && row_.number <= lastChunk_,
            "its number does not follow");
    double previous = previousEnd_;
    for (const double time : times) {
      // Written so that NaN counts as disorder.
      require(std::isfinite(time) && time >= previous, "its times are not in order");
      previous = time;
    }
    require(row_.startTime == times.front() && row_.endTime == times.back(),
            "it does not begin and end with its samples");
  }

  SampleBlock block() const {
    SampleBlock block;
    block.times = reinterpret_cast<const char*>(times_.bytes().data());
    block.values = reinterpret_cast<const char*>(values_.bytes().data());
    block.points = static_cast<std::size_t>(row_.points);
    block.valueBytes = values_.size();
    if (!epochs_.isEmpty())
      block.epochs = reinterpret_cast<const char*>(epochs_.bytes().data());
    return block;
  }

  datafile::DataFileReader::Variable& from_;
  const datafile::DataFileReader& file_;
  ChunkWriter& writer_;
  int signal_;
  int lastChunk_;
  int previousNumber_ = 0;
  double previousEnd_ = -std::numeric_limits<double>::infinity();
  ChunkRow row_;
  HostArray times_;
  HostArray epochs_;
  HostArray values_;
};

}  // namespace

void putChunks(datafile::DataFileWriter::Variable& into, ObjectManager& manager, int signal) {
  const std::vector<ChunkRow> rows = manager.prepared<ChunkRows>().all(signal);
  into.beginCell(rows.size());
  for (const ChunkRow& row : rows) {
    putChunk(into, row, manager.prepared<ChunkBytes>().load(row.id));
  }
}

void takeChunks(datafile::DataFileReader::Variable& from, const datafile::DataFileReader& file,
                ObjectManager& manager, int signal, int lastChunk) {
  ChunkTaker taker(from, file, manager, signal, lastChunk);
  for (std::size_t left = from.beginCell(); left > 0; --left) taker.takeOne();
}

}  // namespace vela::saving
