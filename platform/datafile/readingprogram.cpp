#include "datafile/readingprogram.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstring>

#include "datafile/messages.h"
#include "datafile/readfailure.h"
#include "host/names.h"

// The C library of Debian 12 declares these as if they were C++.
extern "C" {
#include <sys/pidfd.h>
}

namespace datafile {
namespace {

namespace fs = std::filesystem;

constexpr const char* kName = "vela-filereader";
/// How long a process that hung up may take to end by itself.
constexpr int kEndingMilliseconds = 1'000;

[[noreturn]] void raiseNotStarted(int errorNumber) {
  throw ReadFailure(ReadFailure::Kind::unreadable,
                    "\"" + ReadingProgram::path().string() + "\", which reads it, " +
                        "cannot be started: " + std::strerror(errorNumber));
}

/// The same open file under a number that none of the program's own takes.
Descriptor outOfTheWay(int descriptor) {
  Descriptor moved(fcntl(descriptor, F_DUPFD_CLOEXEC, kFileNumber + 1));
  if (moved < 0) raiseNotStarted(errno);
  return moved;
}

/// What becomes of open files: nothing to read from or write to but the two it works with.
class FileActions {
 public:
  FileActions(int socket, int file) {
    posix_spawn_file_actions_init(&actions_);
    for (int standard = 0; standard < 3; ++standard) {
      posix_spawn_file_actions_addopen(&actions_, standard, "/dev/null", O_RDWR, 0);
    }
    posix_spawn_file_actions_adddup2(&actions_, socket, kSocketNumber);
    posix_spawn_file_actions_adddup2(&actions_, file, kFileNumber);
  }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

/// No signal is blocked, ignored or sent from the caller's terminal.
class Attributes {
 public:
  Attributes() {
    posix_spawnattr_init(&attributes_);
    sigset_t signals;
    sigemptyset(&signals);
    posix_spawnattr_setsigmask(&attributes_, &signals);
    sigfillset(&signals);
    posix_spawnattr_setsigdefault(&attributes_, &signals);
    posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID);
  }
  ~Attributes() { posix_spawnattr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

Descriptor start(int socket, int file) {
  const std::string path = ReadingProgram::path().string();
  const FileActions actions(socket, file);
  const Attributes attributes;
  std::string name = kName;
  char* const arguments[] = {name.data(), nullptr};
  pid_t pid = 0;
  const int errorNumber =
      posix_spawn(&pid, path.c_str(), actions.get(), attributes.get(), arguments, environ);
  if (errorNumber != 0) raiseNotStarted(errorNumber);
  Descriptor process(pidfd_open(pid, 0));
  if (process >= 0) return process;
  const int reason = errno;
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  raiseNotStarted(reason);
}

std::string describe(const siginfo_t& end) {
  if (end.si_code == CLD_EXITED) return "ended with status " + std::to_string(end.si_status);
  const char* const name = sigabbrev_np(end.si_status);
  return name ? std::string("ended by SIG") + name : "ended";
}

}  // namespace

// In a build the library's neighbours lie in lib, programs in bin.
fs::path ReadingProgram::path() {
  const fs::path folder = host::binaryOfThisCode().parent_path();
  std::error_code error;
  const fs::path beside = folder / kName;
  const fs::path ofBuild = folder.parent_path() / "lib" / kName;
  return !fs::exists(beside, error) && fs::exists(ofBuild, error) ? ofBuild : beside;
}

ReadingProgram::ReadingProgram(int file) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) raiseNotStarted(errno);
  socket_ = Descriptor(ends[0]);
  const Descriptor theirs(ends[1]);
  process_ = start(outOfTheWay(theirs), outOfTheWay(file));
}

ReadingProgram::~ReadingProgram() {
  pidfd_send_signal(process_, SIGKILL, nullptr, 0);
  end();
}

std::string ReadingProgram::end() {
  if (process_ < 0) return "ended";
  pollfd ended{process_, POLLIN, 0};
  if (poll(&ended, 1, kEndingMilliseconds) <= 0) {
    pidfd_send_signal(process_, SIGKILL, nullptr, 0);
  }
  siginfo_t info{};
  int result;
  do {
    result = waitid(P_PIDFD, static_cast<id_t>(process_), &info, WEXITED);
  } while (result != 0 && errno == EINTR);
  process_ = Descriptor();
  // Somebody else who waits for children may have been faster.
  return result == 0 ? describe(info) : "ended";
}

}  // namespace datafile
