#include "sqldb/error.h"

#include <sqlite3.h>

namespace sqldb {
namespace {

kodiag::MessageID idOf(int extendedCode) {
  switch (extendedCode) {
    case SQLITE_READONLY_DBMOVED:
      return {"KODD:kodd", "FileRemoved"};
    case SQLITE_IOERR_NOMEM:
      return {"KODD:kodd", "OutOfMemory"};
    default:
      break;
  }
  switch (extendedCode & 0xff) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return {"sqldb:ssdb", "Corrupt"};
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_PROTOCOL:
      return {"KODD:kodd", "RepositoryBusy"};
    case SQLITE_FULL:
      return {"KODD:kodd", "DiskFull"};
    case SQLITE_READONLY:
      return {"KODD:kodd", "ReadOnly"};
    case SQLITE_CANTOPEN:
    case SQLITE_IOERR:
    case SQLITE_PERM:
      return {"KODD:kodd", "IOError"};
    case SQLITE_TOOBIG:
      return {"KODD:kodd", "ValueTooLarge"};
    case SQLITE_INTERRUPT:
      return {"KODD:kodd", "Interrupted"};
    case SQLITE_NOMEM:
      return {"KODD:kodd", "OutOfMemory"};
    default:
      return {"nexstore:nex", "InternalError"};
  }
}

}  // namespace

kodiag::Message errorMessage(int extendedCode, std::string_view operation,
                             const std::string& location, std::string_view engineText) {
  return {idOf(extendedCode),
          {{"Operation", std::string(operation)},
           {"Location", location},
           {"Reason", std::string(engineText)}},
          {},
          nullptr};
}

}  // namespace sqldb
