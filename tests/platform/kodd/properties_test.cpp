#include <cmath>
#include <limits>

#include "host/arrays.h"
#include "koddtest.h"

namespace kodd {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* kInvalidValue = "KODD:kodd:InvalidPropertyValue";
constexpr const char* kInvalidObject = "KODD:kodd:InvalidObject";

class PropertiesTest : public KoddTest {
 protected:
  /// Writes, reopens the file, reads.
  template <class Value>
  Value roundTrip(const std::string& name, const Value& value) {
    const int id = run_.id();
    set(run_, name, value);
    open();
    run_ = repository_.getObjectRef(id, NoFailure());
    return get<Value>(run_, name);
  }

  ObjectRef run_ = create("Run");
};

TEST_F(PropertiesTest, StartAtTheDefaultsOfTheSchema) {
  EXPECT_EQ(get<int>(run_, "Visible"), 1);
  EXPECT_EQ(get<long long>(run_, "Instance"), -5);
  EXPECT_EQ(get<double>(run_, "Start"), 0.0);
  EXPECT_EQ(get<double>(run_, "Factor"), 2.5);
  EXPECT_EQ(get<std::wstring>(run_, "Title"), L"it's new");
  EXPECT_EQ(get<ObjectRef>(run_, "Baseline").id(), 0);
  EXPECT_THAT(get<std::vector<char>>(run_, "Image"), IsEmpty());
  EXPECT_EQ(get<EntryValue>(run_, "Number"), EntryValue(0));
}

TEST_F(PropertiesTest, KeepEveryValueOfTheirKind) {
  for (const int value : {std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    EXPECT_EQ(roundTrip("Number", value), value);
  }
  for (const long long value :
       {std::numeric_limits<long long>::min(), std::numeric_limits<long long>::max()}) {
    EXPECT_EQ(roundTrip("Instance", value), value);
  }
  const double inf = std::numeric_limits<double>::infinity();
  for (const double value : {inf, -inf, std::numeric_limits<double>::denorm_min(), 3.0, 0.1}) {
    EXPECT_EQ(roundTrip("Start", value), value);
  }
  EXPECT_TRUE(std::signbit(roundTrip("Start", -0.0)));
  EXPECT_TRUE(std::isnan(roundTrip("Start", std::nan(""))));
  const std::string bytes("\xff\0'\"", 4);
  EXPECT_EQ(roundTrip("Name", bytes), bytes);
  const std::wstring wide(L"\u00e4\0\U0001F600", 3);
  EXPECT_EQ(roundTrip("Title", wide), wide);
  EXPECT_EQ(roundTrip("Title", std::wstring()), L"");
}

TEST_F(PropertiesTest, KeepNamesApartThatDifferByCaseOrAreWordsOfSql) {
  const ObjectRef signal = create("Signal");
  set(signal, "Order", 1);
  set(signal, "order", 2);
  set(signal, "Select", std::string("x"));
  EXPECT_EQ(get<int>(signal, "Order"), 1);
  EXPECT_EQ(get<int>(signal, "order"), 2);
  EXPECT_FALSE(propOf(signal, "ORDER").isValid());
}

TEST_F(PropertiesTest, RefuseKindsThatDoNotFitAndStayAsTheyWere) {
  const auto writing = [this](const char* name, const auto& value) {
    return idLeftBy(
        [&](diagnostics& diag) { run_.setPropertyValue(propOf(run_, name), value, diag); });
  };
  set(run_, "Number", 7);
  EXPECT_EQ(writing("Number", std::string("8")), kInvalidValue);
  EXPECT_EQ(writing("Number", 8.0), kInvalidValue);
  EXPECT_EQ(writing("Number", 1LL << 31), kInvalidValue);
  EXPECT_EQ(writing("Start", 8), kInvalidValue);
  EXPECT_EQ(writing("Name", 8), kInvalidValue);
  EXPECT_EQ(writing("Image", std::string("x")), kInvalidValue);
  EXPECT_EQ(writing("Signal", 1), kInvalidValue);
  EXPECT_EQ(writing("Title", std::wstring(1, wchar_t(0xD800))), "nexstore:nex:InvalidText");
  EXPECT_EQ(get<int>(run_, "Number"), 7);

  const auto reading = [this](const char* name, auto value) {
    return idLeftBy(
        [&](diagnostics& diag) { run_.getPropertyValue(propOf(run_, name), value, diag); });
  };
  EXPECT_EQ(reading("Instance", 0), kInvalidValue);
  EXPECT_EQ(reading("Number", 0.0), kInvalidValue);
  EXPECT_EQ(reading("Number", std::string()), kInvalidValue);
  EXPECT_EQ(reading("Number", ObjectRef()), kInvalidValue);
  EXPECT_EQ(reading("Number", CollectionRef()), kInvalidValue);
  EXPECT_EQ(reading("Signal", EntryValue()), kInvalidValue);
}

TEST_F(PropertiesTest, ConvertEntryValuesWhereNothingIsLost) {
  const auto writing = [this](const char* name, const EntryValue& value) {
    return idLeftBy([&](diagnostics& diag) {
      run_.setPropertyValueLegacy(propOf(run_, name), value, diag);
    });
  };
  struct Case {
    const char* name;
    EntryValue given;
    EntryValue read;
  };
  const boost::posix_time::ptime time(boost::gregorian::date(1970, 1, 2));
  const Case kept[] = {
      {"Number", 2.0, 2},
      {"Number", true, 1},
      {"Number", static_cast<unsigned char>(200), 200},
      {"Number", char{5}, 5},
      {"Instance", -9223372036854775808.0, std::numeric_limits<long long>::min()},
      {"Instance", time, 86'400'000'000LL},
      {"Start", 3, 3.0},
      {"Start", 1LL << 60, static_cast<double>(1LL << 60)},
      {"Start", 0.5f, 0.5},
      {"Name", std::wstring(L"\u00e4"), std::string("\xc3\xa4")},
      {"Name", 'c', std::string("c")},
      {"Title", std::string("\xc3\xa4"), std::wstring(L"\u00e4")},
      {"Title", boost::uuids::uuid{}, std::wstring(L"00000000-0000-0000-0000-000000000000")},
      {"Baseline", run_.id(), run_.id()},
      {"Baseline", 0.0, 0},
      {"Owner", 77, 77},
  };
  for (const Case& c : kept) {
    SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.given.index()));
    EXPECT_EQ(writing(c.name, c.given), "");
    EXPECT_EQ(get<EntryValue>(run_, c.name), c.read);
  }
  const Case refused[] = {
      {"Number", 2.5, 0},
      {"Number", std::nan(""), 0},
      {"Number", 2147483648.0, 0},
      {"Number", std::numeric_limits<unsigned>::max(), 0},
      {"Instance", 9223372036854775808.0, 0},
      {"Instance", std::numeric_limits<unsigned long long>::max(), 0},
      {"Start", (1LL << 60) + 1, 0},
      {"Start", std::numeric_limits<long long>::max(), 0},
      {"Start", std::string("1"), 0},
      {"Title", std::string("\xff"), 0},
      {"Name", 1, 0},
      {"Number", UndefinedValue(), 0},
      {"Baseline", 12345, 0},
      {"Image", std::string("x"), 0},
  };
  for (const Case& c : refused) {
    SCOPED_TRACE(std::string(c.name) + " " + std::to_string(c.given.index()));
    const EntryValue before = get<EntryValue>(run_, c.name);
    EXPECT_EQ(writing(c.name, c.given), kInvalidValue);
    EXPECT_EQ(get<EntryValue>(run_, c.name), before);
  }
}

TEST_F(PropertiesTest, TakeHostArraysWhereTheirContentsFit) {
  const double numbers[] = {1.0, -2.0};
  const host::HostArray array = host::HostArray::row(std::span<const double>(numbers));
  const auto write = [this](const char* name, const host::HostArray& value) {
    run_.setPropertyValueLegacy(propOf(run_, name), &value, NoFailure());
  };
  write("Data", array);
  EXPECT_EQ(*std::get<const host::HostArray*>(get<EntryValue>(run_, "Data")), array);
  write("Image", array);
  EXPECT_EQ(get<std::vector<char>>(run_, "Image").size(), sizeof numbers);
  write("Name", host::HostArray::text(L"a name too long for any small buffer \u00e4"));
  EXPECT_EQ(get<std::string>(run_, "Name"), "a name too long for any small buffer \xc3\xa4");
  write("Number", host::HostArray::scalar(3.0));
  EXPECT_EQ(get<int>(run_, "Number"), 3);
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) {
              run_.setPropertyValueLegacy(propOf(run_, "Number"), &array, diag);
            }),
            kInvalidValue);
}

