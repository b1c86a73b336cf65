// vela-filereader: reads one data file for the process that started it, which a file made to
// crash or mislead the HDF5 library shall not harm.
//
// What the two say to each other: messages.h.
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <string>

#include "datafile/contents.h"
#include "datafile/messages.h"
#include "datafile/seal.h"

namespace datafile {
namespace {

constexpr rlim_t kMemoryBytes = rlim_t{512} << 20;
constexpr rlim_t kSeconds = 5;
/// Bytes of the file for each of which memory grows by one and for which, together, there is
/// one more second.
constexpr rlim_t kBytesPerSecond = rlim_t{1} << 20;
constexpr std::size_t kStepBytes = std::size_t{1} << 20;

/// Sanitizers need more address space than there is memory.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsInstrumented = true;
#else
constexpr bool kIsInstrumented = false;
#endif

/// Tells the caller, which may be gone: then there is nothing left to do.
void tell(Answer answer, std::uint32_t count = 0, std::string_view body = {}) {
  if (!send(kSocketNumber, answer, count, body.substr(0, kMostMessageBytes))) _exit(0);
}

[[noreturn]] void endWith(Answer answer, const std::string& reason) {
  tell(answer, 0, reason);
  _exit(0);
}

/// Says now and then that there is progress.
class Progress {
 public:
  void operator()() {
    const auto now = std::chrono::steady_clock::now();
    if (now - last_ < std::chrono::milliseconds(500)) return;
    last_ = now;
    tell(Answer::working);
  }

 private:
  std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

/// What was given may only name the file: then reading it is asked for here.
void openFile() {
  close_range(kFileNumber + 1, ~0U, 0);
  const std::string name = "/proc/self/fd/" + std::to_string(kFileNumber);
  const int opened = open(name.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (opened < 0) endWith(Answer::unreadable, std::strerror(errno));
  dup2(opened, kFileNumber);
  close(opened);
}

rlim_t fileBytes() {
  struct stat status {};
  if (fstat(kFileNumber, &status) != 0) endWith(Answer::unreadable, std::strerror(errno));
  return static_cast<rlim_t>(status.st_size);
}

void limit(__rlimit_resource resource, rlim_t value) {
  rlimit limits{};
  getrlimit(resource, &limits);
  limits.rlim_max = limits.rlim_cur = std::min(limits.rlim_max, value);
  if (setrlimit(resource, &limits) != 0) endWith(Answer::unreadable, std::strerror(errno));
}

/// From here on this process can do no more than read and answer, and not for ever.
void limitItself() {
  const rlim_t bytes = fileBytes();
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  // Without a core, wherever those are sent.
  prctl(PR_SET_DUMPABLE, 0);
  limit(RLIMIT_CORE, 0);
  limit(RLIMIT_CPU, kSeconds + bytes / kBytesPerSecond);
  limit(RLIMIT_FSIZE, kMostRequestBytes);
  limit(RLIMIT_NPROC, 0);
  // The memory file of a request comes behind what is open now.
  limit(RLIMIT_NOFILE, kFileNumber + 2);
  if (!kIsInstrumented) limit(RLIMIT_AS, kMemoryBytes + bytes);
}

void tellVariables(const Contents& contents) {
  std::string body;
  for (const Contents::Variable& variable : contents.variables()) {
    std::string entry;
    append(entry, variable.bytes, variable.name);
    if (entry.size() > kMostMessageBytes) endWith(Answer::refused, "a name is too long");
    if (body.size() + entry.size() > kMostMessageBytes) {
      tell(Answer::variables, 0, body);
      body.clear();
    }
    body += entry;
  }
  tell(Answer::variables, 0, body);
  tell(Answer::listed);
}

/// Writes the piece to that place of the memory file.
void deliver(Contents& contents, const Piece& piece, int memoryFile, off_t place) {
  static std::string step(kStepBytes, '\0');
  for (std::uint64_t done = 0; done < piece.length;) {
    const auto count =
        static_cast<std::size_t>(std::min<std::uint64_t>(kStepBytes, piece.length - done));
    contents.read(piece.variable, piece.offset + done, {step.data(), count});
    for (std::size_t written = 0; written < count;) {
      const ssize_t part = pwrite(memoryFile, step.data() + written, count - written,
                                  place + static_cast<off_t>(done + written));
      if (part < 0) throw LibraryError(std::strerror(errno));
      written += static_cast<std::size_t>(part);
    }
    done += count;
  }
}

void answer(Contents& contents, const Request& request) {
  std::uint32_t complete = 0;
  std::string reason;
  off_t place = 0;
  try {
    for (const Piece& piece : request.pieces) {
      deliver(contents, piece, request.memoryFile, place);
      place += static_cast<off_t>(piece.length);
      ++complete;
    }
  } catch (const LibraryError& error) {
    reason = error.what();
  }
  tell(Answer::read, complete, reason);
}

void serve() {
  const LibraryGuard silent;
  Progress progress;
  const std::string broken = brokenSeal(kFileNumber, std::ref(progress));
  if (!broken.empty()) endWith(Answer::unreadable, broken);
  try {
    Contents contents(kFileNumber, std::ref(progress));
    tellVariables(contents);
    while (const std::optional<Request> request = receiveRequest(kSocketNumber)) {
      answer(contents, *request);
    }
  } catch (const LibraryError& error) {
    endWith(Answer::unreadable, error.what());
  } catch (const ForeignContent& foreign) {
    endWith(Answer::refused, foreign.what());
  }
}

}  // namespace
}  // namespace datafile

int main() {
  datafile::openFile();
  datafile::limitItself();
  datafile::tell(datafile::Answer::working);
  datafile::serve();
  _exit(0);
}
