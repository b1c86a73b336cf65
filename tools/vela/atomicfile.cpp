#include "tools/vela/atomicfile.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "kodiag/message.h"

namespace vela::tool {

AtomicFile::AtomicFile(const std::string& path) : path_(path) {
  std::error_code error;
  target_ = std::filesystem::weakly_canonical(path, error).string();
  if (error) refuse(error.value());
  const auto status = std::filesystem::status(target_, error);
  if (std::filesystem::is_directory(status)) refuse(EISDIR);
  if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
    refuse(ENOTSUP);
  }
  temporary_ = target_ + "." + std::to_string(getpid()) + ".tmp";
  file_ = open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (file_ < 0) refuse(errno);
}

AtomicFile::~AtomicFile() {
  if (file_ >= 0) close(file_);
  if (!temporary_.empty()) unlink(temporary_.c_str());
}

void AtomicFile::publish(std::string_view content) {
  while (!content.empty()) {
    const ssize_t written = write(file_, content.data(), content.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) refuse(errno);
    content.remove_prefix(static_cast<std::size_t>(written));
  }
  if (fsync(file_) != 0) refuse(errno);
  if (std::rename(temporary_.c_str(), target_.c_str()) != 0) refuse(errno);
  temporary_.clear();
}

void AtomicFile::refuse(int error) const {
  kodiag::raise({"VELA:vela", "CannotWriteFile"},
                {{"File", path_}, {"Reason", std::generic_category().message(error)}});
}

}  // namespace vela::tool