TEST_F(PropertiesTest, RawReadTellsTheLengthAndCopiesWhatFits) {
  const char bytes[] = {1, 2, 3};
  set(run_, "Image", const_BlobDescriptor(bytes, sizeof bytes));
  char buffer[4] = {9, 9, 9, 9};
  int length = 0;
  run_.getPropertyValue(propOf(run_, "Image"), 2, buffer, length, NoFailure());
  EXPECT_EQ(length, 3);
  EXPECT_THAT(buffer, ElementsAre(1, 2, 9, 9));
  int number = 0;
  set(run_, "Number", 0x01020304);
  run_.getPropertyValue(propOf(run_, "Number"), sizeof number, &number, length, NoFailure());
  EXPECT_EQ(length, 4);
  EXPECT_EQ(number, 0x01020304);
}

TEST_F(PropertiesTest, ReferencesReadAsNoneWhenTheirTargetIsGone) {
  ObjectRef baseline = create("Run");
  set(run_, "Baseline", baseline);
  set(run_, "Owner", baseline);
  EXPECT_EQ(get<ObjectRef>(run_, "Baseline"), baseline);
  EXPECT_EQ(get<ObjectRef>(run_, "Owner"), baseline);
  baseline.deleteObject(NoFailure());
  EXPECT_EQ(get<ObjectRef>(run_, "Baseline").id(), 0);
  EXPECT_EQ(get<int>(run_, "Baseline"), 0);
  EXPECT_EQ(get<ObjectRef>(run_, "Owner").id(), 0);
  EXPECT_EQ(get<int>(run_, "Owner"), baseline.id());  // a link is just the ID
}

