// The user's shared repository file: where it lies and whether it may be used.
#pragma once

#include <string>

namespace vela::persistentdmr {

/// The system's temporary directory, then the user's name, "_", the signature of the default
/// schema, ".dmr". Worked out once per process.
const std::wstring& path();

/// False when something lies at the path that must not be taken for the user's file: anything
/// but a regular file, or a file of a user who is neither this one nor root. True when nothing
/// is there or nothing can be learnt. Permissions and further names are not asked for.
bool isUsable();
/// Why it is not usable, for a message; empty when it is.
std::string unusableReason();

/// Deletes the file with its side files, under the creation lock. A missing file is no error;
/// anything but a regular file stays.
void deleteFile();

/// Whether this process has opened the shared file before, or has given it up.
bool wasOpened();
void noteOpened();

}  // namespace vela::persistentdmr
