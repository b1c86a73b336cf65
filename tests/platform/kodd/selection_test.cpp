#include <algorithm>
#include <functional>
#include <map>
#include <random>

#include "koddtest.h"

namespace kodd {
namespace {

/// The objects in plain memory, searched one by one.
struct Plain {
  struct Signal {
    int run = 0;
    int parent = 0;
    int note = 0;
    int order = 0;
  };
  std::map<int, Signal> signals;
  std::map<int, int> runs;  ///< number by ID
  std::vector<int> notes;

  template <class Holds>
  std::vector<int> signalsThat(Holds&& holds) const {
    std::vector<int> ids;
    for (const auto& [id, signal] : signals) {
      if (holds(id, signal)) ids.push_back(id);
    }
    return ids;
  }
};

class SelectionTest : public KoddTest {
 protected:
  void fill(std::mt19937& random) {
    const auto oneOf = [&random](const std::vector<int>& ids) {
      const std::size_t pick = random() % (ids.size() + 1);
      return pick == ids.size() ? 0 : ids[pick];
    };
    inUnit([&](diagnostics&) {
      std::vector<int> runs;
      std::vector<int> signals;
      for (int i = 0; i < 6; ++i) {
        const ObjectRef run = create("Run");
        set(run, "Number", i % 3);
        plain_.runs[run.id()] = i % 3;
        runs.push_back(run.id());
        plain_.notes.push_back(create("Note").id());
      }
      for (int i = 0; i < 60; ++i) {
        const ObjectRef object = create("Signal");
        const Plain::Signal signal{oneOf(runs), oneOf(signals), oneOf(plain_.notes),
                                   static_cast<int>(random() % 4)};
        set(object, "Run", signal.run);
        set(object, "Parent", signal.parent);
        set(object, "Source", signal.note);
        set(object, "Order", signal.order);
        plain_.signals[object.id()] = signal;
        signals.push_back(object.id());
      }
      // A dangling link refers to nothing that can be selected.
      repository_.getObjectRef(runs.back(), NoFailure()).deleteObject(NoFailure());
      plain_.runs.erase(runs.back());
    });
  }

  std::vector<int> remaining(const std::string& className) { return find(className, {}); }
  Selection all(const std::string& className) { return Selection(cls(className)); }

