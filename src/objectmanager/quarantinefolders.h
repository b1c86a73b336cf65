// The folders that hold files set aside: how long they are kept.
#pragma once

#include <string>

namespace vela {

/// Deletes the folders `<location>.quarantine-*` that are neither among the newest three nor
/// younger than 30 days. What cannot be deleted stays.
/// \param location  path of the repository, UTF-8
void pruneQuarantineFolders(const std::string& location) noexcept;

}  // namespace vela
