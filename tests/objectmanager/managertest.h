// What the tests of the object manager share: a folder of their own and a repository in it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>

#include "kodiag/diagnostics.h"
#include "objectmanager/objectmanager.h"
#include "text/utf8.h"

namespace vela::test {

/// A folder that goes with its owner.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "vela-test-XXXXXX").string();
    if (!mkdtemp(pattern.data())) throw std::runtime_error("no temporary folder");
    path_ = pattern;
  }
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const char* name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

inline std::wstring wide(const std::filesystem::path& path) {
  return text::toWide(path.string());
}

inline void writeText(const std::filesystem::path& path, const std::string& content) {
  std::ofstream(path, std::ios::binary) << content;
}

/// The ID of what `action` raises, the innermost one when it went through units of work; empty
/// when it raises nothing.
inline std::string raisedBy(const std::function<void()>& action) {
  try {
    action();
  } catch (const kodiag::except::ExceptionWithCauses& exception) {
    return exception.innermost().id.str();
  }
  return {};
}

/// Runs the function in a forked process that ends without cleaning up, as if killed.
inline void inKilledProcess(const std::function<void()>& function) {
  const pid_t child = fork();
  if (child == 0) {
    function();
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
}

/// A forked process that gets ready and then waits to be killed. Fork it before this process
/// opens a repository.
class WaitingProcess {
 public:
  /// \param body  calls its argument when it is ready, then never returns
  explicit WaitingProcess(const std::function<void(const std::function<void()>&)>& body) {
    int ends[2];
    if (pipe(ends) != 0) throw std::runtime_error("no pipe");
    process_ = fork();
    if (process_ == 0) {
      body([&] {
        if (write(ends[1], "x", 1) != 1) _exit(1);
      });
    }
    char signal = 0;
    close(ends[1]);
    isReady_ = read(ends[0], &signal, 1) == 1;
    close(ends[0]);
  }
  ~WaitingProcess() { kill(); }
  WaitingProcess(const WaitingProcess&) = delete;
  WaitingProcess& operator=(const WaitingProcess&) = delete;

  bool isReady() const { return isReady_; }
  void kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = 0;
  }

 private:
  pid_t process_ = 0;
  bool isReady_ = false;
};

/// A repository in a folder of its own.
class ManagerTest : public testing::Test {
 protected:
  ManagerTest() { reopen(); }

  std::wstring location() const { return wide(folder_ / "store.dmr"); }
  void reopen() {
    manager_.reset();
    manager_ = std::make_unique<ObjectManager>(location());
    manager_->initializeObjectManager("", "");
    ASSERT_TRUE(manager_->isOpen());
  }
  std::unique_ptr<ObjectRef> create(const std::string& className) {
    return manager_->createObject(className, true);
  }
  std::size_t count(const std::string& className) {
    boost::ptr_vector<ObjectRef> all;
    manager_->findObjects(className, {}, all);
    return all.size();
  }

  TemporaryFolder folder_;
  std::unique_ptr<ObjectManager> manager_;
};

}  // namespace vela::test
