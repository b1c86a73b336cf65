// The streams of one repository.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "objectmanager/objectmanager.h"
#include "yarrow/streamrows.h"

namespace yarrow {

/// What the rows of a stream are cut to; -1 means no limit.
struct RowLimits {
  int fromStart = -1;  ///< at most so many rows, the first ones
  int fromEnd = -1;    ///< of those at most so many, the last ones
};

/// Keys with their values, in the order in which the keys came.
template <class Value>
using StreamMetaData = std::vector<std::pair<std::string, Value>>;

/// Streams by name. Every operation is one unit of work; a failing one leaves the stream as it
/// was.
///
/// \throws "nexstore:nex:NoSuchSignal" for a name that no stream has
class StreamStore {
 public:
  explicit StreamStore(vela::ObjectManager& manager) : manager_(manager) {}

  /// A stream of that many channels of one data type. Without channels it holds no rows.
  /// \returns its name, a UUID unique over all repositories
  std::string create(long long dataTypeID, unsigned channels);
  /// A stream of channels of a stored enumeration.
  /// \throws "nexstore:nex:InvalidData" for an ID that names no enumeration
  std::string createOfEnumeration(long long enumClassID, unsigned channels);

  std::size_t countChannels(const std::string& stream) const;

  /// Appends rows in order of time. Rows stored at or after the first time go when that lies
  /// before the newest; late rows belong to update().
  /// \throws as requireRows(); "nexstore:nex:InvalidData" for a value that is no enumerator of
  ///         a channel's enumeration
  void add(const std::string& stream, const StreamRows& rows);
  /// Rows with t0 <= time <= t1 in order of time.
  StreamRows rows(const std::string& stream, double t0, double t1, RowLimits limits = {}) const;
  /// Drops every row at exactly one of the times; others are ignored.
  void remove(const std::string& stream, const std::vector<double>& times);
  /// The rows given for a time replace all stored rows of that time, or are new there.
  void update(const std::string& stream, const StreamRows& rows);

  // One value a key, text or number; the last one set stays.
  void setText(const std::string& stream, const std::string& key, const std::string& value);
  void setNumber(const std::string& stream, const std::string& key, double value);
  StreamMetaData<std::string> texts(const std::string& stream) const;
  StreamMetaData<double> numbers(const std::string& stream) const;

 private:
  vela::ObjectManager& manager_;
};

}  // namespace yarrow
