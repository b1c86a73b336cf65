// Where things are: the installation, temporary files, the user's name.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace host {

/// The folder of the installation's data: the environment variable VELA_ROOT, else the nearest
/// `share/vela` that stands beside a folder around this library or program.
std::filesystem::path rootDirectory();

/// The library that this code is part of, or the program when it is in none.
std::filesystem::path binaryOfThisCode();

/// TMPDIR when that is a folder we may write to, else the system's own; never throws.
std::filesystem::path systemTempDirectory();

/// A fresh file name in the temporary directory, reserved by an empty file of mode 0600.
/// \throws "KODD:kodd:IOError" when none can be made
std::filesystem::path reserveTemporaryName(std::string_view prefix, std::string_view extension);

/// What of a name is fit for the name of a file: letters and digits of ASCII, '.', '_' and '-'.
std::string fitForFileName(const std::string& name);

/// The user's name, fit for a file name: USER, else the name of the account, else its number.
std::string userName();

}  // namespace host
