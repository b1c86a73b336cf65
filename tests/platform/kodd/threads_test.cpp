#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <thread>

#include "koddtest.h"

namespace kodd {
namespace {

using namespace std::chrono_literals;

class ThreadsTest : public KoddTest {
 protected:
  /// Runs `body` in a thread of its own to its end.
  template <class Body>
  static void inThread(Body&& body) {
    std::thread(std::forward<Body>(body)).join();
  }
  long long countElsewhere() {
    DataModelRepository other;
    EXPECT_EQ(idOfOpening(other), "");
    const ClassRef run = other.metamodel(NoFailure()).findPackage("lab").findClass("Run");
    return other.countObjects(Selection(run), NoFailure());
  }
  void openImpatiently(DataModelRepository& repository, const std::string& file) {
    DataModelRepository::Options options;
    options.busyTimeout = 200ms;
    repository.open(text::toWide(path(file)), text::toWide(path("schema.xml")), options,
                    NoFailure());
  }
  static diagnostics failureOf(DataModelRepository& repository, DictionaryFunction function) {
    diagnostics diag;
    repository.performDictionaryFunction(function, diag);
    return diag;
  }
};

// While one thread reads, another one's work is in the file as soon as it is acknowledged: the
// process ends here without closing anything.
TEST_F(ThreadsTest, WhatIsAcknowledgedBesideAReadScopeSurvivesTheProcess) {
  repository_.close();
  const pid_t child = fork();
  if (child == 0) {
    open();
    const DataModelRepository::ReadScope scope(repository_);
    inThread([&] {
      for (int i = 0; i < 40; ++i) create("Run");
      for (int i = 0; i < 40; ++i) inUnit([&](diagnostics&) { create("Run"); });
    });
    _exit(HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  open();
  EXPECT_EQ(count("Run"), 80);
}

TEST_F(ThreadsTest, AReadScopeKeepsItsStateUntilItsOwnThreadWrites) {
  create("Run");
  const DataModelRepository::ReadScope scope(repository_);
  EXPECT_EQ(count("Run"), 1);
  inThread([&] {
    create("Run");
    EXPECT_EQ(count("Run"), 2);  // at once for the thread that wrote
  });
  EXPECT_EQ(count("Run"), 1);
  create("Run");
  EXPECT_EQ(count("Run"), 3);
  EXPECT_EQ(countElsewhere(), 3);  // committed, though the scope goes on
}

TEST_F(ThreadsTest, AnExplicitTransactionIsOfItsThreadAlone) {
  openImpatiently(repository_, "runs.dmr");
  repository_.beginTransaction(NoFailure());
  create("Run");
  inThread([&] {
    EXPECT_EQ(repository_.depth(), 0);
    EXPECT_EQ(count("Run"), 0);
    EXPECT_EQ(idLeftBy([&](diagnostics& diag) { repository_.commitTransaction(diag); }),
              "KODD:kodd:NoTransaction");
    const diagnostics busy = failureOf(repository_, [](diagnostics&) {});
    ASSERT_FALSE(busy.empty());
    EXPECT_EQ(busy.messages().front().id.str(), "KODD:kodd:RepositoryBusy");
    EXPECT_THAT(busy.messages().front().text(),
                ::testing::HasSubstr("transaction\" of another thread"));
  });
  repository_.rollbackTransaction(NoFailure());
  inThread([&] { create("Run"); });
  EXPECT_EQ(count("Run"), 1);
}

TEST_F(ThreadsTest, TheUnitsOfAThreadThatEndsAreUndone) {
  inThread([&] {
    repository_.beginTransaction(NoFailure());
    create("Run");
  });
  inThread([&] { new DataModelRepository::ReadScope(repository_); });  // NOLINT: never ended
  create("Run");
  EXPECT_EQ(count("Run"), 1);
}

TEST_F(ThreadsTest, AnyThreadMayEndAScopeOrUseAQuery) {
  create("Run");
  create("Run");
  auto scope = std::make_unique<DataModelRepository::ReadScope>(repository_);
  int number = -1;
  ObjectQuery query(repository_);
  query.addResultProperty(prop("Run", "Number"), &number);
  std::optional<ResultIterator> rows(query.execute(NoFailure()));
  EXPECT_TRUE(rows->getNextResult(NoFailure()));
  inThread([&] {
    EXPECT_TRUE(rows->getNextResult(NoFailure()));
    create("Run");
    scope.reset();
  });
  EXPECT_FALSE(rows->getNextResult(NoFailure()));
  EXPECT_EQ(repository_.depth(), 0);
  EXPECT_EQ(count("Run"), 3);
}

// More scopes than there are connections: those that come too late are told so, and writers
// still find one.
TEST_F(ThreadsTest, SleepingReadersKeepNoWriterWaiting) {
  openImpatiently(repository_, "runs.dmr");
  std::promise<void> end;
  const std::shared_future<void> ended = end.get_future().share();
  std::vector<std::thread> readers;
  for (int i = 0; i < 5; ++i) {
    std::promise<void> reading;
    readers.emplace_back([&] {
      const DataModelRepository::ReadScope scope(repository_);
      EXPECT_EQ(count("Run"), 0);
      reading.set_value();
      ended.wait();
    });
    reading.get_future().wait();
  }
  create("Run");
  EXPECT_EQ(countElsewhere(), 1);
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) {
              repository_.countObjects(Selection(cls("Run")), diag);
            }),
            "KODD:kodd:RepositoryBusy");
  end.set_value();
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(count("Run"), 1);
}

TEST_F(ThreadsTest, UnitsOfDifferentRepositoriesMeetOnlyInACircle) {
  DataModelRepository other;
  openImpatiently(repository_, "runs.dmr");
  openImpatiently(other, "other.dmr");
  std::promise<void> inside;
  std::promise<void> done;
  std::thread holder([&] {
    EXPECT_TRUE(failureOf(repository_, [&](diagnostics&) {
                  inside.set_value();
                  done.get_future().wait();
                }).empty());
  });
  inside.get_future().wait();
  EXPECT_TRUE(failureOf(other, [](diagnostics&) {}).empty());
  done.set_value();
  holder.join();

  std::promise<void> hasOther;
  std::promise<void> hasThis;
  const auto crossed = [](DataModelRepository& first, DataModelRepository& second,
                          std::promise<void>& mine, std::promise<void>& yours) {
    return failureOf(first, [&](diagnostics& diag) {
      mine.set_value();
      yours.get_future().wait();
      diag.append(failureOf(second, [](diagnostics&) {}));
    });
  };
  diagnostics there;
  std::thread opposite([&] { there = crossed(other, repository_, hasOther, hasThis); });
  const diagnostics here = crossed(repository_, other, hasThis, hasOther);
  opposite.join();
  EXPECT_FALSE(here.empty() && there.empty());
}

TEST_F(ThreadsTest, WhatWasReadIsStoredOnlyWhileItIsNews) {
  const ObjectRef run = create("Run");
  const auto remember = [&](int number) {
    DictionaryFunction function = [&](diagnostics& diag) {
      run.setPropertyValue(propOf(run, "Number"), number, diag);
    };
    diagnostics failure;
    const bool hasRun = repository_.tryDictionaryFunction(function, failure);
    return hasRun && failure.empty();
  };
  const DataModelRepository::ReadScope scope(repository_);
  EXPECT_EQ(get<int>(run, "Number"), 0);
  EXPECT_TRUE(remember(1));
  EXPECT_EQ(count("Run"), 1);
  inThread([&] { EXPECT_EQ(get<int>(run, "Number"), 1); });
  inThread([&] { create("Run"); });
  EXPECT_FALSE(remember(2));
  EXPECT_EQ(count("Run"), 1);  // still the state that was read
  inThread([&] { EXPECT_EQ(get<int>(run, "Number"), 1); });
}

TEST_F(ThreadsTest, ClosingEndsTheUnitsOfOthersAndTheirHandles) {
  const ObjectRef run = create("Run");
  std::promise<void> begun;
  std::promise<void> closed;
  std::thread writer([&] {
    const diagnostics failure = failureOf(repository_, [&](diagnostics& diag) {
      run.setPropertyValue(propOf(run, "Number"), 5, diag);
      begun.set_value();
      closed.get_future().wait();
      int number = 0;
      EXPECT_EQ(idLeftBy([&](diagnostics& stale) {
                  run.getPropertyValue(propOf(run, "Number"), number, stale);
                }),
                "KODD:kodd:InvalidObject");
    });
    EXPECT_FALSE(failure.empty());
  });
  begun.get_future().wait();
  repository_.close();
  closed.set_value();
  writer.join();
  open();
  EXPECT_EQ(get<int>(repository_.getObjectRef(run.id(), cls("Run"), NoFailure()), "Number"), 0);
}

}  // namespace
}  // namespace kodd
