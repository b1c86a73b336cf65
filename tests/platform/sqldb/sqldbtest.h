// A folder of its own for each test, repositories in it, and what a failing call raised.
#pragma once

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>

#include "kodiag/diagnostics.h"
#include "sqldb/database.h"

namespace sqldb {

inline constexpr std::int32_t kTestApplication = 0x56540001;

/// The joined ID of what the call raises; empty when it raises nothing.
template <typename Call>
std::string idRaisedBy(Call call) {
  try {
    call();
    return {};
  } catch (const kodiag::except::ExceptionWithCauses& e) {
    return e.id();
  }
}

/// Runs `body` in a forked child. \returns the child's process ID
template <typename Body>
pid_t inChild(Body body) {
  const pid_t pid = fork();
  if (pid != 0) return pid;
  prctl(PR_SET_PDEATHSIG, SIGKILL);  // a test that fails leaves nobody behind
  int code = 99;
  try {
    code = body();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "child: %s\n", e.what());
  }
  _exit(code);  // no destructors and no test framework of the parent's
}

/// The exit code of the child; 1000 + signal number when a signal ended it.
inline int exitCodeOf(pid_t pid) {
  int status = 0;
  EXPECT_EQ(waitpid(pid, &status, 0), pid);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

class SqldbTest : public ::testing::Test {
 protected:
  SqldbTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "sqldbXXXXXX").string();
    folder_ = mkdtemp(pattern.data());
  }
  ~SqldbTest() override { std::filesystem::remove_all(folder_); }

  std::string path(const std::string& name = "runs.dmr") const { return folder_ + "/" + name; }

  static OpenOptions options() {
    OpenOptions options;
    options.applicationId = kTestApplication;
    return options;
  }
  static OpenOptions impatient() {
    OpenOptions result = options();
    result.busyTimeout = std::chrono::milliseconds(50);
    return result;
  }

  static void createTable(Database& db) {
    db.execute("CREATE TABLE t(id INTEGER PRIMARY KEY, v)");
  }
  static void insert(Database& db, long long value) {
    Statement statement = db.statement("INSERT INTO t(v) VALUES (?1)");
    statement.bind(1, value);
    statement.run();
  }
  static std::string values(Database& db) {
    return db.queryText("SELECT group_concat(v, ' ') FROM (SELECT v FROM t ORDER BY id)");
  }

  static std::string bytesOf(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static void writeBytes(const std::string& file, const std::string& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
  }

  /// Every name in the folder with its bytes, rights and time.
  std::map<std::string, std::string> snapshot() const {
    namespace fs = std::filesystem;
    std::map<std::string, std::string> all;
    for (const auto& entry : fs::recursive_directory_iterator(folder_)) {
      std::ostringstream text;
      const auto status = entry.symlink_status();
      text << static_cast<int>(status.type()) << ' ' << static_cast<int>(status.permissions());
      if (fs::is_regular_file(status)) {
        text << ' ' << entry.last_write_time().time_since_epoch().count() << ' '
             << bytesOf(entry.path());
      }
      all[entry.path()] = text.str();
    }
    return all;
  }

  /// A repository of `application` whose writer died: its newest row is in the log only.
  void leaveKilledWriter(const std::string& file, std::int32_t application) {
    const pid_t child = inChild([&] {
      OpenOptions theirs = options();
      theirs.applicationId = application;
      auto* db = new Database(file, theirs);
      createTable(*db);
      insert(*db, 7);
      return 0;
    });
    ASSERT_EQ(exitCodeOf(child), 0);
    ASSERT_GT(std::filesystem::file_size(file + "-wal"), 0U);
  }

  /// Whether somebody holds a lock of the engine on the file, as a stranger sees it.
  static bool engineLocked(const std::string& file) {
    return exitCodeOf(inChild([&] {
             const int descriptor = open(file.c_str(), O_RDWR);
             struct flock whole = {};
             whole.l_type = F_WRLCK;
             fcntl(descriptor, F_GETLK, &whole);
             return whole.l_type == F_UNLCK ? 0 : 1;
           })) == 1;
  }

  std::string folder_;
};

}  // namespace sqldb
