#include "tools/vela/standardstreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

#include "tools/vela/terminal.h"

namespace vela::tool {

void holdStandardStreams() {
  // The wrong way round on purpose: reading and writing fail as they do on a closed stream.
  const auto hold = [](int stream, int access) {
    if (fcntl(stream, F_GETFD) < 0 && errno == EBADF) open("/dev/null", access);
  };
  hold(STDIN_FILENO, O_WRONLY);
  hold(STDOUT_FILENO, O_RDONLY);
  hold(STDERR_FILENO, O_RDONLY);
}

bool finishOutput() {
  errno = 0;
  const bool taken = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  if (taken) return true;
  const std::string reason = errno == 0 ? "" : ": " + std::generic_category().message(errno);
  complain("standard output did not take everything" + reason);
  return false;
}

}  // namespace vela::tool
