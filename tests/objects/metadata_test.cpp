#include "objects/metadata.h"

#include <cmath>
#include <limits>

#include "host/arrays.h"
#include "objects/find.h"
#include "objects/strings.h"
#include "tests/objectmanager/managertest.h"

namespace vela {
namespace {

using kodd::EntryValue;
using testing::ElementsAre;

class MetaDataTest : public test::ManagerTest {
 protected:
  MetaDataTest() : owner_(create(strings::DataSet)->getObjectID()) {}

  void set(const std::string& name, const EntryValue& value) {
    metadata::set(*manager_, owner_, strings::DataSet, name, value);
  }
  template <class T>
  T get(const std::string& name) {
    return std::get<T>(metadata::get(*manager_, owner_, name).value);
  }

  int owner_;
};

TEST_F(MetaDataTest, ValuesOfEveryKindComeBackAfterReopening) {
  const std::string bytes("a\0b", 3);
  const host::HostArray array = host::HostArray::scalar(2.5);
  set("yes", true);
  set("count", 42);
  set("large", std::numeric_limits<long long>::min());
  set("real", -0.0);
  set("text", bytes);
  set("wide", std::wstring(L"\u00fc\U0001f600"));
  set("blob", kodd::const_BlobDescriptor(bytes.data(), bytes.size()));
  set("array", &array);
  reopen();

  EXPECT_TRUE(get<bool>("yes"));
  EXPECT_EQ(get<long long>("count"), 42);
  EXPECT_EQ(get<long long>("large"), std::numeric_limits<long long>::min());
  EXPECT_TRUE(std::signbit(get<double>("real")));
  EXPECT_EQ(get<std::string>("text"), bytes);
  EXPECT_EQ(get<std::wstring>("wide"), L"\u00fc\U0001f600");
  EXPECT_THAT(metadata::get(*manager_, owner_, "blob").bytes, ElementsAre('a', '\0', 'b'));
  EXPECT_EQ(*metadata::get(*manager_, owner_, "array").array, array);
}

TEST_F(MetaDataTest, ANewValueReplacesTheOldOneWhateverItsKind) {
  set("key", std::string("text"));
  set("other", 1);
  set("key", std::string("longer text"));
  EXPECT_THAT(metadata::names(*manager_, owner_), ElementsAre("key", "other"));
  set("key", 2.5);
  EXPECT_EQ(get<double>("key"), 2.5);
  EXPECT_THAT(metadata::names(*manager_, owner_), ElementsAre("other", "key"));
  set("key", kodd::UndefinedValue());
  EXPECT_NO_THROW(get<kodd::UndefinedValue>("key"));
  EXPECT_THAT(metadata::names(*manager_, owner_), ElementsAre("other"));
}

TEST_F(MetaDataTest, OwnersDoNotSeeEachOther) {
  const int other = create(strings::Signal)->getObjectID();
  set("key", 1);
  metadata::set(*manager_, other, strings::Signal, "key", 2);
  EXPECT_EQ(get<long long>("key"), 1);
  EXPECT_EQ(std::get<long long>(metadata::get(*manager_, other, "key").value), 2);
}

TEST_F(MetaDataTest, RefusesWhatItCannotKeepAndKeepsTheOldValue) {
  set("key", 1);
  const EntryValue refused[] = {std::numeric_limits<unsigned long long>::max(),
                                boost::uuids::uuid{},
                                static_cast<const host::HostArray*>(nullptr)};
  for (const EntryValue& value : refused) {
    EXPECT_EQ(test::raisedBy([&] { set("key", value); }), "nexstore:nex:InvalidData");
    EXPECT_EQ(get<long long>("key"), 1);
  }
}

TEST_F(MetaDataTest, AStoredTypeNobodyKnowsIsAnError) {
  set("key", 1);
  findFirst(*manager_, strings::MetaData, {})->setPropertyStdString(strings::Type, "fraction");
  EXPECT_EQ(test::raisedBy([&] { metadata::get(*manager_, owner_, "key"); }),
            "nexstore:nex:InvalidData");
}

}  // namespace
}  // namespace vela
