#include "host/names.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/environment.h"
#include "kodiag/message.h"

namespace host {
namespace {

namespace fs = std::filesystem;

std::string accountName() {
  const passwd* const account = getpwuid(getuid());
  return account && account->pw_name ? account->pw_name : "";
}

}  // namespace

fs::path binaryOfThisCode() {
  std::error_code error;
  Dl_info info = {};
  // A program, unlike a library, is named by the words it was started with: ask the kernel
  // instead.
  const fs::path program = fs::read_symlink("/proc/self/exe", error);
  if (dladdr(reinterpret_cast<const void*>(&rootDirectory), &info) == 0 || !info.dli_fname) {
    return program;
  }
  const fs::path library = fs::canonical(info.dli_fname, error);
  return error || !library.has_parent_path() ? program : library;
}

fs::path rootDirectory() {
  const std::string root = environmentVariable("VELA_ROOT");
  if (!root.empty()) return root;
  for (fs::path folder = binaryOfThisCode().parent_path(); folder.has_relative_path();
       folder = folder.parent_path()) {
    const fs::path candidate = folder.parent_path() / "share" / "vela";
    std::error_code error;
    if (fs::is_directory(candidate, error)) return candidate;
  }
  return "/usr/share/vela";
}

fs::path systemTempDirectory() {
  std::error_code error;
  const fs::path named = environmentVariable("TMPDIR");
  const bool usable = !named.empty() && fs::is_directory(named, error) &&
                      access(named.c_str(), W_OK | X_OK) == 0;
  if (usable) return named;
  return P_tmpdir;
}

fs::path reserveTemporaryName(std::string_view prefix, std::string_view extension) {
  std::string path =
      (systemTempDirectory() / (std::string(prefix) + "XXXXXX" + std::string(extension)))
          .string();
  const int descriptor = mkostemps(path.data(), static_cast<int>(extension.size()), O_CLOEXEC);
  if (descriptor < 0) {
    kodiag::raise({"KODD:kodd", "IOError"}, {{"Operation", "reserve a temporary name"},
                                             {"Location", path},
                                             {"Reason", std::strerror(errno)}});
  }
  close(descriptor);
  return path;
}

std::string fitForFileName(const std::string& name) {
  std::string kept;
  for (const char c : name) {
    const bool plain =
        (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (plain || c == '.' || c == '_' || c == '-') kept.push_back(c);
  }
  return kept;
}

std::string userName() {
  for (const std::string& name : {environmentVariable("USER"), accountName()}) {
    const std::string kept = fitForFileName(name);
    if (!kept.empty()) return kept;
  }
  return std::to_string(getuid());
}

}  // namespace host
