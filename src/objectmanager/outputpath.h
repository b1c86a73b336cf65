// Where files that are no repositories may be written.
#pragma once

#include <string>

namespace vela {

/// Why nothing but a repository may be written to a path; empty when something may.
///
/// Refused are a directory, a link and whatever else is no regular file; a repository in
/// whatever state (damaged, empty, known only by its name or by the files beside it) and any
/// other database; and the names of the files that stand beside a repository, whether they
/// exist or not. What lies there is only looked at, in a way that drops no lock of this
/// process.
///
/// \param path  UTF-8, as it was given
std::string whyNotToWrite(const std::string& path);

}  // namespace vela
