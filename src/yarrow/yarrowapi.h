// Named streams of rows in the process's shared repository, for channel services.
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace yarrow {

/// What the elements of a stream are at their source. Every stream but those of enumerations
/// stores doubles all the same.
enum class StreamDataType : int {
  Double = 0,
  Single = 1,
  Int8 = 2,
  UInt8 = 3,
  Int16 = 4,
  UInt16 = 5,
  Int32 = 6,
  UInt32 = 7,
  Boolean = 8
};

/// Keeps streams without the caller knowing runs and signals. Each operation is one unit of
/// work: when it fails nothing has changed, and the failure is raised as ExceptionWithCauses.
///
/// A row is a time in seconds and one value for every channel. Common errors:
/// "nexstore:nex:NoSuchSignal" for a name that no stream has; "nexstore:nex:InvalidDimensions"
/// for a row with another number of values; "nexstore:nex:InvalidData" for a time that is not
/// finite, or a value that is no enumerator.
///
/// Threads: any; calls take turns.
class YarrowAPI {
 public:
  using Rows = std::vector<std::pair<double, std::vector<double>>>;
  using StringMetaData = std::vector<std::pair<std::string, std::string>>;
  using DoubleMetaData = std::vector<std::pair<std::string, double>>;

  /// \returns the new stream's name. Without channels it takes only empty rows and keeps none.
  static std::string createStream(StreamDataType type, unsigned channels);
  /// \param enumClassID  ID of a stored enumeration (ClassDef::getID)
  static std::string createEnumStream(long long enumClassID, unsigned channels);

  /// Appends rows, sorted by time first. When they begin before the newest stored time, the
  /// rows stored at or after that beginning are dropped; late data belongs to
  /// updateDataInStream.
  static void addDataToStream(const std::string& stream, const Rows& rows);
  /// Replaces `rows` by those with startTime <= time <= endTime, in order of time.
  ///
  /// \param maxFromStart  at most so many rows, the first ones; -1: all
  /// \param maxFromEnd    of those at most so many, the last ones; -1: all
  static void getDataFromStream(const std::string& stream, double startTime, double endTime,
                                int maxFromStart, int maxFromEnd, Rows& rows);
  static std::size_t getNumberOfChannels(const std::string& stream);
  /// Drops the rows at exactly these times.
  static void deleteDataInStream(const std::string& stream, const std::vector<double>& times);
  /// The rows given for a time replace all stored rows of that time; other times are inserted
  /// in order. The whole stream is rewritten.
  static void updateDataInStream(const std::string& stream, const Rows& rows);

  /// One value a key, text or number; the last one set stays. Both lists in the order in which
  /// the keys came.
  static void getMetaDataForStream(const std::string& stream, StringMetaData& texts,
                                   DoubleMetaData& numbers);
  static void setStringMetaDataForStream(const std::string& stream, const std::string& key,
                                         const std::string& value);
  static void setDoubleMetaDataForStream(const std::string& stream, const std::string& key,
                                         double value);
};

}  // namespace yarrow
