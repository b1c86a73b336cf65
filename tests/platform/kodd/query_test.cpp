#include <cmath>
#include <limits>
#include <optional>

#include "koddtest.h"

namespace kodd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

class QueryTest : public KoddTest {
 protected:
  std::vector<int> run(ObjectQuery& query) {
    int id = 0;
    query.addResultID(cls("Run"), &id);
    return rows(query, id);
  }
  static std::vector<int> rows(ObjectQuery& query, const int& value) {
    std::vector<int> result;
    ResultIterator iterator = query.execute(NoFailure());
    while (iterator.getNextResult(NoFailure())) result.push_back(value);
    return result;
  }
  ObjectRef createRun(int number, double start = 0) {
    ObjectRef object = create("Run");
    set(object, "Number", number);
    set(object, "Start", start);
    return object;
  }
};

TEST_F(QueryTest, ComparesByEveryRelationLikeThePlainOperator) {
  const std::vector<double> values = {
      -1.5, -0.0, 0.0, 2.0, 1e300, std::numeric_limits<double>::infinity(), std::nan("")};
  std::vector<int> ids;
  for (const double value : values) ids.push_back(createRun(0, value).id());
  struct Case {
    Relation relation;
    bool (*holds)(double, double);
  };
  const Case cases[] = {
      {Relation::Equal, [](double a, double b) { return a == b; }},
      {Relation::NotEqual,
       [](double a, double b) { return !std::isnan(a) && !std::isnan(b) && a != b; }},
      {Relation::Less, [](double a, double b) { return a < b; }},
      {Relation::LessEqual, [](double a, double b) { return a <= b; }},
      {Relation::Greater, [](double a, double b) { return a > b; }},
      {Relation::GreaterEqual, [](double a, double b) { return a >= b; }},
  };
  for (const Case& c : cases) {
    double bound = 0;
    ObjectQuery query(repository_);
    query.addConstraint(prop("Run", "Start"), c.relation, &bound);
    int id = 0;
    query.addResultID(cls("Run"), &id);
    for (const double value : values) {
      SCOPED_TRACE(::testing::Message() << static_cast<int>(c.relation) << " " << value);
      std::vector<int> expected;
      for (std::size_t i = 0; i < values.size(); ++i) {
        if (c.holds(values[i], value)) expected.push_back(ids[i]);
      }
      bound = value;
      EXPECT_EQ(rows(query, id), expected);
      EXPECT_EQ(find("Run", matching(prop("Run", "Start"), c.relation, value)), expected);
    }
  }
}

TEST_F(QueryTest, ReadsBoundValuesWhenItRunsAndKeepsThemWhileItReads) {
  createRun(1);
  const ObjectRef named = createRun(2);
  const ObjectRef alsoNamed = createRun(3);
  const std::string name = "a name too long for any small buffer";
  set(named, "Name", name);
  set(alsoNamed, "Name", name);
  std::string wanted = name;
  int id = 0;
  ObjectQuery query(repository_);
  query.addConstraint(prop("Run", "Name"), Relation::Equal, &wanted);
  query.addResultID(cls("Run"), &id);
  ResultIterator iterator = query.execute(NoFailure());
  EXPECT_TRUE(iterator.getNextResult(NoFailure()));
  wanted = "something else that is just as long as the name";
  EXPECT_TRUE(iterator.getNextResult(NoFailure()));
  EXPECT_EQ(id, alsoNamed.id());
  EXPECT_FALSE(iterator.getNextResult(NoFailure()));
  EXPECT_EQ(id, alsoNamed.id());  // untouched after the end
  EXPECT_FALSE(iterator.getNextResult(NoFailure()));
  EXPECT_THAT(rows(query, id), IsEmpty());
}

TEST_F(QueryTest, MatchesTextIntegersTimesAndIdentifiersExactly) {
  const ObjectRef object = createRun(-7);
  const boost::posix_time::ptime time(boost::gregorian::date(2024, 2, 29));
  const boost::uuids::uuid uuid{{1, 2, 3}};
  object.setPropertyValueLegacy(propOf(object, "Instance"), time, NoFailure());
  object.setPropertyValueLegacy(propOf(object, "Image"), uuid, NoFailure());
  set(object, "Name", std::string("na'me"));
  set(object, "Title", std::wstring(L"Titel \u00e4"));
  createRun(0);
  const long long number = -7;
  const std::wstring title = L"Titel \u00e4";
  const std::string wrongCase = "NA'ME";
  ObjectQuery query(repository_);
  query.addConstraint(prop("Run", "Number"), Relation::Equal, &number);
  query.addConstraint(prop("Run", "Instance"), Relation::Equal, &time);
  query.addConstraint(prop("Run", "Image"), Relation::Equal, &uuid);
  query.addConstraint(prop("Run", "Name"), Relation::Equal, "na'me");
  query.addConstraint(prop("Run", "Title"), Relation::Equal, &title);
  EXPECT_THAT(run(query), ElementsAre(object.id()));
  query.addConstraint(prop("Run", "Name"), Relation::Equal, &wrongCase);
  int count = -1;
  query.addResultCount(&count);
  EXPECT_FALSE(query.executeForOne(NoFailure()));
}

