#include <cmath>

#include "koddtest.h"

namespace kodd {
namespace {

using ::testing::ElementsAre;

class PreparedWritersTest : public KoddTest {};

TEST_F(PreparedWritersTest, ReadTheirSourcesAtEveryUse) {
  int number = 1;
  long long instance = 1LL << 40;
  double start = -0.0;
  std::string name = "first";
  std::wstring title = L"\u00e4";
  std::vector<char> bytes = {1, 2};
  const_BlobDescriptor image(bytes.data(), bytes.size());
  ObjectRef baseline;
  ObjectConstructor runs(cls("Run"), repository_);
  runs.setPropertyValueSource(prop("Run", "Number"), &number);
  runs.setPropertyValueSource(prop("Run", "Instance"), &instance);
  runs.setPropertyValueSource(prop("Run", "Start"), &start);
  runs.setPropertyValueSource(prop("Run", "Name"), &name);
  runs.setPropertyValueSource(prop("Run", "Title"), &title);
  runs.setPropertyValueSource(prop("Run", "Image"), &image);
  runs.setPropertyValueSource(prop("Run", "Baseline"), &baseline);
  const ObjectRef first = runs.createObject(NoFailure());
  number = 2;
  name = "second";
  start = std::nan("");
  baseline = first;
  const ObjectRef second = runs.createObject(NoFailure());
  EXPECT_EQ(get<int>(first, "Number"), 1);
  EXPECT_EQ(get<long long>(first, "Instance"), 1LL << 40);
  EXPECT_TRUE(std::signbit(get<double>(first, "Start")));
  EXPECT_EQ(get<std::string>(first, "Name"), "first");
  EXPECT_EQ(get<std::wstring>(first, "Title"), L"\u00e4");
  EXPECT_EQ(get<std::vector<char>>(first, "Image"), bytes);
  EXPECT_EQ(get<int>(first, "Visible"), 1);  // no source: the default
  EXPECT_EQ(get<int>(second, "Number"), 2);
  EXPECT_EQ(get<std::string>(second, "Name"), "second");
  EXPECT_TRUE(std::isnan(get<double>(second, "Start")));
  EXPECT_EQ(get<ObjectRef>(second, "Baseline"), first);
}

TEST_F(PreparedWritersTest, ModifyWhatHasASourceAndNothingElse) {
  ObjectRef run = create("Run");
  ObjectRef other = create("Run");
  set(run, "Name", std::string("kept"));
  int first = 1;
  int last = 2;
  std::size_t zeros = 3;
  ObjectModifier modifier(cls("Run"), repository_);
  modifier.modifyObject(run, NoFailure());  // no source yet
  modifier.setPropertyValueSource(prop("Run", "Number"), &first);
  modifier.modifyObject(run, NoFailure());
  EXPECT_EQ(get<int>(run, "Number"), 1);
  modifier.setPropertyValueSource(prop("Run", "Number"), &last);  // the last binding counts
  modifier.setPropertyZeroBlobSource(prop("Run", "Image"), &zeros);
  const int self = run.id();
  modifier.setPropertyIDSource(prop("Run", "Baseline"), &self);
  EXPECT_TRUE(modifier.modifyObjectID(run.id(), NoFailure()));
  EXPECT_EQ(get<int>(run, "Number"), 2);
  EXPECT_THAT(get<std::vector<char>>(run, "Image"), ElementsAre(0, 0, 0));
  EXPECT_EQ(get<ObjectRef>(run, "Baseline"), run);
  EXPECT_EQ(get<std::string>(run, "Name"), "kept");
  EXPECT_EQ(get<int>(other, "Number"), 0);
}

TEST_F(PreparedWritersTest, ReportAWrongSourceAtTheNextUseAndWriteNothing) {
  const double real = 1;
  const int number = 12345;
  ObjectRef run = create("Run");
  const auto creating = [this](auto&& prepare) {
    ObjectConstructor runs(cls("Run"), repository_);
    prepare(runs);
    return idLeftBy([&](diagnostics& diag) { EXPECT_EQ(runs.createObjectID(diag), 0); });
  };
  EXPECT_EQ(
      creating([&](auto& runs) { runs.setPropertyValueSource(prop("Run", "Number"), &real); }),
      "KODD:kodd:InvalidPropertyValue");
  EXPECT_EQ(creating([&](auto& runs) {
              runs.setPropertyValueSource(prop("Signal", "Level"), &real);
            }),
            "KODD:kodd:InvalidProperty");
  EXPECT_EQ(creating([&](auto& runs) {
              runs.setPropertyValueSource(prop("Run", "Baseline"), &number);
            }),
            "KODD:kodd:InvalidPropertyValue");
  EXPECT_EQ(creating([&](auto& runs) {
              runs.setPropertyValueSource(prop("Run", "Signal"), &number);
            }),
            "KODD:kodd:InvalidPropertyValue");
  EXPECT_EQ(count("Run"), 1);
  ObjectModifier modifier(cls("Note"), repository_);
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { modifier.modifyObject(run, diag); }),
            "KODD:kodd:InvalidObject");
  ObjectModifier runs(cls("Run"), repository_);
  runs.setPropertyValueSource(prop("Run", "Number"), &number);
  run.deleteObject(NoFailure());
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { runs.modifyObject(run, diag); }),
            "KODD:kodd:InvalidObject");
  EXPECT_FALSE(runs.modifyObjectID(run.id(), NoFailure()));
}

TEST_F(PreparedWritersTest, DeletersPassOverWhatIsGoneAndRefuseOtherClasses) {
  std::vector<ObjectRef> runs = {create("Run"), create("Run"), create("Run")};
  runs.push_back(runs[0]);
  runs.emplace_back();
  ObjectDeleter deleter(cls("Run"), repository_);
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) {
              std::vector<ObjectRef> mixed = {runs[0], create("Note")};
              deleter.deleteObjects(mixed, diag);
            }),
            "KODD:kodd:InvalidObject");
  EXPECT_EQ(count("Run"), 3);
  deleter.deleteObject(runs[1], NoFailure());
  EXPECT_EQ(count("Run"), 2);
  deleter.deleteObjects(runs, NoFailure());
  EXPECT_EQ(count("Run"), 0);
  const int ids[] = {create("Run").id(), 0, -3, 99999};
  deleter.deleteObjectIDs(ids, NoFailure());
  EXPECT_EQ(count("Run"), 0);
}

TEST_F(PreparedWritersTest, WritersOfAClosedRepositoryReportIt) {
  ObjectConstructor runs(cls("Run"), repository_);
  ObjectDeleter deleter(cls("Run"), repository_);
  open();
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { runs.createObject(diag); }),
            "KODD:kodd:RepositoryNotOpen");
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { deleter.deleteObjectIDs({}, diag); }),
            "KODD:kodd:RepositoryNotOpen");
}

}  // namespace
}  // namespace kodd
