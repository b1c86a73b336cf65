#include <gtest/gtest.h>

#include <set>

#include "kodd/metamodel.h"
#include "tests/schema/vocabulary.h"

namespace {

using kodd::ClassInfo;
using kodd::Metamodel;
using kodd::PropertyInfo;
using kodd::PropertyKind;

const Metamodel& load(const std::string& file) {
  return Metamodel::load(SOURCE_FOLDER "/schema/" + file);
}

const ClassInfo& classNamed(const Metamodel& model, const std::string& name) {
  for (const ClassInfo* cls : model.classes()) {
    if (cls->name == name) return *cls;
  }
  throw std::out_of_range(name);
}

class SchemaTest : public ::testing::TestWithParam<const char*> {
 protected:
  const Metamodel& model_ = load(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Files, SchemaTest,
                         ::testing::Values("schema.xml", "vela_view_schema.xml"));

TEST_P(SchemaTest, NamesOnlyWhatTheVocabularySpells) {
  std::set<std::string> words;
  for (const auto& [constant, text] : vela::test::declaredVocabulary()) words.insert(text);
  for (const ClassInfo* cls : model_.classes()) {
    EXPECT_TRUE(words.contains(cls->name) || words.contains(cls->qualifiedName()))
        << cls->qualifiedName();
    for (const auto& property : cls->properties) {
      EXPECT_TRUE(words.contains(property->name)) << cls->name << "." << property->name;
    }
  }
}

// A row is read from its front, and a blob in front of a number is read with it.
TEST_P(SchemaTest, PutsBlobsBehindEverythingElse) {
  for (const ClassInfo* cls : model_.classes()) {
    bool blobSeen = false;
    for (const auto& property : cls->properties) {
      const bool isBlob =
          property->kind == PropertyKind::blob || property->kind == PropertyKind::hostArray;
      const bool isColumn = property->kind != PropertyKind::collection;
      EXPECT_FALSE(blobSeen && isColumn && !isBlob) << cls->name << "." << property->name;
      blobSeen = blobSeen || isBlob;
    }
  }
}

// Saved, a reference has the name of such a property.
TEST_P(SchemaTest, KeepsTheSavedNamesOfReferencesFree) {
  for (const ClassInfo* cls : model_.classes()) {
    for (const auto& property : cls->properties) {
      if (property->kind != PropertyKind::reference) continue;
      EXPECT_FALSE(cls->byName.contains("FK_" + property->name))
          << cls->name << "." << property->name;
    }
  }
}

TEST(RunSchema, RemembersOldIDsOfEverythingButSamples) {
  const std::set<std::string> samples = {"Chunk", "TimeChunk", "DataChunk"};
  for (const ClassInfo* cls : load("schema.xml").classes()) {
    if (cls->package->name != "vela") continue;
    EXPECT_NE(cls->byName.contains("OLDID"), samples.contains(cls->name)) << cls->name;
  }
}

TEST(RunSchema, ListsRunsUnlessToldOtherwise) {
  const Metamodel& model = load("schema.xml");
  EXPECT_EQ(model.packages().front()->name, "vela");
  EXPECT_EQ(classNamed(model, "DataSet").byName.at("Visible")->defaultText, "1");
  EXPECT_EQ(classNamed(model, "Signal").byName.at("Checked")->kind, PropertyKind::int32);
}

TEST(RunSchema, FindsChunksByNumberAndByTime) {
  std::set<std::vector<std::string>> indexes;
  for (const kodd::IndexInfo& index : classNamed(load("schema.xml"), "Chunk").indexes) {
    std::vector<std::string> names;
    for (const PropertyInfo* property : index.properties) names.push_back(property->name);
    indexes.insert(names);
  }
  EXPECT_TRUE(indexes.contains({"Signal", "ChunkNum"}));
  EXPECT_TRUE(indexes.contains({"Signal", "EndTime"}));
}

}  // namespace
