#include "yarrow/streamstore.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <set>

#include <boost/uuid/uuid_io.hpp>

#include "kodiag/message.h"
#include "objects/classdef.h"
#include "objects/datatypes.h"
#include "objects/find.h"
#include "objects/identifiers.h"
#include "objects/raising.h"
#include "objects/signal.h"
#include "objects/strings.h"
#include "signalcreationutil.h"

namespace yarrow {
namespace {

using namespace vela;  // NOLINT: the facade's own namespace stands beside that of the system

// What a metadata object holds. // Stored; never change.
const std::string kText = "string";
const std::string kNumber = "double";

/// A signal of the stream, and what it may hold.
struct Channel {
  std::unique_ptr<Signal> signal;
  std::optional<std::set<int>> enumerators;
};

/// Nothing for a signal of another type than an enumeration.
std::optional<std::set<int>> enumeratorsOf(ObjectManager& manager, const Signal& signal) {
  const auto type = signal.getDataType();
  if (!type || type->getPropertyStdString(strings::Classification) != strings::Enumeration) {
    return std::nullopt;
  }
  bool found = false;
  auto cls = manager.findObject(type->getPropertyInt32(strings::FK_DataTypeDefinitionID),
                                strings::ClassDefinition, found);
  std::set<int> values;
  if (!found) return values;
  for (const auto& [value, label] :
       ClassDef(std::move(cls)).getOrderedEnumerationDefinition()) {
    values.insert(value);
  }
  return values;
}

void requireStream(ObjectManager& manager, const std::string& stream,
                   const std::string& operation) {
  if (findFirstID(manager, strings::YarrowRuns, {equals(strings::Name, stream)}) != 0) return;
  kodiag::raise({"nexstore:nex", "NoSuchSignal"},
                {{"Operation", operation}, {"SignalID", "of a stream \"" + stream + "\""}});
}

std::vector<Channel> channelsOf(ObjectManager& manager, const std::string& stream,
                                const std::string& operation) {
  requireStream(manager, stream, operation);
  std::map<int, int> signals;
  for (const int id :
       findIDs(manager, strings::YarrowSignals, {equals(strings::Name, stream)})) {
    bool found = false;
    const auto record = manager.findObject(id, strings::YarrowSignals, found);
    signals[record->getPropertyInt32(strings::Index)] =
        record->getPropertyInt32(strings::FK_SignalID);
  }
  std::vector<Channel> channels;
  for (const auto& [place, id] : signals) {
    Channel channel;
    channel.signal = Signal::getSignalFromID(manager, id);
    if (!channel.signal) {
      kodiag::raise({"nexstore:nex", "InvalidData"},
                    {{"Operation", operation},
                     {"Reason", "channel " + std::to_string(place) + " of stream \"" + stream +
                                    "\" has been removed"}});
    }
    channel.enumerators = enumeratorsOf(manager, *channel.signal);
    channels.push_back(std::move(channel));
  }
  return channels;
}

std::vector<int> enumerationValues(const std::vector<double>& values,
                                   const std::set<int>& enumerators,
                                   const std::string& stream) {
  std::vector<int> result;
  result.reserve(values.size());
  for (const double value : values) {
    const bool isInt = value >= INT32_MIN && value <= INT32_MAX && value == std::trunc(value);
    if (!isInt || !enumerators.contains(static_cast<int>(value))) {
      kodiag::raise({"nexstore:nex", "InvalidData"},
                    {{"Operation", "add rows to stream \"" + stream + "\""},
                     {"Reason", std::to_string(value) + " is no value of the enumeration"}});
    }
    result.push_back(static_cast<int>(value));
  }
  return result;
}

void append(Channel& channel, const std::vector<double>& times,
            const std::vector<double>& values, const std::string& stream) {
  const auto points = static_cast<unsigned>(times.size());
  if (!channel.enumerators) {
    channel.signal->addData(values.data(), times.data(), dtypeDouble, nullptr, points,
                            sizeof(double), nullptr);
    return;
  }
  const std::vector<int> numbers = enumerationValues(values, *channel.enumerators, stream);
  channel.signal->addData(numbers.data(), times.data(), dtypeInt32, nullptr, points,
                          sizeof(int), nullptr);
}

void addRows(std::vector<Channel>& channels, const std::string& stream, StreamRows rows) {
  requireRows(rows, channels.size(), stream);
  if (rows.empty() || channels.empty()) return;
  const StreamColumns columns(inOrderOfTime(std::move(rows)), channels.size());
  for (std::size_t i = 0; i < channels.size(); ++i) {
    append(channels[i], columns.times, columns.values[i], stream);
  }
}

/// The samples of a channel as numbers.
std::vector<double> read(const Channel& channel, double t0, double t1,
                         std::vector<double>& times) {
  std::vector<char> bytes;
  channel.signal->readRange(t0, t1, times, bytes);
  std::vector<double> values(times.size());
  const std::size_t valueBytes = channel.enumerators ? sizeof(int) : sizeof(double);
  if (bytes.size() != times.size() * valueBytes) {
    kodiag::raise(
        {"nexstore:nex", "InvalidData"},
        {{"Operation", "read a stream"},
         {"Reason", "the samples of signal " + std::to_string(channel.signal->getID()) +
                        " are of another type than those of its stream"}});
  }
  if (!channel.enumerators) {
    if (!bytes.empty()) std::memcpy(values.data(), bytes.data(), bytes.size());
    return values;
  }
  for (std::size_t i = 0; i < values.size(); ++i) {
    int number = 0;
    std::memcpy(&number, bytes.data() + i * sizeof number, sizeof number);
    values[i] = number;
  }
  return values;
}

StreamRows readRows(const std::vector<Channel>& channels, double t0, double t1) {
  StreamRows rows;
  for (std::size_t i = 0; i < channels.size(); ++i) {
    std::vector<double> times;
    const std::vector<double> values = read(channels[i], t0, t1, times);
    if (i == 0) {
      rows.resize(times.size());
      for (std::size_t row = 0; row < times.size(); ++row) {
        rows[row] = {times[row], std::vector<double>(channels.size())};
      }
    }
    const bool fits =
        times.size() == rows.size() &&
        std::equal(times.begin(), times.end(), rows.begin(),
                   [](double time, const StreamRow& row) { return time == row.first; });
    if (!fits) {
      kodiag::raise(
          {"nexstore:nex", "InvalidData"},
          {{"Operation", "read a stream"}, {"Reason", "its channels have different times"}});
    }
    for (std::size_t row = 0; row < rows.size(); ++row) rows[row].second[i] = values[row];
  }
  return rows;
}

void cut(StreamRows& rows, const RowLimits& limits) {
  const auto limited = [&rows](int limit) {
    return limit < 0 ? rows.size() : std::min(rows.size(), static_cast<std::size_t>(limit));
  };
  rows.resize(limited(limits.fromStart));
  rows.erase(rows.begin(), rows.end() - static_cast<std::ptrdiff_t>(limited(limits.fromEnd)));
}

std::string store(ObjectManager& manager, const std::vector<int>& signalIDs) {
  using Type = ObjectConstructorPropType;
  const std::string stream = to_string(IdGenerator::generateUUID());
  const long long instance = manager.getInstanceID();
  std::vector<ObjectManager::InitialProperty> run = {
      {strings::Name, &stream, Type::stdString}, {strings::InstanceID, &instance, Type::int64}};
  manager.createObject(strings::YarrowRuns, run, false);
  for (int place = 0; place < static_cast<int>(signalIDs.size()); ++place) {
    std::vector<ObjectManager::InitialProperty> channel = {
        {strings::Name, &stream, Type::stdString},
        {strings::Index, &place, Type::int32},
        {strings::FK_SignalID, &signalIDs[static_cast<std::size_t>(place)], Type::int32}};
    manager.createObject(strings::YarrowSignals, channel, false);
  }
  return stream;
}

/// The metadata object of a key, made when missing.
std::unique_ptr<ObjectRef> metadataFor(ObjectManager& manager, const std::string& stream,
                                       const std::string& key) {
  auto stored = findFirst(manager, strings::YarrowMetaData,
                          {equals(strings::StreamUUID, stream), equals(strings::Name, key)});
  if (stored) return stored;
  std::vector<ObjectManager::InitialProperty> values = {
      {strings::StreamUUID, &stream, ObjectConstructorPropType::stdString},
      {strings::Name, &key, ObjectConstructorPropType::stdString}};
  return manager.createObject(strings::YarrowMetaData, values, true);
}

template <class Read>
auto metadata(ObjectManager& manager, const std::string& stream, const std::string& type,
              const Read& read) {
  StreamMetaData<decltype(read(std::declval<ObjectRef&>()))> found;
  manager.inReadUnit([&] {
    requireStream(manager, stream, "read metadata");
    for (const int id :
         findIDs(manager, strings::YarrowMetaData,
                 {equals(strings::StreamUUID, stream), equals(strings::Type, type)})) {
      bool exists = false;
      const auto object = manager.findObject(id, strings::YarrowMetaData, exists);
      found.emplace_back(object->getPropertyStdString(strings::Name), read(*object));
    }
  });
  return found;
}

}  // namespace

std::string StreamStore::create(long long dataTypeID, unsigned channels) {
  std::string stream;
  manager_.inTransaction([&] {
    std::vector<int> signals;
    for (unsigned i = 0; i < channels; ++i) {
      std::vector<SignalCreationUtil::Expansion> expansions;
      signals.push_back(SignalCreationUtil::createSignal(
                            manager_, nullptr, dimsMode::fixed, {}, complexity::real,
                            sampleTimeContinuity::continuous, dataTypeID, expansions)
                            ->getID());
    }
    stream = store(manager_, signals);
  });
  return stream;
}

std::string StreamStore::createOfEnumeration(long long enumClassID, unsigned channels) {
  std::string stream;
  manager_.inTransaction([&] {
    const int type =
        findFirstID(manager_, strings::DataType,
                    {equals(strings::FK_DataTypeDefinitionID, static_cast<int>(enumClassID)),
                     equals(strings::Classification, strings::Enumeration)});
    if (type == 0 || enumClassID != static_cast<int>(enumClassID)) {
      kodiag::raise({"nexstore:nex", "InvalidData"},
                    {{"Operation", "create a stream"},
                     {"Reason", std::to_string(enumClassID) + " is no enumeration"}});
    }
    stream = create(type, channels);
  });
  return stream;
}

std::size_t StreamStore::countChannels(const std::string& stream) const {
  std::size_t channels = 0;
  manager_.inReadUnit([&] {
    requireStream(manager_, stream, "count channels");
    channels = static_cast<std::size_t>(
        countObjects(manager_, strings::YarrowSignals, {equals(strings::Name, stream)}));
  });
  return channels;
}

void StreamStore::add(const std::string& stream, const StreamRows& rows) {
  manager_.inTransaction([&] {
    std::vector<Channel> channels = channelsOf(manager_, stream, "add rows");
    addRows(channels, stream, rows);
  });
}

StreamRows StreamStore::rows(const std::string& stream, double t0, double t1,
                             RowLimits limits) const {
  StreamRows found;
  manager_.inReadUnit(
      [&] { found = readRows(channelsOf(manager_, stream, "read rows"), t0, t1); });
  cut(found, limits);
  return found;
}

void StreamStore::remove(const std::string& stream, const std::vector<double>& times) {
  manager_.inTransaction([&] {
    for (Channel& channel : channelsOf(manager_, stream, "delete rows")) {
      channel.signal->deleteData(times);
    }
  });
}

void StreamStore::update(const std::string& stream, const StreamRows& rows) {
  manager_.inTransaction([&] {
    std::vector<Channel> channels = channelsOf(manager_, stream, "update rows");
    requireRows(rows, channels.size(), stream);
    const StreamRows stored = readRows(channels, -DBL_MAX, DBL_MAX);
    for (Channel& channel : channels) channel.signal->removeAllChunks();
    addRows(channels, stream, merged(stored, inOrderOfTime(rows)));
  });
}

void StreamStore::setText(const std::string& stream, const std::string& key,
                          const std::string& value) {
  manager_.inTransaction([&] {
    requireStream(manager_, stream, "set metadata");
    const auto object = metadataFor(manager_, stream, key);
    object->setPropertyStdString(strings::StringValue, value);
    object->setPropertyStdString(strings::Type, kText);
  });
}

void StreamStore::setNumber(const std::string& stream, const std::string& key, double value) {
  manager_.inTransaction([&] {
    requireStream(manager_, stream, "set metadata");
    const auto object = metadataFor(manager_, stream, key);
    object->setPropertyReal64(strings::FloatValue, value);
    object->setPropertyStdString(strings::Type, kNumber);
  });
}

StreamMetaData<std::string> StreamStore::texts(const std::string& stream) const {
  return metadata(manager_, stream, kText, [](const ObjectRef& object) {
    return object.getPropertyStdString(strings::StringValue);
  });
}

StreamMetaData<double> StreamStore::numbers(const std::string& stream) const {
  return metadata(manager_, stream, kNumber, [](const ObjectRef& object) {
    return object.getPropertyReal64(strings::FloatValue);
  });
}

}  // namespace yarrow