TEST_F(QueryTest, OrdersByKeysThenByCreationAndStopsAtTheLimit) {
  const int a = createRun(2, 1).id();
  const int b = createRun(1, 1).id();
  const int c = createRun(2, 0).id();
  const int d = createRun(2, 1).id();
  ObjectQuery query(repository_);
  int id = 0;
  query.addResultID(cls("Run"), &id);
  EXPECT_THAT(rows(query, id), ElementsAre(a, b, c, d));
  query.setOrderByProperty(prop("Run", "Number"), ObjectQuery::SortOrder::descending);
  EXPECT_THAT(rows(query, id), ElementsAre(a, c, d, b));
  query.setOrderByProperty(prop("Run", "Start"), ObjectQuery::SortOrder::ascending);
  EXPECT_THAT(rows(query, id), ElementsAre(c, a, d, b));
  query.setLimit(2);
  EXPECT_THAT(rows(query, id), ElementsAre(c, a));
  EXPECT_TRUE(query.executeForOne(NoFailure()));
  EXPECT_EQ(id, c);
}

TEST_F(QueryTest, ADisjunctionHoldsWhenOneOfItsMatchesDoes) {
  const int a = createRun(1).id();
  createRun(2);
  const int c = createRun(3).id();
  int first = 1;
  int second = 3;
  DisjunctionMatchConstraint either;
  either.addConstraint(prop("Run", "Number"), Relation::Equal, &first);
  either.addConstraint(prop("Run", "Number"), Relation::GreaterEqual, &second);
  int id = 0;
  int visible = 1;
  ObjectQuery query(repository_);
  query.addConstraint(either);
  query.addConstraint(prop("Run", "Visible"), Relation::Equal, &visible);
  query.addResultID(cls("Run"), &id);
  EXPECT_THAT(rows(query, id), ElementsAre(a, c));
  visible = 0;
  EXPECT_THAT(rows(query, id), IsEmpty());
  ObjectQuery none(repository_);
  none.addResultID(cls("Run"), &id);
  none.addConstraint(DisjunctionMatchConstraint());
  EXPECT_THAT(rows(none, id), IsEmpty());
}

TEST_F(QueryTest, HoldsThousandsOfConditions) {
  const int seven = 7;
  const int eight = 8;
  const int wanted = createRun(7).id();
  createRun(8);
  ObjectQuery all(repository_);
  DisjunctionMatchConstraint any;
  for (int i = 0; i < 5000; ++i) {
    all.addConstraint(prop("Run", "Number"), Relation::Equal, &seven);
    any.addConstraint(prop("Run", "Number"), Relation::Equal, i == 4321 ? &seven : &eight);
  }
  EXPECT_THAT(run(all), ElementsAre(wanted));
  ObjectQuery some(repository_);
  some.addConstraint(any);
  EXPECT_EQ(run(some).size(), 2u);
}

TEST_F(QueryTest, MatchesObjectsByWhatTheyName) {
  ObjectRef run = createRun(1);
  const ObjectRef mine = create("Signal");
  const ObjectRef other = create("Signal");
  ObjectRef note = create("Note");
  set(mine, "Run", run);
  set(mine, "Source", note);
  ObjectRef wanted = run;
  int id = 0;
  const auto signals = [&](auto&& constrain) {
    ObjectQuery query(repository_);
    query.addResultID(cls("Signal"), &id);
    constrain(query);
    return rows(query, id);
  };
  const auto ofRun = [&](ObjectQuery& q) {
    q.addObjectConstraint(prop("Signal", "Run"), true, &wanted);
  };
  const auto notOfRun = [&](ObjectQuery& q) {
    q.addObjectConstraint(prop("Signal", "Run"), false, &wanted);
  };
  const auto withSource = [&](ObjectQuery& q) {
    q.addSubObjectConstraint(prop("Signal", "Source"), nullptr);
  };
  EXPECT_THAT(signals(ofRun), ElementsAre(mine.id()));
  EXPECT_THAT(signals(notOfRun), ElementsAre(other.id()));
  EXPECT_THAT(signals([&](ObjectQuery& q) { q.addObjectConstraint(cls("Signal"), &other); }),
              ElementsAre(other.id()));
  EXPECT_THAT(signals(withSource), ElementsAre(mine.id()));
  note.deleteObject(NoFailure());
  EXPECT_THAT(signals(withSource), IsEmpty());
  wanted.clear();
  EXPECT_THAT(signals(ofRun), ElementsAre(other.id()));
}

