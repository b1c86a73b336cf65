// Unfinished files beside their targets: their names, and what killed processes left of them.
#pragma once

#include <string>

namespace datafile {

std::string folderOf(const std::string& path);

/// "<target>.<12 hexadecimal digits>.part", a new one each time.
std::string partName(const std::string& target);

/// Makes one for a target. As long as it is open, nobody takes it for abandoned.
/// \returns its descriptor, or -1 and errno
int createPart(const std::string& target, std::string& name);

/// The same for a file that has no name yet.
void markAsInUse(int file);

/// Removes the unfinished files for a target whose makers are gone; best effort.
void removeAbandonedParts(const std::string& target);

}  // namespace datafile