  Plain plain_;
};

TEST_F(SelectionTest, SelectsWhatASearchOneByOneFinds) {
  std::mt19937 random(20240229);
  fill(random);
  const int number = 1;
  const int order = 2;
  const std::vector<int> some =
      plain_.signalsThat([](int id, const auto&) { return id % 3 == 0; });
  ASSERT_GT(some.size(), 1u);
  Selection listed = all("Signal");
  for (const int id : some) listed = std::move(listed).withId(id);

  struct Case {
    const char* what;
    Selection selection;
    std::function<bool(int, const Plain::Signal&)> holds;
  };
  const auto isNumberedRun = [&](int run) {
    return plain_.runs.contains(run) && plain_.runs[run] == number;
  };
  const auto parentHasOrder = [&](const Plain::Signal& signal) {
    return signal.parent != 0 && plain_.signals[signal.parent].order == order;
  };
  const auto isParent = [&](int id) {
    return std::ranges::any_of(plain_.signals,
                               [id](const auto& entry) { return entry.second.parent == id; });
  };
  Selection numbered = all("Run").matching(prop("Run", "Number"), Relation::Equal, number);
  Selection ordered = all("Signal").matching(prop("Signal", "Order"), Relation::Equal, order);
  const Case cases[] = {
      {"all", all("Signal"), [](int, const auto&) { return true; }},
      {"one", all("Signal").withId(some[0]),
       [&](int id, const auto&) { return id == some[0]; }},
      {"listed", listed, [](int id, const auto&) { return id % 3 == 0; }},
      {"matching", ordered, [&](int, const auto& s) { return s.order == order; }},
      {"listed and matching",
       Selection(listed).matching(prop("Signal", "Order"), Relation::Less, order),
       [&](int id, const auto& s) { return id % 3 == 0 && s.order < order; }},
      {"of numbered runs", all("Signal").referring(prop("Signal", "Run"), numbered),
       [&](int, const auto& s) { return isNumberedRun(s.run); }},
      {"of any run", all("Signal").referring(prop("Signal", "Run"), all("Run")),
       [&](int, const auto& s) { return plain_.runs.contains(s.run); }},
      {"below ordered signals", all("Signal").referring(prop("Signal", "Parent"), ordered),
       [&](int, const auto& s) { return parentHasOrder(s); }},
      {"two levels",
       all("Signal").referring(prop("Signal", "Parent"),
                               all("Signal").referring(prop("Signal", "Run"), numbered)),
       [&](int, const auto& s) {
         return s.parent != 0 && isNumberedRun(plain_.signals[s.parent].run);
       }},
      {"without children",
       all("Signal").unreferencedBy(prop("Signal", "Parent"), all("Signal")),
       [&](int id, const auto&) { return !isParent(id); }},
      {"of no numbered run", all("Signal").notReferring(prop("Signal", "Run"), numbered),
       [&](int, const auto& s) { return !isNumberedRun(s.run); }},
      {"above ordered signals", all("Signal").referencedBy(prop("Signal", "Parent"), ordered),
       [&](int id, const auto&) {
         return std::ranges::any_of(plain_.signals, [&](const auto& entry) {
           return entry.second.parent == id && entry.second.order == order;
         });
       }},
      {"with an order no run has as its number",
       all("Signal").unmatchedBy(prop("Signal", "Order"), prop("Run", "Number"), all("Run")),
       [&](int, const auto& s) {
         return std::ranges::none_of(
             plain_.runs, [&](const auto& entry) { return entry.second == s.order; });
       }},
      {"with an order no visible run has as its flag",
       all("Signal").unmatchedBy(prop("Signal", "Order"), prop("Run", "Visible"), numbered),
       [&](int, const auto& s) { return s.order != 1; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(repository_.selectIDs(c.selection, {}, NoFailure()), plain_.signalsThat(c.holds));
    const std::vector<int> expected = plain_.signalsThat(c.holds);
    EXPECT_EQ(repository_.countObjects(c.selection, NoFailure()),
              static_cast<long long>(expected.size()));
    EXPECT_EQ(inUnit([&](diagnostics& diag) {
                ObjectDeleter deleter(cls("Signal"), repository_);
                EXPECT_EQ(deleter.deleteSelected(c.selection, diag),
                          static_cast<long long>(expected.size()));
                EXPECT_EQ(remaining("Signal"), plain_.signalsThat([&](int id, const auto& s) {
                  return !c.holds(id, s);
                }));
                throw 1;  // for the next case
              }),
              "KODD:kodd:DictFuncThrewStdException");
    const int mark = 1000;
    ObjectModifier modifier(cls("Signal"), repository_);
    modifier.setPropertyValueSource(prop("Signal", "order"), &mark);
    EXPECT_EQ(inUnit([&](diagnostics& diag) {
                EXPECT_EQ(modifier.modifySelected(c.selection, diag),
                          static_cast<long long>(expected.size()));
                EXPECT_EQ(
                    find("Signal", matching(prop("Signal", "order"), Relation::Equal, mark)),
                    expected);
                throw 1;
              }),
              "KODD:kodd:DictFuncThrewStdException");
  }
}

TEST_F(SelectionTest, FindsOrphansWithAndWithoutAnIndex) {
  std::mt19937 random(7);
  fill(random);
  const auto isUsed = [&](int Plain::Signal::*member, int id) {
    return std::ranges::any_of(plain_.signals,
                               [&](const auto& entry) { return entry.second.*member == id; });
  };
  std::vector<int> usedNotes;
  std::ranges::copy_if(plain_.notes, std::back_inserter(usedNotes),
                       [&](int id) { return isUsed(&Plain::Signal::note, id); });
  std::vector<int> usedRuns;
  for (const auto& [id, number] : plain_.runs) {
    if (isUsed(&Plain::Signal::run, id)) usedRuns.push_back(id);
  }
  const int unusedNote = create("Note").id();
  const int unusedRun = create("Run").id();
  ObjectDeleter notes(cls("Note"), repository_);
  ObjectDeleter runs(cls("Run"), repository_);
  EXPECT_GE(
      notes.deleteSelected(all("Note").unreferencedBy(prop("Signal", "Source"), all("Signal")),
                           NoFailure()),
      1);
  EXPECT_GE(runs.deleteSelected(all("Run").unreferencedBy(prop("Signal", "Run"), all("Signal")),
                                NoFailure()),
            1);
  EXPECT_EQ(remaining("Note"), usedNotes);
  EXPECT_EQ(remaining("Run"), usedRuns);
  EXPECT_FALSE(exists(unusedNote));
  EXPECT_FALSE(exists(unusedRun));
}

TEST_F(SelectionTest, RefusesPropertiesThatAreNotThere) {
  create("Signal");
  const auto deleting = [this](const Selection& selection) {
    return idLeftBy([&](diagnostics& diag) {
      ObjectDeleter(cls("Signal"), repository_).deleteSelected(selection, diag);
    });
  };
  EXPECT_EQ(deleting(all("Run")), "KODD:kodd:InvalidObject");
  EXPECT_EQ(deleting(all("Signal").matching(prop("Run", "Number"), Relation::Equal, 0)),
            "KODD:kodd:InvalidProperty");
  EXPECT_EQ(deleting(all("Signal").referring(prop("Signal", "Order"), all("Run"))),
            "KODD:kodd:InvalidPropertyValue");
  EXPECT_EQ(deleting(all("Signal").unreferencedBy(prop("Signal", "Run"), all("Run"))),
            "KODD:kodd:InvalidProperty");
  EXPECT_EQ(count("Signal"), 1);
}

}  // namespace
}  // namespace kodd
