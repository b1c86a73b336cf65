#include <atomic>
#include <thread>

#include "managertest.h"
#include "objectmanager/repositorylock.h"

namespace vela {
namespace {

using kodiag::util::diagnostics;
using test::raisedBy;

class TransactionsTest : public test::ManagerTest {
 protected:
  diagnostics unit(DictionaryFunction fn) {
    diagnostics diag;
    manager_->safeTransaction(fn, diag);
    return diag;
  }
  diagnostics eval(DictionaryFunction fn) {
    diagnostics diag;
    manager_->threadSafeEval(fn, diag);
    return diag;
  }
};

TEST_F(TransactionsTest, ExplicitTransactionsAreKeptOrUndoneWhole) {
  manager_->beginTransaction();
  create("DataSet");
  create("Signal");
  manager_->commitTransaction();
  manager_->beginTransaction();
  create("DataSet");
  manager_->removeObject(create("DataSet")->getObjectID(), "DataSet");
  manager_->rollbackTransaction();
  EXPECT_EQ(count("DataSet"), 1u);
  reopen();
  EXPECT_EQ(count("DataSet"), 1u);
  EXPECT_EQ(count("Signal"), 1u);
}

TEST_F(TransactionsTest, UnbalancedCallsAreRefusedAndChangeNothing) {
  EXPECT_EQ(raisedBy([&] { manager_->commitTransaction(); }), "KODD:kodd:NoTransaction");
  EXPECT_EQ(raisedBy([&] { manager_->rollbackTransaction(); }), "KODD:kodd:NoTransaction");

  manager_->beginTransaction();
  create("DataSet");
  EXPECT_EQ(raisedBy([&] { manager_->beginTransaction(); }), "KODD:kodd:TransactionActive");
  manager_->commitTransaction();
  EXPECT_EQ(count("DataSet"), 1u);

  for (const auto& end :
       {&ObjectManager::commitTransaction, &ObjectManager::rollbackTransaction,
        &ObjectManager::beginTransaction, &ObjectManager::disconnect}) {
    EXPECT_EQ(
        raisedBy([&] {
          manager_->inTransaction([&] {
            create("DataSet");
            ((*manager_).*end)();
          });
        }),
        end == &ObjectManager::commitTransaction || end == &ObjectManager::rollbackTransaction
            ? "KODD:kodd:NoTransaction"
            : "KODD:kodd:TransactionActive");
  }
  EXPECT_EQ(raisedBy([&] {
              manager_->inTransaction([&] { manager_->initializeObjectManager("", ""); });
            }),
            "KODD:kodd:TransactionActive");
  EXPECT_TRUE(manager_->isOpen());
  EXPECT_EQ(count("DataSet"), 1u);
}

TEST_F(TransactionsTest, AFailedUnitIsUndoneAndReportedNotRaised) {
  const std::pair<DictionaryFunction, const char*> failures[] = {
      {[&](diagnostics&) {
         create("DataSet");
         create("NoSuchClass");
       },
       "DictFuncThrewException"},
      {[&](diagnostics&) {
         create("DataSet");
         throw std::runtime_error("no");
       },
       "DictFuncThrewStdException"},
      {[&](diagnostics&) {
         create("DataSet");
         throw 7;
       },
       "DictFuncThrewStdException"},
      {[&](diagnostics& diag) {
         create("DataSet");
         diag.add({{"KODD:kodd", "NoSuchObject"}, {}, {}, nullptr});
       },
       "NoSuchObject"}};
  for (const auto& [fn, key] : failures) {
    SCOPED_TRACE(key);
    const diagnostics diag = unit(fn);
    ASSERT_FALSE(diag.empty());
    EXPECT_EQ(diag.messages().front().id.key, key);
  }
  EXPECT_FALSE(unit(DictionaryFunction()).empty());
  EXPECT_EQ(count("DataSet"), 0u);
}

TEST_F(TransactionsTest, InnerUnitsFailAloneAndOuterOnesTakeThemAlong) {
  manager_->inTransaction([&] {
    create("DataSet");
    EXPECT_FALSE(unit([&](diagnostics&) {
                   create("DataSet");
                   throw std::runtime_error("inner");
                 }).empty());
    manager_->inTransaction([&] { create("DataSet"); });
  });
  EXPECT_EQ(count("DataSet"), 2u);

  manager_->beginTransaction();
  manager_->inTransaction([&] { create("DataSet"); });
  manager_->rollbackTransaction();
  EXPECT_EQ(count("DataSet"), 2u);
}

TEST_F(TransactionsTest, WhatIsOpenAtDisconnectIsUndone) {
  manager_->beginTransaction();
  create("DataSet");
  manager_->disconnect();
  reopen();
  EXPECT_EQ(count("DataSet"), 0u);
}

TEST_F(TransactionsTest, ReadUnitsSeeOneStateAndKeepWhatIsWrittenInThem) {
  manager_->inReadUnit([&] {
    EXPECT_EQ(count("DataSet"), 0u);
    create("DataSet");
    EXPECT_EQ(count("DataSet"), 1u);
  });
  EXPECT_EQ(count("DataSet"), 1u);
}

TEST_F(TransactionsTest, EvaluationsReportEveryFailureAndUndoNothing) {
  const diagnostics empty = eval(DictionaryFunction());
  ASSERT_FALSE(empty.empty());
  EXPECT_THAT(empty.messages().front().text(),
              testing::HasSubstr("call to empty boost::function"));

  const diagnostics raised = eval([&](diagnostics& diag) {
    create("DataSet");
    diag.add({{"KODD:kodd", "NoSuchObject"}, {}, {}, nullptr});
    create("NoSuchClass");
  });
  ASSERT_EQ(raised.messages().size(), 1u);
  EXPECT_EQ(raised.messages().front().id.key, "NoSuchObjectType");

  const diagnostics added = eval([](diagnostics& diag) {
    diag.add({{"KODD:kodd", "NoSuchObject"}, {}, {}, nullptr});
    throw std::out_of_range("too far");
  });
  ASSERT_EQ(added.messages().size(), 2u);
  EXPECT_THAT(added.messages().back().text(), testing::HasSubstr("too far"));

  EXPECT_FALSE(eval([](diagnostics&) { throw 7; }).empty());
  EXPECT_TRUE(eval([](diagnostics&) {}).empty());
  EXPECT_EQ(count("DataSet"), 1u);
}

TEST_F(TransactionsTest, UnitsOfARepositoryTakeTurnsAndEvaluationsOfTheProcess) {
  ObjectManager other;
  other.initializeObjectManager("", "");
  std::atomic<int> units = 0;
  std::atomic<int> evaluations = 0;
  std::atomic<bool> together = false;
  const auto alone = [&](std::atomic<int>& inside) {
    if (++inside > 1) together = true;
    std::this_thread::yield();
    --inside;
  };
  const auto work = [&](ObjectManager& manager, bool isThis) {
    for (int i = 0; i < 200; ++i) {
      manager.inTransaction([&] {
        if (isThis) alone(units);
        manager.createObject("DataSet", false);
      });
      DictionaryFunction evaluation = [&](diagnostics&) { alone(evaluations); };
      diagnostics diag;
      manager.threadSafeEval(evaluation, diag);
      EXPECT_TRUE(diag.empty());
    }
  };
  std::thread first(work, std::ref(*manager_), true);
  std::thread second(work, std::ref(*manager_), true);
  std::thread third(work, std::ref(other), false);
  first.join();
  second.join();
  third.join();
  EXPECT_FALSE(together);
  EXPECT_EQ(count("DataSet"), 400u);
}

TEST_F(TransactionsTest, AForkedChildFindsTheRepositoryLockFree) {
  std::atomic<bool> forked = false;
  std::atomic<bool> locked = false;
  std::thread holder([&] {
    std::lock_guard lock(repositoryLock());
    locked = true;
    while (!forked) std::this_thread::yield();
  });
  while (!locked) std::this_thread::yield();
  const pid_t child = fork();
  if (child == 0) _exit(repositoryLock().try_lock() ? 0 : 1);
  forked = true;
  holder.join();
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
}  // namespace vela
