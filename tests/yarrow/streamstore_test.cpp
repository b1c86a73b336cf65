#include "yarrow/streamstore.h"

#include <cfloat>
#include <limits>
#include <map>
#include <random>
#include <stdexcept>

#include "objects/classdef.h"
#include "objects/datatypes.h"
#include "objects/set.h"
#include "objects/strings.h"
#include "tests/objectmanager/managertest.h"

namespace yarrow {
namespace {

using vela::ClassDef;
using vela::DataTypeUtil;
using vela::test::raisedBy;
namespace strings = vela::strings;

class StreamStoreTest : public vela::test::ManagerTest {
 protected:
  StreamStore store() { return StreamStore(*manager_); }
  std::string create(unsigned channels) {
    long long type = 0;
    DataTypeUtil::getBuiltInDataTypeHandle(vela::dtypeDouble, *manager_, type);
    return store().create(type, channels);
  }
  StreamRows all(const std::string& stream) { return store().rows(stream, -DBL_MAX, DBL_MAX); }
};

/// What a stream holds, by time.
class Model {
 public:
  void add(StreamRows rows) {
    rows = inOrderOfTime(std::move(rows));
    if (rows.empty()) return;
    const bool goesBack = !rows_.empty() && rows.front().first < rows_.rbegin()->first;
    if (goesBack) rows_.erase(rows_.lower_bound(rows.front().first), rows_.end());
    insert(rows);
  }
  void update(StreamRows rows) {
    rows = inOrderOfTime(std::move(rows));
    for (const StreamRow& row : rows) rows_.erase(row.first);
    insert(rows);
  }
  void remove(const std::vector<double>& times) {
    for (const double time : times) rows_.erase(time);
  }
  StreamRows rows(double t0, double t1) const {
    StreamRows found;
    for (const auto& [time, values] : rows_) {
      if (time >= t0 && time <= t1) found.emplace_back(time, values);
    }
    return found;
  }

