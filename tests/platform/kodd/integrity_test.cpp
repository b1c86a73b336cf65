#include "koddtest.h"

namespace kodd {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class IntegrityTest : public KoddTest {};

TEST_F(IntegrityTest, NamesEveryKindOfDamage) {
  const ObjectRef run = create("Run");
  const ObjectRef note = create("Note");
  set(run, "Baseline", run);
  ASSERT_THAT(repository_.integrityProblems(NoFailure()), IsEmpty());
  const std::string ofRun = " WHERE id=" + std::to_string(run.id());
  const std::string noteID = std::to_string(note.id());
  struct Case {
    std::string damage;
    const char* problem;
  };
  const Case cases[] = {
      {"UPDATE t1_lab_Run SET c1_Number='x'" + ofRun, "\"Number\""},
      {"UPDATE t1_lab_Run SET c1_Number=2147483648" + ofRun, "32 bits"},
      {"UPDATE t1_lab_Run SET c6_Name=x'00'" + ofRun, "another kind"},
      {"UPDATE t1_lab_Run SET c8_Baseline=" + noteID + ofRun, "another class"},
      {"UPDATE t1_lab_Run SET id=" + noteID + ofRun, "IDs that are not of that class"},
      {"UPDATE kodd_blocks SET class=99", "belong to no class"},
      {"ALTER TABLE t3_lab_Note DROP COLUMN c1_Text", "no column"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.damage);
    EXPECT_EQ(inUnit([&](diagnostics& diag) {
                repository_.getDB()->execute(c.damage);
                const std::vector<std::string> problems = repository_.integrityProblems(diag);
                EXPECT_THAT(problems, ::testing::Contains(HasSubstr(c.problem)));
                throw 1;
              }),
              "KODD:kodd:DictFuncThrewStdException");
  }
  EXPECT_THAT(repository_.integrityProblems(NoFailure()), IsEmpty());
}

TEST_F(IntegrityTest, AStoredNumberBeyondItsKindIsNotCutShort) {
  const ObjectRef run = create("Run");
  repository_.getDB()->execute("UPDATE t1_lab_Run SET c1_Number=4294967297");
  int value = 42;
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) {
              run.getPropertyValue(propOf(run, "Number"), value, diag);
            }),
            "sqldb:ssdb:Corrupt");
  EXPECT_EQ(value, 42);
}

}  // namespace
}  // namespace kodd