TEST_F(PropertiesTest, ReferencesTakeOnlyLivingObjectsOfTheirClass) {
  ObjectRef gone = create("Run");
  gone.deleteObject(NoFailure());
  const auto naming = [this](const ObjectRef& value) {
    return idLeftBy([&](diagnostics& diag) {
      run_.setPropertyValue(propOf(run_, "Baseline"), value, diag);
    });
  };
  DataModelRepository other;
  ASSERT_EQ(idOfOpening(other, "other.dmr"), "");
  set(run_, "Baseline", run_);
  EXPECT_EQ(naming(create("Note")), kInvalidValue);
  EXPECT_EQ(naming(gone), kInvalidObject);
  EXPECT_EQ(naming(other.createObject(cls("Run"), NoFailure())), kInvalidObject);
  EXPECT_EQ(get<ObjectRef>(run_, "Baseline"), run_);
  EXPECT_EQ(naming(ObjectRef()), "");
  EXPECT_EQ(get<int>(run_, "Baseline"), 0);
}

TEST_F(PropertiesTest, HandlesOfAnObjectThatIsGoneOrOfAClosedFileAnswerWithAnError) {
  const auto reading = [](const ObjectRef& object, const PropertyRef& property) {
    int value = 42;
    const std::string id =
        idLeftBy([&](diagnostics& diag) { object.getPropertyValue(property, value, diag); });
    EXPECT_EQ(value, 42);
    return id;
  };
  const PropertyRef number = propOf(run_, "Number");
  ObjectRef gone = create("Run");
  gone.deleteObject(NoFailure());
  EXPECT_EQ(reading(gone, number), kInvalidObject);
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { gone.setPropertyValue(number, 1, diag); }),
            kInvalidObject);
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { gone.deleteObject(diag); }),
            "KODD:kodd:NoSuchObject");
  EXPECT_EQ(reading(ObjectRef(), number), kInvalidObject);
  EXPECT_EQ(reading(run_, prop("Signal", "Order")), "KODD:kodd:InvalidProperty");
  EXPECT_EQ(reading(run_, PropertyRef()), "KODD:kodd:InvalidProperty");
  open();
  EXPECT_EQ(reading(run_, number), kInvalidObject);
  repository_.close();
  EXPECT_EQ(reading(run_, number), kInvalidObject);
}

TEST_F(PropertiesTest, CollectionsAreTheObjectsThatReferToTheirParent) {
  ObjectRef other = create("Run");
  ObjectRef signals[] = {create("Signal"), create("Signal"), create("Signal")};
  CollectionRef mine = get<CollectionRef>(run_, "Signal");
  CollectionRef theirs = get<CollectionRef>(other, "Signal");
  const auto members = [](const CollectionRef& collection) {
    std::vector<ObjectRef> found;
    collection.findObjects({}, found, NoFailure());
    return idsOf(found);
  };
  for (ObjectRef& signal : signals) mine.push_back(signal, NoFailure());
  mine.push_back(signals[0], NoFailure());  // twice is once
  theirs.push_back(signals[1], NoFailure());
  EXPECT_THAT(members(mine), ElementsAre(signals[0].id(), signals[2].id()));
  EXPECT_THAT(members(theirs), ElementsAre(signals[1].id()));
  EXPECT_EQ(get<int>(signals[1], "Run"), other.id());
  mine.remove(signals[1], NoFailure());  // no member, nothing happens
  mine.remove(signals[2], NoFailure());
  EXPECT_THAT(members(mine), ElementsAre(signals[0].id()));
  EXPECT_THAT(members(theirs), ElementsAre(signals[1].id()));

  CollectionRef notes = get<CollectionRef>(run_, "Note");  // kept by a hidden link
  const ObjectRef note = create("Note");
  notes.push_back(note, NoFailure());
  EXPECT_THAT(members(notes), ElementsAre(note.id()));
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { mine.push_back(note, diag); }), kInvalidValue);
  EXPECT_EQ(idLeftBy([&](diagnostics& diag) { mine.push_back(ObjectRef(), diag); }),
            kInvalidObject);
}

TEST_F(PropertiesTest, AnObjectIsFoundByIDWithOrWithoutItsClass) {
  const ObjectRef note = create("Note");
  EXPECT_EQ(repository_.getObjectRef(note.id(), NoFailure()).cls(), cls("Note"));
  EXPECT_EQ(repository_.getObjectRef(note.id(), cls("Note"), NoFailure()), note);
  EXPECT_EQ(repository_.getObjectRef(note.id(), cls("Run"), NoFailure()).id(), 0);
  for (const int id : {0, -1, note.id() + 1, std::numeric_limits<int>::max()}) {
    EXPECT_FALSE(exists(id)) << id;
  }
}

}  // namespace
}  // namespace kodd
