// What a file of saved runs looks like: its variables and its descriptor.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "datafile/datafile.h"
#include "host/arrays.h"
#include "kodiag/message.h"

namespace vela::saving {

inline const std::string kDescriptor = "NexDescriptor";
inline const std::string kHeader = "header";
inline const std::string kData = "data";

// Fields of the descriptor.
inline const std::string kVersion = "Version";
inline const std::string kDatabaseID = "DatabaseID";
// Fields of headers and of records within data.
inline const std::string kID = "ID";
inline const std::string kType = "Type";
inline const std::string kRecordData = "data";

/// In front of the name of a property whose value is another object.
inline const std::string kReferencePrefix = "FK_";

struct Descriptor {
  std::string version;     ///< of the host, "8.5.0 (B15b)"
  std::string databaseID;  ///< of the repository that was saved
};

/// "header12", "data_5" for object -5.
std::string variableName(const std::string& start, int objectID);

/// The version text of the host, or ours where it has none.
std::string hostVersion();
/// Whether `one` comes before `other`; both start with "<major>.<minor>.<patch>". A number that
/// is missing counts as 0.
bool isOlderVersion(const std::string& one, const std::string& other);
/// Whether references are bare IDs, as they were before "8.5.0 (B15b)".
bool hasBareReferences(const Descriptor& descriptor);

host::HostArray toArray(const Descriptor& descriptor);
/// Whether the file has a descriptor: a single structure of two texts, "Version" and
/// "DatabaseID" in this order.
bool isSavedRepository(const datafile::DataFileReader& file);
/// \throws "nexstore:nex:InvalidFile" unless isSavedRepository() and for a version newer than
///         the host's
Descriptor readDescriptor(const datafile::DataFileReader& file);

/// {ID, Type, data}.
host::HostArray recordOf(int objectID, const std::string& className, host::HostArray data = {});

/// What a message of the data file says is wrong, without naming the file.
std::string reasonOf(const kodiag::Message& message);
/// Throws "nexstore:nex:InvalidFile".
[[noreturn]] void refuseFile(const datafile::DataFileReader& file, const std::string& reason);
/// refuseFile() unless the names are these, in this order.
void requireFields(const datafile::DataFileReader& file, std::span<const std::string> expected,
                   std::span<const std::string> found, const std::string& ofWhat);

}  // namespace vela::saving
