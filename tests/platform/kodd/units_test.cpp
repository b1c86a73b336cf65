#include <stdexcept>

#include "koddtest.h"

namespace kodd {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* kTransactionActive = "KODD:kodd:TransactionActive";
constexpr const char* kNoTransaction = "KODD:kodd:NoTransaction";

class UnitsTest : public KoddTest {
 protected:
  std::string begin() {
    return idLeftBy([this](diagnostics& diag) { repository_.beginTransaction(diag); });
  }
  std::string commit() {
    return idLeftBy([this](diagnostics& diag) { repository_.commitTransaction(diag); });
  }
  std::string rollback() {
    return idLeftBy([this](diagnostics& diag) { repository_.rollbackTransaction(diag); });
  }
};

TEST_F(UnitsTest, AFunctionThatFailsInAnyWayIsUndoneAndReported) {
  const auto raising = [](diagnostics&) {
    kodiag::raise({"KODD:kodd", "OutOfIDs"}, {{"Location", "here"}});
  };
  struct Case {
    const char* what;
    boost::function<void(diagnostics&)> failing;
    std::string id;
  };
  const Case cases[] = {
      {"an exception of ours", raising, "KODD:kodd:DictFuncThrewException"},
      {"a standard one", [](diagnostics&) { throw std::runtime_error("oops"); },
       "KODD:kodd:DictFuncThrewStdException"},
      {"anything", [](diagnostics&) { throw 5; }, "KODD:kodd:DictFuncThrewStdException"},
      {"a diagnostic",
       [](diagnostics& diag) {
         diag.add({{"a", "b"}, {}, {}, nullptr});
       },
       "a:b"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(inUnit([&](diagnostics& diag) {
                create("Run");
                c.failing(diag);
              }),
              c.id);
    EXPECT_EQ(count("Run"), 0);
    EXPECT_EQ(repository_.depth(), 0);
  }
}

TEST_F(UnitsTest, KeepTheExceptionAsTheCauseOfEveryLevelItPassed) {
  diagnostics diag;
  DictionaryFunction inner = [](diagnostics&) { throw std::out_of_range("index 7"); };
  DictionaryFunction outer = [&](diagnostics& own) {
    repository_.performDictionaryFunction(inner, own);
    own.raiseIfAny();
  };
  repository_.performDictionaryFunction(outer, diag);
  const kodiag::except::ExceptionWithCauses raised = diag.extractExceptionWithCauses();
  EXPECT_EQ(raised.id(), "KODD:kodd:DictFuncThrewException");
  EXPECT_THAT(raised.what(), HasSubstr("index 7"));
  EXPECT_THROW(std::rethrow_exception(raised.innermost().original), std::out_of_range);
}

TEST_F(UnitsTest, AnEmptyFunctionIsRefused) {
  diagnostics diag;
  DictionaryFunction empty;
  repository_.performDictionaryFunction(empty, diag);
  ASSERT_FALSE(diag.empty());
  EXPECT_THAT(diag.messages()[0].text(), HasSubstr("call to empty boost::function"));
}

TEST_F(UnitsTest, EarlierDiagnosticsDoNotUndoGoodWork) {
  diagnostics diag;
  diag.add({{"a", "b"}, {}, {}, nullptr});
  DictionaryFunction good = [this](diagnostics&) { create("Run"); };
  repository_.performDictionaryFunction(good, diag);
  EXPECT_EQ(diag.messages().size(), 1u);
  EXPECT_EQ(count("Run"), 1);
}

TEST_F(UnitsTest, AFailedInnerUnitIsUndoneAlone) {
  EXPECT_EQ(inUnit([this](diagnostics&) {
              create("Run");
              EXPECT_EQ(inUnit([this](diagnostics&) {
                          create("Run");
                          create("Note");
                          throw 1;
                        }),
                        "KODD:kodd:DictFuncThrewStdException");
              create("Signal");
            }),
            "");
  EXPECT_EQ(count("Run"), 1);
  EXPECT_EQ(count("Note"), 0);
  EXPECT_EQ(count("Signal"), 1);
}

TEST_F(UnitsTest, ExplicitTransactionsFollowTheirTable) {
  EXPECT_EQ(commit(), kNoTransaction);
  EXPECT_EQ(rollback(), kNoTransaction);
  EXPECT_EQ(begin(), "");
  EXPECT_EQ(begin(), kTransactionActive);
  create("Run");
  EXPECT_EQ(inUnit([this](diagnostics&) {
              create("Note");
              EXPECT_EQ(begin(), kTransactionActive);
              EXPECT_EQ(commit(), kNoTransaction);
              EXPECT_EQ(rollback(), kNoTransaction);
            }),
            "");
  EXPECT_EQ(rollback(), "");
  EXPECT_EQ(count("Run") + count("Note"), 0);
  EXPECT_EQ(begin(), "");
  create("Run");
  EXPECT_EQ(commit(), "");
  EXPECT_EQ(inUnit([this](diagnostics&) { EXPECT_EQ(begin(), kTransactionActive); }), "");
  EXPECT_EQ(count("Run"), 1);
}

TEST_F(UnitsTest, OpeningIsRefusedInsideAFunctionAndUndoesAnOpenTransaction) {
  EXPECT_EQ(inUnit([this](diagnostics&) {
              create("Run");
              EXPECT_EQ(idOfOpening(repository_), kTransactionActive);
            }),
            "");
  begin();
  create("Run");
  open();
  EXPECT_EQ(count("Run"), 1);
  EXPECT_EQ(repository_.depth(), 0);
}

TEST_F(UnitsTest, ClosingInsideAFunctionEndsItWithAnError) {
  EXPECT_EQ(inUnit([this](diagnostics&) {
              create("Run");
              repository_.close();
            }),
            "KODD:kodd:RepositoryNotOpen");
  open();
  EXPECT_EQ(count("Run"), 0);
}

TEST_F(UnitsTest, ListenersHearOfEveryLevelThatIsUndone) {
  std::vector<int> undone;
  repository_.setRollbackListener([&](int level) { undone.push_back(level); });
  inUnit([this](diagnostics&) {
    inUnit([](diagnostics&) { throw 1; });
    inUnit([](diagnostics&) {});
    throw 2;
  });
  EXPECT_THAT(undone, ElementsAre(2, 1));
}

TEST_F(UnitsTest, AReadScopeIsOneUnitHoweverManyShareIt) {
  create("Run");
  auto first = std::make_unique<DataModelRepository::ReadScope>(repository_);
  auto second = std::make_unique<DataModelRepository::ReadScope>(repository_);
  EXPECT_EQ(repository_.depth(), 1);
  first.reset();
  EXPECT_EQ(repository_.depth(), 1);
  create("Run");  // committed at once
  second.reset();
  EXPECT_EQ(repository_.depth(), 0);
  open();
  EXPECT_EQ(count("Run"), 2);
}

TEST_F(UnitsTest, AReadScopeGivesWayToATransactionAndOutlivesTheRepository) {
  {
    const DataModelRepository::ReadScope scope(repository_);
    EXPECT_EQ(begin(), "");
    create("Run");
  }
  EXPECT_EQ(repository_.depth(), 1);
  EXPECT_EQ(rollback(), "");
  EXPECT_EQ(count("Run"), 0);
  {
    const DataModelRepository::ReadScope scope(repository_);
    repository_.close();
  }
  const DataModelRepository::ReadScope onNothing(repository_);
}

TEST_F(UnitsTest, ReadFunctionsReportAsWritingOnesDo) {
  DictionaryFunction failing = [](diagnostics&) { throw std::runtime_error("oops"); };
  EXPECT_EQ(
      idLeftBy([&](diagnostics& diag) { repository_.performReadFunction(failing, diag); }),
      "KODD:kodd:DictFuncThrewStdException");
  EXPECT_EQ(repository_.depth(), 0);
}

TEST_F(UnitsTest, AnUnopenedRepositoryReportsWhyAtEveryUse) {
  DataModelRepository unopened;
  writeFile("text.dmr", "just some text, and no database at all");
  EXPECT_EQ(idOfOpening(unopened, "text.dmr"), "KODD:kodd:NotARepository");
  EXPECT_FALSE(unopened.isOpen());
  EXPECT_EQ(unopened.getDB(), nullptr);
  diagnostics diag;
  unopened.createObject(cls("Run"), diag);
  ASSERT_EQ(diag.messages().size(), 1u);
  EXPECT_EQ(diag.messages()[0].id.key, "RepositoryNotOpen");
  ASSERT_EQ(diag.messages()[0].causes.size(), 1u);
  EXPECT_EQ(diag.messages()[0].causes[0].id.key, "NotARepository");
  EXPECT_THAT(diag.messages()[0].text(), HasSubstr("text.dmr"));
  EXPECT_EQ(idLeftBy([&](diagnostics& d) {
              DataModelRepository::checkFile(text::toWide(path("text.dmr")), d);
            }),
            "KODD:kodd:NotARepository");
  EXPECT_EQ(idLeftBy([&](diagnostics& d) {
              DataModelRepository::checkFile(text::toWide(path("absent.dmr")), d);
            }),
            "");
}

// Lets the file grow by one page more each time, so that the unit fails at every page it
// needs in turn: whichever that is, nothing of the unit is left and the next attempt starts
// from the same state.
TEST_F(UnitsTest, AUnitIsAllOrNothingWhicheverPageIsMissing) {
  const ObjectRef run = create("Run");
  const std::string pages = repository_.getDB()->queryText("PRAGMA page_count");
  const std::vector<char> large(100'000, 'x');
  DictionaryFunction unit = [&](diagnostics& diag) {
    run.setPropertyValue(propOf(run, "Number"), 7, diag);
    for (int i = 0; i < 300 && diag.empty(); ++i) {
      const ObjectRef note = repository_.createObject(cls("Note"), diag);
      if (note.id() != 0)
        note.setPropertyValue(propOf(note, "Text"), std::wstring(200, L'n'), diag);
    }
    run.setPropertyValue(propOf(run, "Image"), const_BlobDescriptor(large.data(), large.size()),
                         diag);
  };
  int failures = 0;
  for (int allowed = std::stoi(pages);; ++allowed) {
    repository_.getDB()->queryText("PRAGMA max_page_count=" + std::to_string(allowed));
    diagnostics diag;
    repository_.performDictionaryFunction(unit, diag);
    if (diag.empty()) break;
    ++failures;
    ASSERT_LT(failures, 100);
    EXPECT_EQ(diag.messages()[0].id.key, "DiskFull");
    EXPECT_EQ(get<int>(run, "Number"), 0);
    EXPECT_THAT(get<std::vector<char>>(run, "Image"), IsEmpty());
    EXPECT_EQ(count("Note"), 0);
    EXPECT_EQ(repository_.depth(), 0);
    EXPECT_THAT(repository_.integrityProblems(NoFailure()), IsEmpty());
  }
  EXPECT_GE(failures, 7);  // the blob alone takes as many pages
  EXPECT_EQ(count("Note"), 300);
  EXPECT_EQ(get<std::vector<char>>(run, "Image"), large);
}

}  // namespace
}  // namespace kodd
