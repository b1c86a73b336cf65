#include "tools/vela/outputfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <system_error>

#include "kodiag/message.h"
#include "objectmanager/outputpath.h"

namespace vela::tool {
namespace {

constexpr std::size_t kBytesLookedAt = 512;

[[noreturn]] void refuseToWrite(const std::string& path, const std::string& reason) {
  kodiag::raise({"VELA:vela", "CannotWriteFile"}, {{"File", path}, {"Reason", reason}});
}

std::string beginningOf(const std::string& path) {
  std::array<char, kBytesLookedAt> bytes{};
  std::ifstream file(path, std::ios::binary);
  file.read(bytes.data(), bytes.size());
  return {bytes.data(), static_cast<std::size_t>(file.gcount())};
}

/// A file that cannot be read is of no kind.
bool mayTakeThePlaceOf(const std::string& path, const OutputKind& kind) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0 || status.st_size == 0) return true;
  return kind.isLike(beginningOf(path));
}

}  // namespace

void requireReplaceable(const std::string& path, const OutputKind& kind, bool force) {
  const std::string reason = whyNotToWrite(path);
  if (!reason.empty()) refuseToWrite(path, reason);
  if (force || mayTakeThePlaceOf(path, kind)) return;
  refuseToWrite(path, "something else than " + std::string(kind.name) +
                          " stands there; --force replaces it");
}

void addForceOption(CLI::App& command, bool& force) {
  command.add_flag(
      "--force", force,
      "Replace a file of another kind too; never a repository, a link or a folder");
}

OutputFile::OutputFile(const std::string& path, const OutputKind& kind, bool force)
    : path_(path), kind_(kind), force_(force) {
  requireReplaceable(path_, kind_, force_);
  temporary_ = path_ + "." + std::to_string(getpid()) + ".tmp";
  file_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file_ < 0) refuse(errno);
}

OutputFile::~OutputFile() {
  if (file_ >= 0) close(file_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void OutputFile::publish(std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = write(file_, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) refuse(errno);
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  if (fsync(file_) != 0) refuse(errno);
  // Once more: somebody may have put something there meanwhile.
  requireReplaceable(path_, kind_, force_);
  if (std::rename(temporary_.c_str(), path_.c_str()) != 0) refuse(errno);
  temporary_.clear();
}

void OutputFile::refuse(int error) const {
  refuseToWrite(path_, std::generic_category().message(error));
}

}  // namespace vela::tool
