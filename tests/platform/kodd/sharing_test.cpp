#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <set>
#include <thread>

#include "koddtest.h"

namespace kodd {
namespace {

using ::testing::IsEmpty;

class SharingTest : public KoddTest {
 protected:
  SharingTest() { repository_.close(); }

  /// Runs `body` on a repository of its own in another process. \returns that process's ID
  pid_t inProcess(const std::function<void(DataModelRepository&)>& body) {
    const pid_t pid = fork();
    if (pid != 0) return pid;
    DataModelRepository repository;
    repository.open(text::toWide(path("runs.dmr")), text::toWide(path("schema.xml")), {},
                    NoFailure());
    if (repository.isOpen()) body(repository);
    repository.close();
    _exit(HasFailure() ? 1 : 0);
  }
  static void waitFor(const std::vector<pid_t>& processes) {
    for (const pid_t pid : processes) {
      int status = 0;
      ASSERT_EQ(waitpid(pid, &status, 0), pid);
      EXPECT_EQ(status, 0);
    }
  }
  static ClassRef classOf(DataModelRepository& repository, const std::string& name) {
    return repository.metamodel(NoFailure()).findPackage("lab").findClass(name);
  }
};

TEST_F(SharingTest, ProcessesGiveDifferentIDsAndLoseNoObject) {
  constexpr int kProcesses = 3;
  constexpr int kUnits = 200;
  std::vector<pid_t> processes;
  for (int p = 0; p < kProcesses; ++p) {
    processes.push_back(inProcess([p](DataModelRepository& repository) {
      const ClassRef run = classOf(repository, "Run");
      const PropertyRef number = run.findProperty("Number");
      for (int i = 0; i < kUnits; ++i) {
        DictionaryFunction unit = [&](diagnostics& diag) {
          const ObjectRef object = repository.createObject(run, diag);
          object.setPropertyValue(number, p * kUnits + i, diag);
          if (i % 5 == 0) throw 1;
        };
        diagnostics diag;
        repository.performDictionaryFunction(unit, diag);
        EXPECT_EQ(diag.empty(), i % 5 != 0);
      }
    }));
  }
  waitFor(processes);
  open();
  std::vector<ObjectRef> runs;
  repository_.findObjects(cls("Run"), {}, runs, NoFailure());
  std::set<int> numbers;
  for (const ObjectRef& run : runs) numbers.insert(get<int>(run, "Number"));
  EXPECT_EQ(runs.size(), static_cast<std::size_t>(kProcesses * kUnits * 4 / 5));
  EXPECT_EQ(numbers.size(), runs.size());
  EXPECT_THAT(repository_.integrityProblems(NoFailure()), IsEmpty());
}

TEST_F(SharingTest, ProcessesThatCreateTheFileAtOnceAgreeOnIt) {
  for (int round = 0; round < 10; ++round) {
    sqldb::removeFile(path("runs.dmr"));
    std::vector<pid_t> processes;
    for (int p = 0; p < 4; ++p) {
      processes.push_back(inProcess([](DataModelRepository& repository) {
        EXPECT_GT(repository.createObject(classOf(repository, "Run"), NoFailure()).id(), 0);
      }));
    }
    waitFor(processes);
    open();
    EXPECT_EQ(count("Run"), 4);
    repository_.close();
  }
}

TEST_F(SharingTest, ThreadsShareOneRepository) {
  open();
  const ObjectRef counter = create("Run");
  constexpr int kThreads = 4;
  constexpr int kRounds = 200;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        const DataModelRepository::ReadScope scope(repository_);
        DictionaryFunction increment = [&](diagnostics& diag) {
          int number = 0;
          counter.getPropertyValue(propOf(counter, "Number"), number, diag);
          counter.setPropertyValue(propOf(counter, "Number"), number + 1, diag);
        };
        DictionaryFunction failing = [&](diagnostics& diag) {
          counter.setPropertyValue(propOf(counter, "Number"), -1, diag);
          throw 1;
        };
        diagnostics diag;
        repository_.performDictionaryFunction(t == 0 ? failing : increment, diag);
        EXPECT_EQ(diag.empty(), t != 0);
        create("Note");
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(get<int>(counter, "Number"), (kThreads - 1) * kRounds);
  EXPECT_EQ(count("Note"), kThreads * kRounds);
  EXPECT_EQ(repository_.depth(), 0);
}

TEST_F(SharingTest, AReadScopeSeesOneStateOfTheFile) {
  open();
  DataModelRepository other;
  ASSERT_EQ(idOfOpening(other), "");
  create("Run");
  {
    const DataModelRepository::ReadScope scope(repository_);
    EXPECT_EQ(count("Run"), 1);
    other.createObject(classOf(other, "Run"), NoFailure());
    EXPECT_EQ(count("Run"), 1);
  }
  EXPECT_EQ(count("Run"), 2);
}

}  // namespace
}  // namespace kodd
