#include <gmock/gmock.h>

#include <cstdlib>
#include <ctime>
#include <limits>

#include "host/arrays.h"
#include "host/functions.h"
#include "objects/find.h"
#include "objects/runnames.h"
#include "objects/set.h"
#include "objects/strings.h"
#include "tests/objectmanager/managertest.h"

namespace vela {
namespace {

using host::HostArray;

constexpr const char* kPreferenceFunction = "Korvo.vela.Engine.getPrefOptions";

class SetNamingTest : public test::ManagerTest {
 protected:
  ~SetNamingTest() override { host::unregisterFunction(kPreferenceFunction); }

  Set run(const std::wstring& name = L"") {
    Set set(*manager_, true);
    if (!name.empty()) set.setName(name);
    return set;
  }
  static void offerPreferences(HostArray result) {
    host::registerFunction(
        kPreferenceFunction,
        [result](std::span<const HostArray>, std::size_t) { return host::HostArrays{result}; });
  }
};

TEST_F(SetNamingTest, NewRunsAreNamedByTheBuiltInTemplate) {
  run();
  run();
  Set third = run();
  third.setModel(L"m");
  EXPECT_EQ(third.getName(), L"Run <run_index>: <model_name>");
  EXPECT_EQ(third.getRunDisplayName(), L"Run 3: m");
  EXPECT_EQ(count(strings::RunNameTemplate), 1u);
}

TEST_F(SetNamingTest, PreferencesGiveTemplateAndPlaceOnce) {
  offerPreferences(HostArray::structure({{"runNameTemplate", HostArray::text("P<run_index>")},
                                         {"showRunAtTop", HostArray::scalar(true)}}));
  const Set first = run();
  EXPECT_EQ(first.getRunDisplayName(), L"P1");
  EXPECT_EQ(first.getOrderIndex(), -1);

  Set::setRunNameTemplate(L"own", *manager_);
  EXPECT_EQ(run().getName(), L"own");
  Set::restoreRunNameTemplate(*manager_);
  EXPECT_EQ(Set::getRunNameTemplate(*manager_), L"P<run_index>");
  EXPECT_EQ(count(strings::RunNameTemplate), 1u);
}

// The template is there already, made by another instance: the place still follows the
// preferences.
TEST_F(SetNamingTest, AnInstanceThatFindsATemplateStillAsksWhereItsRunsGo) {
  run();
  offerPreferences(HostArray::structure({{"showRunAtTop", HostArray::scalar(true)}}));
  manager_->setInstanceID(77);
  EXPECT_EQ(run().getOrderIndex(), -1);
}

TEST_F(SetNamingTest, PreferencesThatCannotBeHadLeaveTheBuiltInOnes) {
  const auto expectBuiltIn = [](const char* what) {
    EXPECT_EQ(Set::getDefaultRunNameTemplateAndShowAtTopFlagFromPrefs(),
              std::pair(std::wstring(L"Run <run_index>: <model_name>"), false))
        << what;
  };
  expectBuiltIn("no such function");
  host::registerFunction(kPreferenceFunction,
                         [](std::span<const HostArray>, std::size_t) -> host::HostArrays {
                           throw std::runtime_error("no");
                         });
  expectBuiltIn("it throws");
  offerPreferences(HostArray::scalar(3.0));
  expectBuiltIn("no structure");
  offerPreferences(HostArray::structure({{"runNameTemplate", HostArray::scalar(1.0)}}));
  expectBuiltIn("no text");
}

TEST_F(SetNamingTest, EveryTokenIsReplacedEverywhere) {
  setenv("TZ", "UTC", 1);
  tzset();
  Set baseline = run(L"base");
  Set other = run(L"other <run_index>");
  Set set =
      run(L"<run_index>|<baseline>|<compare_to>|<model_name>|<time_stamp>|<sim_mode>|<run_"
          L"index>|<x>");
  set.setBaselineSetID(baseline.getID());
  set.setCompareToSetID(other.getID());
  set.setModel(L"m");
  set.setSimMode("\xc3\xbc");
  set.setDate(86'399.9);
  EXPECT_EQ(set.getRunDisplayName(), L"3|base|other 2|m|1970-01-01 23:59:59|\u00fc|3|<x>");
}

TEST_F(SetNamingTest, MissingValuesLeaveNothing) {
  Set set(*manager_, false);
  set.setName(L"[<run_index><baseline><compare_to><model_name><sim_mode>]");
  EXPECT_EQ(set.getRunDisplayName(), L"[]");
}

TEST_F(SetNamingTest, OnlyLaterTokensAreReplacedInInsertedText) {
  Set set = run(L"<model_name> <sim_mode>");
  set.setModel(L"<model_name><run_index><sim_mode>");
  set.setSimMode("<sim_mode>");
  EXPECT_EQ(set.getRunDisplayName(), L"<model_name><run_index><sim_mode> <sim_mode>");
}

TEST_F(SetNamingTest, RunsThatReferToEachOtherEnd) {
  Set self = run(L"S<baseline>");
  self.setBaselineSetID(self.getID());
  EXPECT_EQ(self.getRunDisplayName(), L"SS");

  Set one = run(L"1<baseline>");
  Set two = run(L"2<baseline><compare_to>");
  one.setBaselineSetID(two.getID());
  two.setBaselineSetID(one.getID());
  two.setCompareToSetID(two.getID());
  EXPECT_EQ(one.getRunDisplayName(), L"1212");
}

TEST_F(SetNamingTest, AChainEndsAtSixteenReferences) {
  Set last = run(L"x");
  int next = last.getID();
  for (int i = 0; i < 20; ++i) {
    Set set = run(L"x<baseline>");
    set.setBaselineSetID(next);
    next = set.getID();
  }
  boost::shared_ptr<Set> longest;
  ASSERT_TRUE(Set::lookupSet(next, longest, *manager_));
  EXPECT_EQ(longest->getRunDisplayName(), std::wstring(17, L'x'));
}

// Both references of every run name the next one: worked out anew for each, this would take
// 2^15 look-ups and as many characters, and with four tokens 2^30.
TEST_F(SetNamingTest, NamesThatGrowWithoutBoundAreCut) {
  int next = 0;
  for (int i = 0; i < 16; ++i) {
    Set set = run(L"abcdefgh<baseline><compare_to><baseline><compare_to>");
    set.setBaselineSetID(next);
    set.setCompareToSetID(next);
    next = set.getID();
  }
  boost::shared_ptr<Set> longest;
  ASSERT_TRUE(Set::lookupSet(next, longest, *manager_));
  EXPECT_EQ(longest->getRunDisplayName().size(), 65'536u);
}

TEST_F(SetNamingTest, SummariesShowWhatTheRunsSayOfThemselves) {
  Set first = run();
  first.setModel(L"m");
  first.setDate(5);
  Set second = run(L"after <baseline>");
  second.setBaselineSetID(first.getID());
  second.setApplication(Set::Application::VELAComparison);
  for (int hasChildren : {1, 0, 0}) {
    const auto signal = create(strings::Signal);
    signal->setPropertyInt32(strings::FK_SetID, second.getID());
    signal->setPropertyInt32(strings::HasChildren, hasChildren);
  }
  const std::vector<Set::Summary> summaries = Set::getRunSummaries(*manager_);
  ASSERT_EQ(summaries.size(), 2u);
  EXPECT_EQ(summaries[0].id, first.getID());
  EXPECT_EQ(summaries[0].displayName, L"Run 1: m");
  EXPECT_EQ(summaries[0].date, 5);
  EXPECT_EQ(summaries[0].signalCount, 0);
  EXPECT_EQ(summaries[1].number, 2);
  EXPECT_EQ(summaries[1].displayName, L"after Run 1: m");
  EXPECT_EQ(summaries[1].application, Set::Application::VELAComparison);
  EXPECT_EQ(summaries[1].signalCount, 2);
}

TEST(DateText, IsEmptyForWhatNoCalendarShows) {
  setenv("TZ", "UTC", 1);
  tzset();
  EXPECT_EQ(dateText(-1), L"1969-12-31 23:59:59");
  EXPECT_EQ(dateText(253'402'300'799.0), L"9999-12-31 23:59:59");
  const double beyond[] = {253'402'300'800.0, -1e300, std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN()};
  for (const double seconds : beyond) EXPECT_EQ(dateText(seconds), L"") << seconds;
}

}  // namespace
}  // namespace vela
