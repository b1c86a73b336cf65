// The one place where the engine's result codes become message IDs.
#pragma once

#include <string>
#include <string_view>

#include "kodiag/message.h"

namespace sqldb {

/// The message for an extended result code of the engine.
///
/// corrupt and not-a-database files: "sqldb:ssdb:Corrupt"; busy: "KODD:kodd:RepositoryBusy";
/// then "DiskFull", "ReadOnly", "FileRemoved", "IOError", "ValueTooLarge", "OutOfMemory",
/// "Interrupted";
/// everything else "nexstore:nex:InternalError".
///
/// \param operation  what was being done, for the text: "append to Chunk", "open"
/// \param location   path of the file, UTF-8
/// \param engineText the engine's own words
kodiag::Message errorMessage(int extendedCode, std::string_view operation,
                             const std::string& location, std::string_view engineText);

}  // namespace sqldb