TEST_F(QueryTest, DeliversEveryKindOfResult) {
  const ObjectRef object = createRun(7, 0.5);
  ObjectRef baseline = createRun(8);
  set(object, "Instance", 1LL << 40);
  set(object, "Name", std::string("n"));
  set(object, "Title", std::wstring(L"\u00e4"));
  set(object, "Baseline", baseline);
  set(object, "Owner", baseline);
  set(object, "Image", const_BlobDescriptor("abc", 3));
  int number = 0, length = 0, baselineID = 0, all = 0;
  long long instance = 0;
  double start = 0;
  std::string name;
  std::wstring title;
  ObjectRef self, readBaseline, owner;
  BlobSizeInfo size;
  std::vector<char> image;
  char buffer[2] = {};
  ObjectQuery query(repository_);
  query.addResultProperty(prop("Run", "Number"), &number);
  query.addResultProperty(prop("Run", "Instance"), &instance);
  query.addResultProperty(prop("Run", "Start"), &start);
  query.addResultProperty(prop("Run", "Name"), &name);
  query.addResultProperty(prop("Run", "Title"), &title);
  query.addResultProperty(prop("Run", "Baseline"), &readBaseline);
  query.addResultProperty(prop("Run", "Baseline"), &baselineID);
  query.addResultProperty(prop("Run", "Owner"), &owner);
  query.addResultProperty(prop("Run", "Image"), &size);
  query.addResultProperty(prop("Run", "Image"), &image);
  query.addResultProperty(prop("Run", "Image"), 2, buffer, &length);
  query.addResultObject(cls("Run"), &self);
  query.addResultCount(&all);
  ASSERT_TRUE(query.executeForOne(NoFailure()));
  EXPECT_EQ(std::tie(number, instance, start, name), std::make_tuple(7, 1LL << 40, 0.5, "n"));
  EXPECT_EQ(title, L"\u00e4");
  EXPECT_EQ(readBaseline, baseline);
  EXPECT_EQ(baselineID, baseline.id());
  EXPECT_EQ(owner, baseline);
  EXPECT_EQ(size.length, 3u);
  EXPECT_THAT(image, ElementsAre('a', 'b', 'c'));
  EXPECT_EQ(length, 3);
  EXPECT_THAT(buffer, ElementsAre('a', 'b'));
  EXPECT_EQ(self, object);
  EXPECT_EQ(all, 2);
  baseline.deleteObject(NoFailure());
  ASSERT_TRUE(query.executeForOne(NoFailure()));
  EXPECT_EQ(readBaseline.id() + owner.id() + baselineID, 0);
}

// A condition on a partially indexed property may be answered from the index only when it
// rules out the default; both ways must find the same objects.
TEST_F(QueryTest, PartialIndexesChangeNoAnswer) {
  const ObjectRef masked = create("Signal");
  const ObjectRef plain = create("Signal");
  set(masked, "Mask", -5);
  set(masked, "Picture", const_BlobDescriptor("p", 1));
  int mask = 0;
  int id = 0;
  for (const Relation relation : {Relation::Equal, Relation::NotEqual, Relation::Less}) {
    ObjectQuery query(repository_);
    query.addConstraint(prop("Signal", "Mask"), relation, &mask);
    query.addResultID(cls("Signal"), &id);
    for (const int value : {0, -5, 3}) {
      mask = value;
      std::vector<int> expected;
      for (const ObjectRef& signal : {masked, plain}) {
        const int stored = get<int>(signal, "Mask");
        const bool holds = relation == Relation::Equal      ? stored == value
                           : relation == Relation::NotEqual ? stored != value
                                                            : stored < value;
        if (holds) expected.push_back(signal.id());
      }
      EXPECT_EQ(rows(query, id), expected) << value;
      EXPECT_EQ(find("Signal", matching(prop("Signal", "Mask"), relation, value)), expected);
    }
  }
  for (const bool empty : {true, false}) {
    ObjectQuery query(repository_);
    query.addEmptyConstraint(prop("Signal", "Picture"), empty);
    query.addResultID(cls("Signal"), &id);
    EXPECT_THAT(rows(query, id), ElementsAre(empty ? plain.id() : masked.id()));
  }
}

