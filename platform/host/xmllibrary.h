// Start of the XML parser library.
#pragma once

namespace host {

/// Makes the XML parser library ready. It stays so until the process ends: its own counting of
/// users is not safe among threads, and every user here is short-lived. Any thread, any number
/// of times.
void startXmlLibrary();

}  // namespace host
