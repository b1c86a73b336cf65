#include "objects/chunkwriter.h"

#include "objects/raising.h"
#include "objects/strings.h"

namespace vela {
namespace {

using Relation = kodd::PropertyValueMatchRelation;

}  // namespace

ChunkWriter::ChunkWriter(ObjectManager& manager)
    : manager_(manager),
      chunkClass_(manager.getClass(strings::Chunk)),
      timesClass_(manager.getClass(strings::TimeChunk)),
      valuesClass_(manager.getClass(strings::DataChunk)),
      newChunk_(chunkClass_, manager.repository()),
      newTimelessChunk_(chunkClass_, manager.repository()),
      newTimes_(timesClass_, manager.repository()),
      newTimesWithEpochs_(timesClass_, manager.repository()),
      newValues_(valuesClass_, manager.repository()),
      chunkModifier_(chunkClass_, manager.repository()),
      timesModifier_(timesClass_, manager.repository()),
      valuesModifier_(valuesClass_, manager.repository()),
      chunkDeleter_(chunkClass_, manager.repository()),
      timesDeleter_(timesClass_, manager.repository()),
      valuesDeleter_(valuesClass_, manager.repository()) {
  const auto ofChunk = [&](const std::string& name) {
    return manager.getPropertyRef(strings::Chunk, name);
  };
  for (kodd::ObjectConstructor* constructor : {&newChunk_, &newTimelessChunk_}) {
    constructor->setPropertyIDSource(ofChunk(strings::Signal), &signal_);
  }
  newChunk_.setPropertyValueSource(ofChunk(strings::ChunkNum), &row_.number);
  const auto bindSpan = [&](kodd::ValueSources& writer) {
    writer.setPropertyValueSource(ofChunk(strings::NumPoints), &row_.points);
    writer.setPropertyValueSource(ofChunk(strings::StartTime), &row_.startTime);
    writer.setPropertyValueSource(ofChunk(strings::EndTime), &row_.endTime);
  };
  bindSpan(newChunk_);
  bindSpan(chunkModifier_);

  const kodd::PropertyRef chunkOfTimes =
      manager.getPropertyRef(strings::TimeChunk, strings::Chunk);
  const kodd::PropertyRef times = manager.getPropertyRef(strings::TimeChunk, strings::BlobData);
  const kodd::PropertyRef epochs =
      manager.getPropertyRef(strings::TimeChunk, strings::EpochBlobData);
  for (kodd::ObjectConstructor* constructor : {&newTimes_, &newTimesWithEpochs_}) {
    constructor->setPropertyIDSource(chunkOfTimes, &row_.id);
    constructor->setPropertyValueSource(times, &times_);
  }
  newTimesWithEpochs_.setPropertyValueSource(epochs, &epochs_);
  timesModifier_.setPropertyValueSource(times, &times_);
  timesModifier_.setPropertyValueSource(epochs, &epochs_);

  const kodd::PropertyRef values =
      manager.getPropertyRef(strings::DataChunk, strings::BlobData);
  newValues_.setPropertyIDSource(manager.getPropertyRef(strings::DataChunk, strings::Chunk),
                                 &row_.id);
  newValues_.setPropertyValueSource(values, &values_);
  valuesModifier_.setPropertyValueSource(values, &values_);
}

void ChunkWriter::bindBytes(const SampleBlock& block) {
  times_ = {block.times, block.points * sizeof(double)};
  epochs_ = {block.epochs, block.epochs ? block.points * sizeof(unsigned) : 0};
  values_ = {block.values, block.valueBytes};
}

void ChunkWriter::insert(int signal, int number, const SampleBlock& block) {
  const auto create = [](kodd::ObjectConstructor& constructor) {
    return raising([&](auto& diag) { return constructor.createObjectID(diag); });
  };
  signal_ = signal;
  bindBytes(block);
  if (block.points > 0) {
    row_.number = number;
    row_.points = static_cast<int>(block.points);
    row_.startTime = block.firstTime();
    row_.endTime = block.lastTime();
    row_.id = create(newChunk_);
    create(block.epochs ? newTimesWithEpochs_ : newTimes_);
  } else {
    row_.id = create(newTimelessChunk_);
  }
  create(newValues_);
}

void ChunkWriter::modify(const ChunkRow& row) {
  row_ = row;
  raising([&](auto& diag) { return chunkModifier_.modifyObjectID(row.id, diag); });
}

void ChunkWriter::replaceBytes(const ChunkBlobs& blobs, const SampleBlock& block) {
  bindBytes(block);
  raising([&](auto& diag) { return timesModifier_.modifyObjectID(blobs.timesID, diag); });
  raising([&](auto& diag) { return valuesModifier_.modifyObjectID(blobs.valuesID, diag); });
}

void ChunkWriter::remove(int chunk) {
  removeSelected(kodd::Selection(chunkClass_).withId(chunk));
}

void ChunkWriter::removeFrom(int signal, int number) {
  removeSelected(
      ofSignal(signal).matching(manager_.getPropertyRef(strings::Chunk, strings::ChunkNum),
                                Relation::GreaterEqual, number));
}

void ChunkWriter::removeAll(int signal) {
  removeSelected(ofSignal(signal));
}

kodd::Selection ChunkWriter::ofSignal(int signal) const {
  return kodd::Selection(chunkClass_)
      .matching(manager_.getPropertyRef(strings::Chunk, strings::Signal), Relation::Equal,
                signal);
}

void ChunkWriter::removeSelected(const kodd::Selection& chunks) {
  const auto removeParts = [&](kodd::ObjectDeleter& deleter, const kodd::ClassRef& cls) {
    const kodd::PropertyRef via = manager_.getPropertyRef(cls.name(), strings::Chunk);
    raising([&](auto& diag) {
      return deleter.deleteSelected(kodd::Selection(cls).referring(via, chunks), diag);
    });
  };
  removeParts(timesDeleter_, timesClass_);
  removeParts(valuesDeleter_, valuesClass_);
  raising([&](auto& diag) { return chunkDeleter_.deleteSelected(chunks, diag); });
}

}  // namespace vela