 private:
  void insert(const StreamRows& rows) {
    for (const auto& [time, values] : rows) rows_.emplace(time, values);
  }
  std::multimap<double, std::vector<double>> rows_;
};

TEST_F(StreamStoreTest, RandomOperationsLeaveTheRowsOfAPlainTable) {
  for (unsigned seed = 1; seed <= 60; ++seed) {
    std::mt19937 random(seed);
    const unsigned channels = 1 + seed % 8;
    const std::string stream = create(channels);
    Model model;
    const auto pick = [&random](int below) { return static_cast<int>(random() % below); };
    const auto someRows = [&] {
      StreamRows rows;
      for (int i = pick(5); i >= 0; --i) {
        std::vector<double> values(channels);
        for (double& value : values) value = pick(1000);
        rows.emplace_back(pick(20), values);
      }
      return rows;
    };
    for (int step = 0; step < 25; ++step) {
      const int choice = pick(4);
      if (choice == 0) {
        const std::vector<double> times = {double(pick(20)), double(pick(20)), 0.5};
        model.remove(times);
        store().remove(stream, times);
      } else {
        const StreamRows rows = someRows();
        choice == 1 ? model.update(rows) : model.add(rows);
        choice == 1 ? store().update(stream, rows) : store().add(stream, rows);
      }
      const double t0 = pick(20);
      const double t1 = pick(20);
      ASSERT_EQ(store().rows(stream, t0, t1), model.rows(t0, t1)) << "seed " << seed;
      ASSERT_EQ(all(stream), model.rows(-DBL_MAX, DBL_MAX)) << "seed " << seed;
    }
  }
}

TEST_F(StreamStoreTest, LimitsKeepRowsAtTheStartAndThenAtTheEnd) {
  const std::string stream = create(1);
  store().add(stream, {{3, {3}}, {1, {1}}, {2, {2}}, {4, {4}}});
  const auto times = [&](RowLimits limits) {
    std::vector<double> found;
    for (const auto& [time, values] : store().rows(stream, 0, 9, limits)) found.push_back(time);
    return found;
  };
  EXPECT_EQ(times({3, -1}), (std::vector<double>{1, 2, 3}));
  EXPECT_EQ(times({-1, 1}), (std::vector<double>{4}));
  EXPECT_EQ(times({3, 2}), (std::vector<double>{2, 3}));
  EXPECT_EQ(times({0, -1}), std::vector<double>());
  EXPECT_EQ(times({9, 9}).size(), 4u);
}

TEST_F(StreamStoreTest, AFailingChangeLeavesTheStreamAsItWas) {
  const std::string stream = create(2);
  const StreamRows before = {{1, {1, 2}}, {2, {3, 4}}};
  store().add(stream, before);
  const double nan = std::numeric_limits<double>::quiet_NaN();
  for (const StreamRows& bad :
       {StreamRows{{3, {1, 2}}, {4, {1}}}, StreamRows{{0, {1, 2, 3}}}}) {
    EXPECT_EQ(raisedBy([&] { store().add(stream, bad); }), "nexstore:nex:InvalidDimensions");
    EXPECT_EQ(raisedBy([&] { store().update(stream, bad); }), "nexstore:nex:InvalidDimensions");
  }
  EXPECT_EQ(raisedBy([&] {
              store().update(stream, {{0, {1, 2}}, {nan, {1, 2}}});
            }),
            "nexstore:nex:InvalidData");
  EXPECT_EQ(all(stream), before);
}

TEST_F(StreamStoreTest, AnUpdateThatFailsAtAnyWriteLeavesTheStreamAsItWas) {
  const std::string stream = create(2);
  const StreamRows before = {{1, {1, 2}}, {2, {3, 4}}};
  store().add(stream, before);
  sqldb::Database& database = *manager_->repository().getDB();
  for (int failing = 1;; ++failing) {
    int writes = 0;
    database.setWriteCallback([&] {
      if (++writes == failing) throw std::runtime_error("this write fails");
    });
    bool failed = false;
    try {
      store().update(stream, {{1.5, {5, 6}}});
    } catch (const std::exception&) {
      failed = true;
    }
    database.setWriteCallback({});
    if (!failed) {
      EXPECT_GT(failing, 10);
      break;
    }
    ASSERT_EQ(all(stream), before) << failing;
  }
  EXPECT_EQ(all(stream), (StreamRows{{1, {1, 2}}, {1.5, {5, 6}}, {2, {3, 4}}}));
}

TEST_F(StreamStoreTest, EnumerationsTakeOnlyTheirValues) {
  long long type = 0;
  DataTypeUtil::createEnumDataType("Gear", {{-1, "reverse"}, {0, "neutral"}, {1, "first"}},
                                   "int8", *manager_, type);
  const ClassDef gear("Gear", {{-1, "reverse"}, {0, "neutral"}, {1, "first"}}, "int8",
                      *manager_);
  const std::string stream = store().createOfEnumeration(gear.getID(), 2);
  const StreamRows rows = {{0, {-1, 1}}, {1, {0, 0}}};
  store().add(stream, rows);
  for (const double bad : {2., 0.5, 1e10, std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(raisedBy([&] {
                store().update(stream, {{1, {1, bad}}});
              }),
              "nexstore:nex:InvalidData");
  }
  EXPECT_EQ(all(stream), rows);
  EXPECT_EQ(raisedBy([&] { store().createOfEnumeration(gear.getID() + 1, 1); }),
            "nexstore:nex:InvalidData");
}

TEST_F(StreamStoreTest, AStreamWithoutChannelsKeepsNothing) {
  const std::string stream = create(0);
  store().add(stream, {{1, {}}});
  EXPECT_EQ(raisedBy([&] {
              store().add(stream, {{1, {1}}});
            }),
            "nexstore:nex:InvalidDimensions");
  EXPECT_TRUE(all(stream).empty());
  EXPECT_EQ(count(strings::Signal), 0u);
}

TEST_F(StreamStoreTest, MetadataKeepOneValueAKey) {
  const std::string stream = create(1);
  const std::string other = create(1);
  store().setText(stream, "b", "text");
  store().setNumber(stream, "a", 0);
  store().setNumber(stream, "c", 1);
  store().setText(stream, "c", "now text");
  store().setText(other, "b", "of another");
  EXPECT_EQ(store().texts(stream),
            (StreamMetaData<std::string>{{"b", "text"}, {"c", "now text"}}));
  EXPECT_EQ(store().numbers(stream), (StreamMetaData<double>{{"a", 0}}));
}

TEST_F(StreamStoreTest, AnUnknownStreamIsNamed) {
  const std::vector<std::function<void()>> operations = {
      [&] { store().add("none", {}); },         [&] { all("none"); },
      [&] { store().remove("none", {}); },      [&] { store().update("none", {}); },
      [&] { store().setText("none", "", ""); }, [&] { store().setNumber("none", "", 0); },
      [&] { store().texts("none"); },           [&] { store().numbers("none"); }};
  for (const auto& operation : operations) {
    EXPECT_EQ(raisedBy(operation), "nexstore:nex:NoSuchSignal");
  }
  EXPECT_EQ(count(strings::YarrowMetaData), 0u);
}

TEST_F(StreamStoreTest, StreamsOutliveTheRunsBesideThem) {
  const std::string stream = create(2);
  store().add(stream, {{1, {1, 2}}});
  vela::Set run(*manager_, true);
  run.remove();
  vela::Set::removeClosedInstances(*manager_, true);
  reopen();
  EXPECT_EQ(all(stream), (StreamRows{{1, {1, 2}}}));
}

}  // namespace
}  // namespace yarrow