TEST_F(QueryTest, AnswersFromItsIndexes) {
  std::string statement;
  repository_.setTraceCallback([&](std::string_view sql) { statement = sql; });
  const auto plan = [&](const MatchConstraints& constraints) {
    find("Signal", constraints);
    sqldb::Statement explain =
        repository_.getDB()->statement("EXPLAIN QUERY PLAN " + statement);
    std::string steps;
    while (explain.step()) steps += std::string(explain.text(3)) + ";";
    return steps;
  };
  using ::testing::HasSubstr;
  EXPECT_THAT(plan(matching(prop("Signal", "Run"), Relation::Equal, 1)),
              HasSubstr("USING COVERING INDEX"));
  EXPECT_THAT(plan(matching(prop("Signal", "Mask"), Relation::Equal, 4)),
              HasSubstr("USING COVERING INDEX"));
  EXPECT_THAT(plan(matching(prop("Signal", "Mask"), Relation::NotEqual, 0)),
              HasSubstr("USING COVERING INDEX"));
  EXPECT_THAT(plan(matching(prop("Signal", "Level"), Relation::Equal, 1.0)),
              Not(HasSubstr("INDEX")));
}

TEST_F(QueryTest, EndsWithItsUnitAndWithARollback) {
  createRun(1);
  createRun(2);
  int id = 0;
  ObjectQuery query(repository_);
  query.addResultID(cls("Run"), &id);
  std::optional<ResultIterator> inside;
  std::optional<ResultIterator> undone;
  inUnit([&](diagnostics&) {
    inside = query.execute(NoFailure());
    EXPECT_TRUE(inside->getNextResult(NoFailure()));
  });
  EXPECT_FALSE(inside->getNextResult(NoFailure()));
  undone = query.execute(NoFailure());
  EXPECT_TRUE(undone->getNextResult(NoFailure()));
  inUnit([&](diagnostics&) {
    createRun(3);
    throw 1;
  });
  EXPECT_FALSE(undone->getNextResult(NoFailure()));
  ResultIterator open = query.execute(NoFailure());
  repository_.close();
  EXPECT_FALSE(open.getNextResult(NoFailure()));
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { query.execute(diag); }),
            "KODD:kodd:RepositoryNotOpen");
}

TEST_F(QueryTest, AnIteratorOutlivesItsQueryAndChangesToIt) {
  const int first = createRun(1).id();
  const int second = createRun(2).id();
  int id = 0;
  auto query = std::make_unique<ObjectQuery>(repository_);
  query->addResultID(cls("Run"), &id);
  ResultIterator iterator = query->execute(NoFailure());
  int visible = 0;
  query->addConstraint(prop("Run", "Visible"), Relation::Equal, &visible);
  EXPECT_TRUE(iterator.getNextResult(NoFailure()));
  EXPECT_EQ(id, first);
  query.reset();
  EXPECT_TRUE(iterator.getNextResult(NoFailure()));
  EXPECT_EQ(id, second);
}

TEST_F(QueryTest, ReportsWhatIsWrongWithItWhenItRuns) {
  const int number = 0;
  std::string text;
  const auto running = [this](auto&& build) {
    ObjectQuery query(repository_);
    build(query);
    return idLeftBy([&](diagnostics& diag) { query.executeForOne(diag); });
  };
  EXPECT_EQ(running([](ObjectQuery&) {}), "KODD:kodd:NoSuchObjectType");
  EXPECT_EQ(running([&](ObjectQuery& q) {
              q.addConstraint(prop("Run", "Name"), Relation::Equal, &number);
            }),
            "KODD:kodd:InvalidPropertyValue");
  EXPECT_EQ(running([&](ObjectQuery& q) { q.addResultProperty(prop("Run", "Number"), &text); }),
            "KODD:kodd:InvalidPropertyValue");
  EXPECT_EQ(running([&](ObjectQuery& q) {
              q.addConstraint(prop("Run", "Number"), Relation::Equal, &number);
              q.addResultProperty(prop("Note", "Text"), &text);
            }),
            "KODD:kodd:InvalidProperty");
  EXPECT_EQ(running([&](ObjectQuery& q) {
              q.addConstraint(PropertyRef(), Relation::Equal, &number);
            }),
            "KODD:kodd:InvalidProperty");
  const auto finding = [this](const PropertyRef& property, const EntryValue& value) {
    return idLeftBy([&](diagnostics& diag) {
      std::vector<ObjectRef> found;
      repository_.findObjects(cls("Run"), matching(property, Relation::Equal, value), found,
                              diag);
    });
  };
  EXPECT_EQ(finding(prop("Note", "Text"), std::string()), "KODD:kodd:InvalidProperty");
  EXPECT_EQ(finding(prop("Run", "Number"), 2.5), "KODD:kodd:InvalidPropertyValue");
}

}  // namespace
}  // namespace kodd
