// What can be wrong with a repository's bytes and objects.
#pragma once

#include <string>
#include <vector>

#include "kodd/layout.h"
#include "sqldb/database.h"

namespace kodd {

/// The engine's check of the file, then our own: the catalogue against the tables, blocks
/// against classes, objects against blocks, values against the kinds of their properties.
/// Reads every row. \returns sentences; empty when all is well
std::vector<std::string> findIntegrityProblems(sqldb::Database& database, const Layout& layout);

}  // namespace kodd
