#include "koddtest.h"

namespace kodd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

class SchemaChangeTest : public KoddTest {
 protected:
  /// Closes, replaces texts in the schema, one after the other.
  void change(const std::vector<std::pair<std::string, std::string>>& replacements) {
    repository_.close();
    for (const auto& [from, to] : replacements) {
      ASSERT_NE(classes_.find(from), std::string::npos) << from;
      classes_.replace(classes_.find(from), from.size(), to);
    }
    writeSchema(classes_);
  }
  ObjectRef again(const ObjectRef& object) {
    return repository_.getObjectRef(object.id(), NoFailure());
  }

  std::string classes_ = kLabClasses;
};

TEST_F(SchemaChangeTest, AddsWhatTheFileLacksAndKeepsWhatItHas) {
  const ObjectRef run = create("Run");
  const ObjectRef note = create("Note");
  set(run, "Number", 7);
  change({{"<Property name=\"Number\"",
           "<Property name=\"number\" kind=\"int32\" default=\"9\" index=\"yes\"/>"
           "<Property name=\"Blob\" kind=\"blob\"/><Property name=\"Number\""},
          {"<Class name=\"Run\">",
           "<Class name=\"First\"><Collection name=\"Note\"/></Class>"
           "<Class name=\"Run\">"}});
  open();
  EXPECT_EQ(get<int>(again(run), "Number"), 7);
  EXPECT_EQ(get<int>(again(run), "number"), 9);
  EXPECT_EQ(again(note).cls(), cls("Note"));
  const ObjectRef first = create("First");
  get<CollectionRef>(first, "Note").push_back(again(note), NoFailure());
  EXPECT_THAT(find("Run", matching(prop("Run", "number"), Relation::Equal, 9)),
              ElementsAre(run.id()));
  // A row from before the column was added holds no blob of its own yet.
  EXPECT_EQ(inUnit([&](diagnostics& diag) {
              BlobStream blob(prop("Run", "Blob"), repository_, BlobStream::Access::write);
              blob.open(run.id(), diag);
              EXPECT_EQ(blob.size(), 0u);
              blob.growTo(2, diag);
              blob.write(0, 2, "ab", diag);
            }),
            "");
  EXPECT_THAT(get<std::vector<char>>(again(run), "Blob"), ElementsAre('a', 'b'));
  EXPECT_THAT(repository_.integrityProblems(NoFailure()), IsEmpty());
  open();
  EXPECT_EQ(get<int>(again(run), "Number"), 7);
}

TEST_F(SchemaChangeTest, APropertyThatIsNoLongerDeclaredStaysInTheFile) {
  const ObjectRef run = create("Run");
  set(run, "Number", 7);
  const std::string number = "<Property name=\"Number\" kind=\"int32\" index=\"yes\"/>";
  change({{number, ""}});
  open();
  EXPECT_FALSE(prop("Run", "Number").isValid());
  set(again(run), "Visible", 5);
  create("Run");
  change({{"<Property name=\"Visible\"", number + "<Property name=\"Visible\""}});
  open();
  EXPECT_EQ(get<int>(again(run), "Number"), 7);
  EXPECT_EQ(get<int>(again(run), "Visible"), 5);
}

TEST_F(SchemaChangeTest, AChangedKindIsRefusedAndChangesNothing) {
  const ObjectRef run = create("Run");
  set(run, "Number", 7);
  change(
      {{"<Property name=\"Number\" kind=\"int32\"", "<Property name=\"Number\" kind=\"int64\""},
       {"<Class name=\"Note\">", "<Class name=\"New\"/><Class name=\"Note\">"}});
  EXPECT_EQ(idOfOpening(repository_), "KODD:kodd:SchemaError");
  change({{"kind=\"int64\" index=\"yes\"", "kind=\"int32\" index=\"yes\""},
          {"<Class name=\"New\"/>", ""}});
  open();
  EXPECT_EQ(get<int>(again(run), "Number"), 7);
  EXPECT_EQ(
      repository_.getDB()->queryText("SELECT count(*) FROM kodd_classes WHERE name='lab.New'"),
      "0");
}

TEST_F(SchemaChangeTest, AChangedDefaultHoldsForNewObjects) {
  const ObjectRef old = create("Run");
  change({{"name=\"Visible\" kind=\"int32\" default=\"1\"",
           "name=\"Visible\" kind=\"int32\" default=\"3\""}});
  open();
  EXPECT_EQ(get<int>(again(old), "Visible"), 1);
  EXPECT_EQ(get<int>(create("Run"), "Visible"), 3);
  const int number = 4;
  ObjectConstructor numbered(cls("Run"), repository_);
  numbered.setPropertyValueSource(prop("Run", "Number"), &number);
  EXPECT_EQ(get<int>(numbered.createObject(NoFailure()), "Visible"), 3);
  ObjectConstructor visible(cls("Run"), repository_);
  visible.setPropertyValueSource(prop("Run", "Visible"), &number);
  EXPECT_EQ(get<int>(visible.createObject(NoFailure()), "Visible"), 4);
}

TEST_F(SchemaChangeTest, OpeningAgainWritesNothingAndReadsLittle) {
  for (int i = 0; i < 500; ++i) create("Signal");
  std::vector<std::string> statements;
  repository_.setTraceCallback([&](std::string_view sql) { statements.emplace_back(sql); });
  repository_.close();
  statements.clear();
  open();
  EXPECT_LE(statements.size(), 4u) << ::testing::PrintToString(statements);
  for (const std::string& statement : statements) {
    EXPECT_THAT(statement, ::testing::AnyOf(StartsWith("SELECT"), StartsWith("PRAGMA")));
  }
}

TEST_F(SchemaChangeTest, AFileOfANewerFormatOrADamagedCatalogueIsRefused) {
  repository_.getDB()->execute("PRAGMA user_version=2");
  EXPECT_EQ(idOfOpening(repository_), "KODD:kodd:SchemaError");
  DataModelRepository other;
  ASSERT_EQ(idOfOpening(other, "other.dmr"), "");
  other.getDB()->execute("DROP TABLE kodd_classes");
  EXPECT_EQ(idOfOpening(other, "other.dmr"), "sqldb:ssdb:Corrupt");
}

}  // namespace
}  // namespace kodd
