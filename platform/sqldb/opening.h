// The steps from a path to an open repository file.
#pragma once

#include <memory>
#include <string>

#include "sqldb/connection.h"
#include "sqldb/repositorylock.h"

namespace sqldb {

struct OpenedFile {
  std::string path;
  FileIdentity identity;
  std::shared_ptr<RepositoryLock> lock;
  std::unique_ptr<Connection> connection;
};

/// Refuses what is not ours before anything is created beside it, then locks, creates when
/// absent, and sets up the connection.
OpenedFile openFile(const std::string& location, const OpenOptions& options);

}  // namespace sqldb
